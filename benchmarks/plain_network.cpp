#include "benchmarks/plain_network.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <string>

#include "platform/workstation/inference/engine/plan.h"

namespace {

using workstation::ConvolutionStep;
using workstation::Limits;
using workstation::Plan;
using workstation::Shape;
using workstation::Step;
using workstation::StepKind;

struct Grid {
  Shape shape;
  std::vector<float> values;

  explicit Grid(const Shape& size) : shape(size), values(count(size)) {}
  static std::size_t count(const Shape& size) {
    return static_cast<std::size_t>(size.channels) * static_cast<std::size_t>(size.height) *
           static_cast<std::size_t>(size.width);
  }
  float& at(int channel, int y, int x) {
    const int place = (channel * shape.height + y) * shape.width + x;
    return values[static_cast<std::size_t>(place)];
  }
  [[nodiscard]] bool holds(int y, int x) const { return y >= 0 && x >= 0 && y < shape.height && x < shape.width; }
};

/// What the weights of an output make of the source around a place.
double weighed(const ConvolutionStep& step, Grid& source, int output, int top, int left) {
  const auto& sizes = step.weights->shape;
  const auto inputs = static_cast<int>(sizes[1]);
  const int first = output / static_cast<int>(sizes[0] / step.group) * inputs;
  const float* weight = step.weights->floats.data() + output * sizes[1] * sizes[2] * sizes[3];
  double sum = 0;
  for (int input = 0; input < inputs; ++input) {
    for (int row = 0; row < sizes[2]; ++row) {
      for (int column = 0; column < sizes[3]; ++column, ++weight) {
        const int y = top + row * step.dilation_y;
        const int x = left + column * step.dilation_x;
        if (source.holds(y, x)) sum += static_cast<double>(*weight * source.at(first + input, y, x));
      }
    }
  }
  return sum;
}

void convolve(const ConvolutionStep& step, Grid& source, Grid& target) {
  for (int output = 0; output < target.shape.channels; ++output) {
    const float bias = step.bias == nullptr ? 0.0F : step.bias->floats[static_cast<std::size_t>(output)];
    for (int y = 0; y < target.shape.height; ++y) {
      for (int x = 0; x < target.shape.width; ++x) {
        const int top = y * step.stride_y - step.padding.top;
        const int left = x * step.stride_x - step.padding.left;
        target.at(output, y, x) = bias + static_cast<float>(weighed(step, source, output, top, left));
      }
    }
  }
}

void limit(const Limits& limits, Grid& grid) {
  for (float& value : grid.values) value = std::clamp(value, limits.low, limits.high);
}

void add(const Grid& addend, Grid& grid) {
  for (std::size_t i = 0; i < grid.values.size(); ++i) grid.values[i] += addend.values[i];
}

void resize(Grid& source, Grid& target) {
  const auto place = [](int at, int from, int to) {
    const double exact = (at + 0.5) * from / to - 0.5;
    return std::clamp(exact, 0.0, static_cast<double>(from - 1));
  };
  for (int channel = 0; channel < target.shape.channels; ++channel) {
    for (int row = 0; row < target.shape.height; ++row) {
      for (int column = 0; column < target.shape.width; ++column) {
        const double y = place(row, source.shape.height, target.shape.height);
        const double x = place(column, source.shape.width, target.shape.width);
        const int top = static_cast<int>(y), left = static_cast<int>(x);
        const int bottom = std::min(top + 1, source.shape.height - 1),
                  right = std::min(left + 1, source.shape.width - 1);
        const auto across = [&](int line) {
          return std::lerp(static_cast<double>(source.at(channel, line, left)),
                           static_cast<double>(source.at(channel, line, right)), x - left);
        };
        target.at(channel, row, column) = static_cast<float>(std::lerp(across(top), across(bottom), y - top));
      }
    }
  }
}

/// The shrunk picture lies within a frame of zeros.
void shrink(const Step& step, Grid& picture, Grid& target) {
  ConvolutionStep bare = step.convolution;
  bare.padding = {};
  const Shape& outer = target.shape;
  Grid inner({outer.channels, picture.shape.height / bare.stride_y, picture.shape.width / bare.stride_x});
  convolve(bare, picture, inner);
  for (int channel = 0; channel < outer.channels; ++channel) {
    for (int y = 0; y < inner.shape.height; ++y) {
      for (int x = 0; x < inner.shape.width; ++x) target.at(channel, y, x) = inner.at(channel, y, x);
    }
  }
}

void run(const Step& step, const std::map<std::string, Grid>& made, Grid& picture, Grid& target) {
  const auto grid = [&](const std::string& name) { return made.at(name); };
  if (step.kind == StepKind::kPicture) target = picture;
  if (step.kind == StepKind::kShrink) shrink(step, picture, target);
  if (step.kind == StepKind::kLimit || step.kind == StepKind::kSum) target = grid(step.source);
  if (step.kind == StepKind::kLimit) limit(step.limits, target);
  if (step.kind == StepKind::kSum) add(made.at(step.addend), target);
  Grid source = step.source.empty() ? Grid({}) : grid(step.source);
  if (step.kind == StepKind::kResize) resize(source, target);
  if (step.kind != StepKind::kConvolution) return;
  convolve(step.convolution, source, target);
  for (const auto& after : step.convolution.after) {
    if (after.limits) {
      limit(*after.limits, target);
    } else {
      add(made.at(after.addend), target);
    }
  }
}

}  // namespace

std::vector<std::vector<float>> runPlainly(const workstation::NetworkTask& task, const std::uint8_t* picture) {
  const Plan plan = planOf(task);
  Grid bytes({1, task.height, task.packed_width});
  std::copy_n(picture, bytes.values.size(), bytes.values.begin());
  std::map<std::string, Grid> made;
  for (const Step& step : plan.steps) {
    Grid target(plan.shapes.at(step.target));
    run(step, made, bytes, target);
    made.emplace(step.target, std::move(target));
  }
  std::vector<std::vector<float>> outputs;
  for (const std::string& output : task.outputs) outputs.push_back(made.at(output).values);
  return outputs;
}
