// What a network file does not say about its tensors: the JSON file beside it, named after it with ".json" added.
//
// {"sha256":  "77ae4476..." (of the network file, 64 digits),
//  "input":   {"name": "picture", "shape": [1, 720, 1280, 3], "type": "uint8"},
//  "outputs": [{"name": "heatmaps", "layer": "heatmaps", "shape": [1, 46, 81, 17], "type": "uint8",
//               "scale": 0.08174263, "zero_point": 210}, ...]}
//
// "ranges", where it is given, is {"tensor of the network": [smallest, largest] or null, ...}: what its values reach,
// so that they can be bytes (engine/precision), or that they stay floats.
//
// Outputs stand in the tensors' order. "layer" is the network output that fills the tensor; "constant" is a byte tensor
// that always holds its zero point; "adapter" is filled by the adapter that the sidecar then names (pose_adapter.h). A
// byte q stands for (q - zero_point) * scale; float tensors have neither.
#pragma once

#include <larod.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/workstation/inference/engine/precision/precision.h"
#include "platform/workstation/inference/pose_adapter.h"

namespace workstation {

struct TensorLayout {
  std::string name;
  std::string layer;          ///< empty for the input and where no output of the network fills the tensor
  bool adapted = false;       ///< the adapter fills it
  std::vector<size_t> shape;  ///< batch first; a picture or a grid is batch, height, width, channels
  larodTensorDataType type = LAROD_TENSOR_DATA_TYPE_INVALID;
  float scale = 1.0F;
  std::uint8_t zero_point = 0;

  size_t elements() const;
  size_t bytes() const;
};

struct ModelSidecar {
  TensorLayout input;
  std::vector<TensorLayout> outputs;
  AdapterSettings adapter;
  TensorRanges ranges;  ///< none: the network cannot be run in bytes
};

inline constexpr size_t kMaxModelBytes = size_t{64} << 20;

/// Reads the sidecar beside the file `model` and checks all that can be known without running the network, above all
/// that it is the one described: a damaged network runs, and finds nobody. `network` is the file's content. Throws
/// std::runtime_error with one line.
ModelSidecar readModelSidecar(const std::string& model, std::string_view network);

}  // namespace workstation
