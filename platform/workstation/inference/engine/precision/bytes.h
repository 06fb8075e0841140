// Floats as bytes: what a tensor's bytes stand for, weights of seven bits, and which tensors stay floats.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/workstation/inference/engine/plan.h"
#include "platform/workstation/inference/engine/precision/precision.h"

namespace workstation {

/// A byte b stands for (b - zero) * scale.
struct Bytes {
  float scale = 1;
  int zero = 0;
  bool operator==(const Bytes&) const = default;
};

/// Zero is exact, since layers pad with it; after a ReLU it is the byte 0.
Bytes bytesFor(const Range& range);

/// A convolution's weights, each output's with a scale of its own.
struct ByteWeights {
  std::vector<std::int8_t> values;
  std::vector<float> scales;  ///< by output
  std::vector<int> sums;      ///< of an output's values
};

/// From -63 to 63: a processor without VNNI adds two products of a byte and a weight in 16 bits, and 2 * 255 * 127 is
/// more than those hold. The same on every processor, so that all see the same. An output's values add up to what its
/// weights do, so that roundings do not shift it where its inputs are alike.
ByteWeights byteWeights(const OnnxConstant& weights);

/// What becomes of a convolution's sum of products: sum * factors[output] + offsets[output], in bytes of the target. A
/// tensor of floats is one of bytes with the scale 1 and the zero 0.
struct ByteArithmetic {
  std::vector<float> factors;
  std::vector<float> offsets;
  float addend_factor = 1;  ///< what is added is multiplied by it first
  float zero_before = 0;    ///< what stands for zero until then
  float zero = 0;           ///< and afterwards
};
ByteArithmetic arithmeticOf(const ConvolutionStep& step, const ByteWeights& weights, const Bytes& source,
                            const Bytes& addend, const Bytes& target);

/// Whether a convolution can read such bytes: a layer pads with the byte 0, which must then stand for zero.
bool canRead(const ConvolutionStep& step, const Bytes& source);

/// What a convolution adds; empty when it adds nothing.
std::string addendOf(const ConvolutionStep& step);

/// The tensors that stay floats, as bytes are too coarse for them or of no use:
/// - the outputs, and what the layers read that make them: nothing evens out a rounding there;
/// - the shrunk picture, of whose three maps the first layer takes every grey;
/// - what a depthwise layer makes without a limit: channels whose values are a hundredfold apart have one scale;
/// - those with negative values that a padding layer reads;
/// - and those that no layer of bytes would read.
std::set<std::string> floatTensors(const Plan& plan, const std::vector<std::string>& outputs,
                                   const std::map<std::string, Range>& measured);

/// Throws Unsupported unless there is an entry for each tensor of the plan and for no other, and each can be stored.
void checkRanges(const TensorRanges& ranges, const Plan& plan);

}  // namespace workstation
