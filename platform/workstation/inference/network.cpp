#include "platform/workstation/inference/network.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <exception>
#include <utility>

#include "platform/workstation/inference/engine/engine_choice.h"
#include "platform/workstation/inference/engine/opencv_engine.h"
#include "platform/workstation/inference/eyes.h"
#include "platform/workstation/inference/tensor_quantizer.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

constexpr float kMostFrame = 8;  // cells: a network's picture has sides of multiples of 32 pixels, a cell has 4

/// The first `size` bytes of a file, mapped to be read: all at once, and not for longer than a run, since what two
/// mappings show counts twice.
class MappedInput {
 public:
  MappedInput(int fd, size_t size) : m_size(size) {
    struct stat status {};
    if (::fstat(fd, &status) != 0 || static_cast<size_t>(status.st_size) < size) {
      throw ServiceError(LAROD_ERROR_FD, "the input tensor's file holds less than " + std::to_string(size) + " bytes");
    }
    m_bytes = ::mmap(nullptr, size, PROT_READ, MAP_SHARED | MAP_POPULATE, fd, 0);
    if (m_bytes == MAP_FAILED) {
      throw ServiceError(LAROD_ERROR_FD,
                         std::string("the input tensor's file cannot be mapped: ") + std::strerror(errno));
    }
  }
  ~MappedInput() { ::munmap(m_bytes, m_size); }
  MappedInput(const MappedInput&) = delete;
  MappedInput& operator=(const MappedInput&) = delete;
  const std::uint8_t* bytes() const { return static_cast<const std::uint8_t*>(m_bytes); }

 private:
  void* m_bytes;
  size_t m_size;
};

/// Looks at all of them, which is quicker than to stop at one that is not: this way a compiler takes many at once.
bool areFinite(const Maps& maps) {
  constexpr std::uint32_t kExponent = 0x7F800000;
  unsigned int others = 0;
  for (const float value : maps.values) others += (std::bit_cast<std::uint32_t>(value) & kExponent) == kExponent;
  return others == 0;
}

}  // namespace

Network::Network(const std::string& file, std::string onnx, ModelSidecar sidecar) : m_sidecar(std::move(sidecar)) {
  const Eyes eyes = eyesOfRuns();
  if (!chooseLooks(m_sidecar.adapter, eyes)) {
    ::syslog(LOG_NOTICE, "%s: has no looks for %s eyes; it makes its usual ones", file.c_str(), nameOf(eyes));
  }
  for (const TensorLayout& output : m_sidecar.outputs) {
    m_result_of.push_back(m_layers.size());
    const bool isCopied = output.adapted || output.type == LAROD_TENSOR_DATA_TYPE_UINT8;
    m_bytes.emplace_back(isCopied ? output.bytes() : 0, output.zero_point);
    if (!output.layer.empty()) {
      m_layers.push_back(output.layer);
    }
  }
  m_first_head = m_layers.size();
  for (const AdapterScale& scale : m_sidecar.adapter.scales) {
    m_layers.insert(m_layers.end(), scale.heads.begin(), scale.heads.end());
  }
  start(file, std::move(onnx));
  for (size_t output = 0; output < m_sidecar.outputs.size(); ++output) {
    check(file, output);
  }
  for (size_t scale = 0; scale < m_sidecar.adapter.scales.size(); ++scale) {
    checkHeads(file, scale);
  }
}

void Network::start(const std::string& file, std::string onnx) {
  const auto& shape = m_sidecar.input.shape;
  const std::vector<std::uint8_t> black(m_sidecar.input.bytes());
  try {
    const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(onnx.data()), onnx.size());
    const NetworkTask task{bytes,    static_cast<int>(shape[1]), static_cast<int>(shape[2] * shape[3]),
                           m_layers, precisionOfRuns(),          m_sidecar.ranges};
    m_engine = chooseEngine(file, task, std::move(onnx));
    m_results = m_engine->run(black.data());
  } catch (const UnusableNetwork& exception) {
    throw ServiceError(LAROD_ERROR_LOAD_MODEL, file + ": " + exception.what());
  } catch (const std::exception&) {
    throw ServiceError(LAROD_ERROR_LOAD_MODEL, file + ": does not run on a picture of its sidecar's input shape");
  }
}

void Network::check(const std::string& file, size_t output) const {
  const TensorLayout& layout = m_sidecar.outputs[output];
  if (layout.layer.empty()) {
    return;
  }
  const Maps& result = m_results[m_result_of[output]];
  bool matches = !result.shape.empty() && result.values.size() == layout.elements();
  if (matches && layout.type == LAROD_TENSOR_DATA_TYPE_UINT8) {
    const auto size = [&result](size_t axis) { return static_cast<size_t>(result.shape[axis]); };
    matches = result.shape.size() == 4 && size(1) == layout.shape[3] && size(2) == layout.shape[1] &&
              size(3) == layout.shape[2];
  }
  if (!matches) {
    throw ServiceError(LAROD_ERROR_LOAD_MODEL,
                       file + ": output \"" + layout.layer + "\" has not the shape that its sidecar gives");
  }
  if (!areFinite(result)) {
    throw ServiceError(LAROD_ERROR_LOAD_MODEL,
                       file + ": output \"" + layout.layer + "\" is not finite on a black picture");
  }
}

