// A network in ONNX, run by the fastest engine that knows it, behind tensors on file descriptors.
//
// A network takes the packed RGB picture as one wide channel of floats 0 to 255, [1, 1, height, width * 3], so that the
// picture needs no transposition on its way in, and gives its maps channel first.
#pragma once

#include <larod.h>

#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/workstation/inference/engine/engine.h"
#include "platform/workstation/inference/model_sidecar.h"

namespace workstation {

struct ServiceError : std::runtime_error {
  ServiceError(larodErrorCode error_code, const std::string& message) : std::runtime_error(message), code(error_code) {}
  larodErrorCode code;
};

/// A network that has run once, so that its shapes are known to be those of its sidecar.
class Network {
 public:
  /// Throws ServiceError with one line.
  Network(const std::string& file, std::string onnx, ModelSidecar sidecar);

  const ModelSidecar& sidecar() const { return m_sidecar; }
  bool isDeleted() const { return m_deleted; }
  void markDeleted() { m_deleted = true; }

  /// Runs on the picture in the input's file and writes every output at its descriptor's position. Throws ServiceError.
  void run(int input_fd, std::span<const int> output_fds);

  /// See layersNotFinite().
  std::vector<std::string> notFinite() const;

 private:
  void start(const std::string& file, std::string onnx);
  void check(const std::string& file, size_t output) const;
  void checkHeads(const std::string& file, size_t scale) const;
  std::span<const std::uint8_t> encode(size_t output);
  PoseHeads headsOf(size_t scale) const;
  void adapt();
  const float* mapsOf(size_t output) const { return m_results[m_result_of[output]].values.data(); }

  std::unique_ptr<Engine> m_engine;
  ModelSidecar m_sidecar;
  std::vector<std::string> m_layers;  ///< that are asked for: the tensors', then the adapter's heads, scale by scale
  std::vector<size_t> m_result_of;    ///< output -> its place in m_layers and m_results
  size_t m_first_head = 0;            ///< place of the heads there
  std::vector<Maps> m_results;        ///< of the last run
  std::vector<std::vector<std::uint8_t>> m_bytes;  ///< output -> its tensor's bytes; constant ones are filled once
  bool m_deleted = false;
};

}  // namespace workstation
