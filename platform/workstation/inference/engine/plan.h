// What is to be done for a network, step by step: convolutions with what follows them on their way out of the
// registers, and no copies for frames of zeros.
#pragma once

#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/workstation/inference/engine/engine.h"
#include "platform/workstation/inference/engine/onnx/onnx_reader.h"

namespace workstation {

struct Shape {
  int channels = 0;
  int height = 0;
  int width = 0;
  bool operator==(const Shape&) const = default;
};

/// What values are limited to. ReLU has no upper limit.
struct Limits {
  float low = 0;
  float high = std::numeric_limits<float>::infinity();
};

/// What is done with a convolution's result before it is written: limits, or adding another tensor.
struct AfterStep {
  std::optional<Limits> limits;
  std::string addend;  ///< when there are no limits
};

struct Padding {
  int top = 0;
  int left = 0;
  int bottom = 0;
  int right = 0;
};

struct ConvolutionStep {
  const OnnxConstant* weights = nullptr;  ///< [outputs, inputs of a group, height, width]
  const OnnxConstant* bias = nullptr;     ///< none: zeros
  int group = 1;
  int stride_y = 1, stride_x = 1;
  int dilation_y = 1, dilation_x = 1;  ///< 1: neighbours
  Padding padding;
  std::vector<AfterStep> after;
};

enum class StepKind {
  kPicture,  ///< the picture's bytes as floats, [1, height, packed width]
  kShrink,   ///< a convolution of the picture's bytes whose patches neither overlap nor leave anything out
  kConvolution,
  kLimit,
  kSum,
  kResize,  ///< bilinear; the centres of pixels keep their places
};

struct Step {
  StepKind kind = StepKind::kConvolution;
  std::string source;  ///< none for the picture
  std::string addend;  ///< of a sum
  std::string target;
  ConvolutionStep convolution;  ///< of a convolution or a shrink, whose padding (below and at the right) is its frame
  Limits limits;                ///< of a limit
};

struct Plan {
  OnnxGraph graph;  ///< the steps point into it
  std::vector<Step> steps;
  std::map<std::string, Shape> shapes;  ///< of what the steps read and write
};

/// Throws Unsupported, naming the layer, when there is anything in the network that the steps cannot do.
Plan planOf(const NetworkTask& task);

}  // namespace workstation