void Network::checkHeads(const std::string& file, size_t scale) const {
  const size_t first = m_first_head + scale * kPoseHeads;
  const Maps& center = m_results[first];
  for (size_t head = 0; head < kPoseHeads; ++head) {
    const Maps& result = m_results[first + head];
    const bool matches = result.shape.size() == 4 && center.shape.size() == 4 &&
                         result.shape == std::vector{1, kPoseHeadChannels[head], center.shape[2], center.shape[3]};
    const std::string output = file + ": output \"" + m_layers[first + head] + "\" is not ";
    if (!matches) {
      throw ServiceError(LAROD_ERROR_LOAD_MODEL, output + "a head that the adapter reads");
    }
    if (!areFinite(result)) {
      throw ServiceError(LAROD_ERROR_LOAD_MODEL, output + "finite on a black picture");
    }
  }
  const float cell = m_sidecar.adapter.scales[scale].cell;
  const auto covers = [cell](int cells, size_t side) {
    const float pixels = cell * static_cast<float>(cells);
    return pixels >= static_cast<float>(side) && pixels < static_cast<float>(side) + kMostFrame * cell;
  };
  const auto& picture = m_sidecar.input.shape;
  if (!covers(center.shape[2], picture[1]) || !covers(center.shape[3], picture[2])) {
    throw ServiceError(LAROD_ERROR_LOAD_MODEL, file + ": heads \"" + m_layers[first] +
                                                   "\" and so on have not as many " +
                                                   "cells of the sidecar's size as cover the picture");
  }
}

PoseHeads Network::headsOf(size_t scale) const {
  const size_t first = m_first_head + scale * kPoseHeads;
  const auto maps = [&](size_t head) { return m_results[first + head].values; };
  const Maps& center = m_results[first];
  return {maps(0), maps(1), maps(2), maps(3), center.shape[2], center.shape[3]};
}

void Network::adapt() {
  if (!m_sidecar.adapter.isSet()) {
    return;
  }
  for (size_t head = m_first_head; head < m_results.size(); ++head) {
    if (!areFinite(m_results[head])) {  // else somebody would be overlooked without a word
      throw ServiceError(LAROD_ERROR_JOB, "the network failed: its output \"" + m_layers[head] + "\" is not finite");
    }
  }
  std::vector<PoseHeads> heads;
  for (size_t scale = 0; scale < m_sidecar.adapter.scales.size(); ++scale) {
    heads.push_back(headsOf(scale));
  }
  const auto people = findPeople(heads, m_sidecar.adapter);
  const auto& outputs = m_sidecar.outputs;
  if (outputs[0].type == LAROD_TENSOR_DATA_TYPE_UINT8) {
    const auto tensor = [&](size_t at) { return PoseTensor{m_bytes[at], {outputs[at].scale, outputs[at].zero_point}}; };
    const auto rows = static_cast<int>(outputs[0].shape[1]);
    const auto columns = static_cast<int>(outputs[0].shape[2]);
    writePose(people, {tensor(0), tensor(1), tensor(2), rows, columns});
    return;
  }
  const auto floats = [&](size_t at) {
    return std::span<float>(reinterpret_cast<float*>(m_bytes[at].data()), outputs[at].elements());
  };
  const auto& picture = m_sidecar.input.shape;
  writeCandidates(people, static_cast<float>(picture[1]), static_cast<float>(picture[2]),
                  {floats(0), floats(1), floats(2), floats(3)});
}

std::span<const std::uint8_t> Network::encode(size_t output) {
  const TensorLayout& layout = m_sidecar.outputs[output];
  if (layout.adapted) {
    return m_bytes[output];
  }
  if (layout.type == LAROD_TENSOR_DATA_TYPE_FLOAT32) {
    return {reinterpret_cast<const std::uint8_t*>(mapsOf(output)), layout.bytes()};
  }
  if (!layout.layer.empty()) {
    quantizeChannelsLast({mapsOf(output), layout.elements()}, layout.shape[3], {layout.scale, layout.zero_point},
                         m_bytes[output]);
  }
  return m_bytes[output];
}

void Network::run(int input_fd, std::span<const int> output_fds) {
  if (m_deleted) {
    throw ServiceError(LAROD_ERROR_MODEL_NOT_FOUND, "the model was deleted");
  }
  const MappedInput picture(input_fd, m_sidecar.input.bytes());
  try {
    m_results = m_engine->run(picture.bytes());
  } catch (const std::exception& exception) {
    throw ServiceError(LAROD_ERROR_JOB, std::string("the network failed: ") + exception.what());
  }
  adapt();
  for (size_t output = 0; output < output_fds.size(); ++output) {
    const auto bytes = encode(output);
    if (!writeAll(output_fds[output], bytes.data(), bytes.size())) {
      throw ServiceError(LAROD_ERROR_FD, "the file of tensor \"" + m_sidecar.outputs[output].name +
                                             "\" cannot be written: " + std::strerror(errno));
    }
  }
}

std::vector<std::string> Network::notFinite() const {
  std::vector<std::string> lines;
  for (size_t layer = 0; layer < m_layers.size(); ++layer) {
    const std::span<const float> values = m_results[layer].values;
    const auto bad = std::count_if(values.begin(), values.end(), [](float value) { return !std::isfinite(value); });
    if (bad == 0) continue;
    const auto nans = std::count_if(values.begin(), values.end(), [](float value) { return std::isnan(value); });
    lines.push_back("layer \"" + m_layers[layer] + "\": of " + std::to_string(values.size()) + " values " +
                    std::to_string(nans) + " are no number and " + std::to_string(bad - nans) + " infinite");
  }
  return lines;
}

}  // namespace workstation
