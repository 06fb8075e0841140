// A network in short floats or bytes, run by plain loops: what an engine must make of it but for a rounding here and
// there.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/workstation/inference/engine/plan.h"
#include "platform/workstation/inference/engine/precision/bytes.h"

/// Nothing is folded: numbers are what their bytes stand for until a tensor is stored. Of the engine's own code it
/// takes the plan and the rounded weights.
class PlainLoops {
 public:
  /// `floats`: all of the task's tensors in floats, of which what is made of the picture itself is taken.
  PlainLoops(const workstation::NetworkTask& task, const std::map<std::string, std::vector<float>>& floats)
      : m_task(task), m_plan(planOf(task)) {
    using workstation::StepKind;
    for (const workstation::Step& step : m_plan.steps) {
      const bool is_first = step.kind == StepKind::kPicture || step.kind == StepKind::kShrink;
      const std::vector<float>& given = floats.at(step.target);
      if (is_first) m_tensors[step.target] = {{given.begin(), given.end()}, {}};
      if (step.kind == StepKind::kConvolution) convolve(step);
      if (step.kind == StepKind::kLimit) limit(step);
      if (step.kind == StepKind::kSum) add(step);
      if (step.kind == StepKind::kResize) resize(step);
    }
  }

  std::vector<double> values(const std::string& name) const {
    const Tensor& tensor = m_tensors.at(name);
    return meant(tensor.stored, tensor.format);
  }

 private:
  using Values = std::vector<double>;
  using Precision = workstation::Precision;

  /// How a tensor is stored; the last two are those of bytes.
  struct Format {
    Precision precision = Precision::kFloats;
    double scale = 1, zero = 0;
  };
  struct Tensor {
    Values stored;
    Format format;
  };

  Format formatOf(const std::string& name) const {
    const bool is_output = std::find(m_task.outputs.begin(), m_task.outputs.end(), name) != m_task.outputs.end();
    if (is_output || m_task.precision != Precision::kBytes) return {is_output ? Precision::kFloats : m_task.precision};
    const auto& range = m_task.ranges.at(name);
    if (!range) return {};
    const double scale = (static_cast<double>(range->high) - static_cast<double>(range->low)) / 255;
    return {Precision::kBytes, scale, std::round(-static_cast<double>(range->low) / scale)};
  }

  /// To the upper half of a float's bits.
  static double shortened(double value) {
    const auto bits = std::bit_cast<std::uint32_t>(static_cast<float>(value));
    const std::uint32_t nearest = (bits + 0x7fffU + (bits >> 16 & 1U)) & 0xffff0000U;
    return static_cast<double>(std::bit_cast<float>(nearest));
  }

  static Values rounded(Values values, const Format& format) {
    for (double& value : values) {
      if (format.precision == Precision::kShortFloats) value = shortened(value);
      if (format.precision == Precision::kBytes) {
        value = std::clamp(std::nearbyint(value / format.scale + format.zero), 0.0, 255.0);
      }
    }
    return values;
  }

  static Values meant(Values stored, const Format& format) {
    for (double& value : stored) value = (value - format.zero) * format.scale;
    return stored;
  }

  void keep(const std::string& name, Values values) {
    const Format format = formatOf(name);
    m_tensors[name] = {rounded(std::move(values), format), format};
  }

  static Values sum(Values one, const Values& other) {
    for (size_t i = 0; i < one.size(); ++i) one[i] += other[i];
    return one;
  }

  static size_t indexOf(int map, int row, int column, int height, int width) {
    const auto above = static_cast<std::ptrdiff_t>(map) * height + row;
    return static_cast<size_t>(above * width + column);
  }

  static double limited(double value, const workstation::Limits& limits) {
    return std::clamp(value, static_cast<double>(limits.low), static_cast<double>(limits.high));
  }

  void limit(const workstation::Step& step) {
    Values made = values(step.source);
    for (double& value : made) value = limited(value, step.limits);
    keep(step.target, inShortIf(step.source, made));
  }

  void add(const workstation::Step& step) {
    keep(step.target, inShortIf(step.source, sum(values(step.source), inShortIf(step.source, values(step.addend)))));
  }

  /// What is computed from a tensor of short floats alone is of short floats, also where an output is made of it.
  Values inShortIf(const std::string& source, const Values& values) const {
    const Format& format = m_tensors.at(source).format;
    return format.precision == Precision::kShortFloats ? rounded(values, format) : values;
  }

  /// A layer that pads reads bytes only where the byte 0 stands for zero.
  bool isOfBytes(const workstation::Step& step) const {
    const Format& format = m_tensors.at(step.source).format;
    const workstation::Padding& pads = step.convolution.padding;
    const bool is_padded = pads.top + pads.left + pads.bottom + pads.right > 0;
    return format.precision == Precision::kBytes && (format.zero == 0 || !is_padded);
  }

