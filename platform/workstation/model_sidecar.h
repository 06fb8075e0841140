// What a network file does not say about its tensors: the JSON file beside it, named after it with ".json" added.
//
// {"input":   {"name": "picture", "shape": [1, 720, 1280, 3], "type": "uint8"},
//  "outputs": [{"name": "heatmaps", "layer": "heatmaps", "shape": [1, 46, 81, 17], "type": "uint8",
//               "scale": 0.08174263, "zero_point": 210}, ...]}
//
// Outputs stand in the tensors' order. "layer" is the network output that fills the tensor; "constant" is a byte tensor
// that always holds its zero point. A byte q stands for (q - zero_point) * scale; float tensors have neither.
#pragma once

#include <larod.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace workstation {

struct TensorLayout {
  std::string name;
  std::string layer;          ///< empty for a constant tensor and for the input
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
};

/// Checks everything that can be known without the network. `file` names the sidecar in messages. Throws
/// std::runtime_error with one line.
ModelSidecar parseModelSidecar(std::string_view text, const std::string& file);

}  // namespace workstation
