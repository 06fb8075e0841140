// What runs a network.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/workstation/inference/engine/precision/precision.h"

namespace workstation {

/// One of a network's outputs, channel first.
struct Maps {
  std::span<const float> values;
  std::vector<int> shape;  ///< batch first
};

/// What an engine is made for: the network's file in ONNX, the packed picture's sides, the outputs that are asked for,
/// each of them once or more, and the numbers that it runs in.
struct NetworkTask {
  std::span<const std::uint8_t> onnx;
  int height = 0;        ///< rows of the picture
  int packed_width = 0;  ///< bytes of a row: pixels times colours
  std::vector<std::string> outputs;
  Precision precision = Precision::kFloats;
  TensorRanges ranges = {};  ///< for bytes
};

class Engine {
 public:
  virtual ~Engine() = default;
  Engine() = default;
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  /// The outputs in their order; they stay valid until the next run. `picture` holds height * packed_width bytes.
  /// Throws std::exception.
  virtual std::vector<Maps> run(const std::uint8_t* picture) = 0;
};

}  // namespace workstation