  /// Short floats are what a layer of them reads, whatever its source is.
  Format formatRead() const {
    return {m_task.precision == Precision::kShortFloats ? Precision::kShortFloats : Precision::kFloats};
  }

  Values weights(const workstation::Step& step) const {
    const workstation::OnnxConstant& floats = *step.convolution.weights;
    if (!isOfBytes(step)) return rounded({floats.floats.begin(), floats.floats.end()}, formatRead());
    const workstation::ByteWeights bytes = workstation::byteWeights(floats);
    Values made(bytes.values.begin(), bytes.values.end());
    const size_t count = made.size() / bytes.scales.size();
    for (size_t i = 0; i < made.size(); ++i) made[i] *= static_cast<double>(bytes.scales[i / count]);
    return made;
  }

  void convolve(const workstation::Step& step) {
    const workstation::ConvolutionStep& given = step.convolution;
    const workstation::Shape from = m_plan.shapes.at(step.source), to = m_plan.shapes.at(step.target);
    const Values source = rounded(values(step.source), formatRead()), all = weights(step);
    const auto inputs = static_cast<int>(given.weights->shape[1]), rows = static_cast<int>(given.weights->shape[2]),
               columns = static_cast<int>(given.weights->shape[3]);
    const auto product = [&](int output, int input, int y, int x, int row, int column) {
      const int source_y = y * given.stride_y + row * given.dilation_y - given.padding.top;
      const int source_x = x * given.stride_x + column * given.dilation_x - given.padding.left;
      if (source_y < 0 || source_y >= from.height || source_x < 0 || source_x >= from.width) return 0.0;
      const int channel = output / (to.channels / given.group) * inputs + input;
      return source[indexOf(channel, source_y, source_x, from.height, from.width)] *
             all[indexOf(output * inputs + input, row, column, rows, columns)];
    };
    Values made;
    for (int output = 0; output < to.channels; ++output) {
      for (int place = 0; place < to.height * to.width; ++place) {
        double value = given.bias == nullptr ? 0 : static_cast<double>(given.bias->floats[static_cast<size_t>(output)]);
        for (int at = 0; at < inputs * rows * columns; ++at) {
          value += product(output, at / (rows * columns), place / to.width, place % to.width, at / columns % rows,
                           at % columns);
        }
        made.push_back(value);
      }
    }
    for (const workstation::AfterStep& after : given.after) {
      if (after.limits) {
        for (double& value : made) value = limited(value, *after.limits);
      } else {
        made = sum(std::move(made), addend(after.addend, formatOf(step.target), isOfBytes(step)));
      }
    }
    keep(step.target, made);
  }

  /// What is added is turned into the target's numbers first, but not from one byte into another.
  Values addend(const std::string& name, const Format& target, bool is_of_bytes) const {
    const bool is_byte = target.precision == Precision::kBytes;
    if (is_byte && (!is_of_bytes || m_tensors.at(name).format.precision == Precision::kBytes)) return values(name);
    return meant(rounded(values(name), target), target);
  }

  /// Its numbers stay of the same kind.
  void resize(const workstation::Step& step) {
    const workstation::Shape from = m_plan.shapes.at(step.source), to = m_plan.shapes.at(step.target);
    const Tensor& source = m_tensors.at(step.source);
    const auto neighbours = [](int at, int target_size, int source_size) {
      const double place = (at + 0.5) * source_size / target_size - 0.5;
      const int first = static_cast<int>(std::floor(place));
      return std::pair{std::pair{std::max(first, 0), std::min(first + 1, source_size - 1)}, place - first};
    };
    Values made;
    for (int at = 0; at < to.channels * to.height * to.width; ++at) {
      const auto [ys, down] = neighbours(at / to.width % to.height, to.height, from.height);
      const auto [xs, right] = neighbours(at % to.width, to.width, from.width);
      const auto value = [&, channel = at / to.width / to.height](int y, int x) {
        return source.stored[indexOf(channel, y, x, from.height, from.width)];
      };
      made.push_back((1 - down) * ((1 - right) * value(ys.first, xs.first) + right * value(ys.first, xs.second)) +
                     down * ((1 - right) * value(ys.second, xs.first) + right * value(ys.second, xs.second)));
      if (source.format.precision == Precision::kBytes) made.back() = std::nearbyint(made.back());
      if (source.format.precision == Precision::kShortFloats) made.back() = shortened(made.back());
    }
    m_tensors[step.target] = {made, source.format};
  }

  const workstation::NetworkTask& m_task;
  workstation::Plan m_plan;
  std::map<std::string, Tensor> m_tensors;
};
