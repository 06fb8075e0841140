#include "platform/workstation/inference/engine/precision/bytes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>
#include <utility>

#include "platform/workstation/inference/engine/unsupported.h"

namespace workstation {
namespace {

constexpr float kMostByte = 255;
constexpr int kMostWeight = 63;
constexpr float kLeastWidth = 1e-6F, kMostWidth = 1e6F;  // of a range: what is not is none of a trained network

/// To whole numbers whose sum is that of the exact ones, rounded: those that are off most are rounded the other way.
std::vector<int> rounded(const std::vector<double>& exact) {
  std::vector<int> values;
  values.reserve(exact.size());
  double missing = 0;
  for (const double number : exact) {
    values.push_back(static_cast<int>(std::lround(number)));
    missing += number - values.back();
  }
  const int step = missing > 0 ? 1 : -1;
  const auto steps = std::min(static_cast<size_t>(std::lround(std::abs(missing))), exact.size());
  if (steps == 0) return values;
  std::vector<std::pair<double, size_t>> left;  // those that are off most come first, of equal ones the first
  left.reserve(exact.size());
  for (size_t i = 0; i < exact.size(); ++i) left.emplace_back((values[i] - exact[i]) * step, i);
  std::nth_element(left.begin(), left.begin() + static_cast<std::ptrdiff_t>(steps - 1), left.end());
  for (size_t i = 0; i < steps; ++i) {
    int& value = values[left[i].second];
    value = std::clamp(value + step, -kMostWeight, kMostWeight);
  }
  return values;
}

bool isDepthwise(const ConvolutionStep& step) { return step.group > 1 && step.group == step.weights->shape[0]; }

bool isLimited(const ConvolutionStep& step) {
  return std::any_of(step.after.begin(), step.after.end(), [](const auto& after) { return after.limits.has_value(); });
}

}  // namespace

Bytes bytesFor(const Range& range) {
  const float scale = (range.high - range.low) / kMostByte;
  return {scale, static_cast<int>(std::lround(-range.low / scale))};
}

ByteWeights byteWeights(const OnnxConstant& weights) {
  const auto outputs = static_cast<size_t>(weights.shape[0]);
  const size_t count = weights.floats.size() / outputs;
  ByteWeights made;
  made.values.reserve(weights.floats.size());
  for (size_t output = 0; output < outputs; ++output) {
    std::vector<double> exact(weights.floats.begin() + static_cast<std::ptrdiff_t>(output * count),
                              weights.floats.begin() + static_cast<std::ptrdiff_t>((output + 1) * count));
    double largest = 0;
    for (const double weight : exact) largest = std::max(largest, std::abs(weight));
    const auto scale = static_cast<float>(largest / kMostWeight);
    const bool is_zero = !std::isnormal(scale);  // as good as
    for (double& weight : exact) weight = is_zero ? 0 : weight / static_cast<double>(scale);
    const std::vector<int> values = rounded(exact);
    made.values.insert(made.values.end(), values.begin(), values.end());
    made.scales.push_back(is_zero ? 1 : scale);
    made.sums.push_back(std::accumulate(values.begin(), values.end(), 0));
  }
  return made;
}

ByteArithmetic arithmeticOf(const ConvolutionStep& step, const ByteWeights& weights, const Bytes& source,
                            const Bytes& addend, const Bytes& target) {
  ByteArithmetic made;
  made.addend_factor = addend.scale / target.scale;
  made.zero = static_cast<float>(target.zero);
  const bool adds = !addendOf(step).empty();
  made.zero_before = made.zero - (adds ? made.addend_factor * static_cast<float>(addend.zero) : 0.0F);
  for (size_t output = 0; output < weights.scales.size(); ++output) {
    const float factor = source.scale * weights.scales[output] / target.scale;
    const float bias = step.bias == nullptr ? 0.0F : step.bias->floats[output] / target.scale;
    const std::int64_t shift = std::int64_t{source.zero} * weights.sums[output];  // as if each byte were less its zero
    made.factors.push_back(factor);
    made.offsets.push_back(bias + made.zero_before - factor * static_cast<float>(shift));
  }
  return made;
}

bool canRead(const ConvolutionStep& step, const Bytes& source) {
  const Padding& pads = step.padding;
  return source.zero == 0 || (pads.top | pads.left | pads.bottom | pads.right) == 0;
}

std::string addendOf(const ConvolutionStep& step) {
  const auto found =
      std::find_if(step.after.begin(), step.after.end(), [](const auto& after) { return !after.limits; });
  return found == step.after.end() ? "" : found->addend;
}

std::set<std::string> floatTensors(const Plan& plan, const std::vector<std::string>& outputs,
                                   const std::map<std::string, Range>& measured) {
  std::set<std::string> floats(outputs.begin(), outputs.end());
  for (const Step& step : plan.steps) {
    const bool is_convolution = step.kind == StepKind::kConvolution;
    if (step.kind == StepKind::kPicture || step.kind == StepKind::kShrink) floats.insert(step.target);
    if (std::find(outputs.begin(), outputs.end(), step.target) != outputs.end()) floats.insert(step.source);
    if (is_convolution && isDepthwise(step.convolution) && !isLimited(step.convolution)) floats.insert(step.target);
    if (is_convolution && !canRead(step.convolution, {1, 1}) && measured.at(step.source).low < 0) {
      floats.insert(step.source);
    }
  }
  std::set<std::string> read;                          // by a layer of bytes
  for (size_t at = plan.steps.size(); at > 0; --at) {  // those that read a tensor come after it
    const Step& step = plan.steps[at - 1];
    if (!read.contains(step.target)) {
      floats.insert(step.target);
    }
    const bool makes_bytes = !floats.contains(step.target);
    if (step.kind == StepKind::kConvolution || (step.kind == StepKind::kResize && makes_bytes)) {
      read.insert(step.source);
    }
    if (makes_bytes) read.insert(addendOf(step.convolution));
  }
  return floats;
}

void checkRanges(const TensorRanges& ranges, const Plan& plan) {
  if (ranges.empty()) throw Unsupported("its sidecar has no ranges for bytes");
  if (ranges.size() != plan.steps.size()) {
    throw Unsupported("its sidecar has ranges of " + std::to_string(ranges.size()) + " tensors, and the network has " +
                      std::to_string(plan.steps.size()));
  }
  for (const Step& step : plan.steps) {
    const auto found = ranges.find(step.target);
    if (found == ranges.end()) throw Unsupported("its sidecar has no range of tensor \"" + step.target + "\"");
    if (!found->second) continue;
    const auto [low, high] = *found->second;
    const bool is_good = low <= 0 && high >= 0 && high - low >= kLeastWidth && high - low <= kMostWidth;
    if (!is_good) throw Unsupported("its sidecar has a range of tensor \"" + step.target + "\" that is none");
  }
}

}  // namespace workstation
