// The part of ONNX files that the fast engine needs: nodes with their attributes, and constants. The format is that of
// protocol buffers (onnx.proto, version 3 of the file format and later).
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace workstation {

struct OnnxAttribute {
  std::int64_t integer = 0;
  float number = 0;
  std::string text;
  std::vector<std::int64_t> integers;
};

struct OnnxNode {
  std::string kind;
  std::vector<std::string> inputs;  ///< an empty name: left out
  std::vector<std::string> outputs;
  std::map<std::string, OnnxAttribute> attributes;
};

/// Floats or integers, row by row.
struct OnnxConstant {
  std::vector<std::int64_t> shape;
  std::vector<float> floats;
  std::vector<std::int64_t> integers;
};

struct OnnxGraph {
  std::vector<OnnxNode> nodes;  ///< each after those that it needs
  std::map<std::string, OnnxConstant> constants;
  std::vector<std::string> inputs;  ///< without the constants
};

/// Throws Unsupported when the file is none, or holds what is not read here: other operators than ONNX's own, constants
/// of other types or outside of the file, or with values that are not finite.
OnnxGraph readOnnx(std::span<const std::uint8_t> file);

}  // namespace workstation
