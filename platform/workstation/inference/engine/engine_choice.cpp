#include "platform/workstation/inference/engine/engine_choice.h"

#include <syslog.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <exception>
#include <numeric>
#include <span>
#include <utility>

#include "platform/workstation/inference/engine/onednn_engine.h"
#include "platform/workstation/inference/engine/onnx/asked_part.h"
#include "platform/workstation/inference/engine/opencv_engine.h"
#include "platform/workstation/inference/engine/precision/range_meter.h"
#include "platform/workstation/inference/engine/unsupported.h"

namespace workstation {
namespace {

/// Of the largest value of an output: two orders of adding up floats differ by less than a tenth of it.
constexpr float kTolerance = 1e-3F;

/// Of the outputs' deviations. On the trial picture, which shows nobody, so that all that deviates there is faint, our
/// networks make up to 0.71 of them in bytes and 0.17 in short floats. Ranges four times as wide make 0.9 in bytes,
/// those of half the width 1.2, and numbers that say nothing of the picture 1 and more.
constexpr double kBytesError = 0.85;
constexpr double kShortFloatsError = 0.25;

/// Blocks of all brightnesses, and some noise in each; the same at every start.
std::vector<std::uint8_t> trialPicture(int height, int packed_width) {
  constexpr int kBlock = 32;  // rows, and bytes of a row
  std::vector<std::uint8_t> picture;
  picture.reserve(static_cast<size_t>(height) * static_cast<size_t>(packed_width));
  std::uint32_t noise = 1;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < packed_width; ++x) {
      noise = noise * 1664525U + 1013904223U;
      const auto block = static_cast<std::uint32_t>(y / kBlock * 7919 + x / kBlock * 104729) * 2654435761U;
      picture.push_back(static_cast<std::uint8_t>((block >> 24) / 4 * 3 + (noise >> 26)));
    }
  }
  return picture;
}

void checkShapes(const std::string& output, const Maps& ours, const Maps& theirs) {
  if (ours.shape != theirs.shape || ours.values.size() != theirs.values.size()) {
    throw Unsupported("the engines make different shapes of output \"" + output + "\"");
  }
}

[[noreturn]] void disagree(const std::string& output) {
  throw Unsupported("the engines do not agree on output \"" + output + "\"");
}

void checkOutput(const std::string& output, const Maps& ours, const Maps& theirs) {
  checkShapes(output, ours, theirs);
  float largest = 1.0F;
  for (const float value : theirs.values) {
    if (std::isfinite(value)) largest = std::max(largest, std::abs(value));
  }
  for (size_t i = 0; i < ours.values.size(); ++i) {
    const float a = ours.values[i];
    const float b = theirs.values[i];
    const bool agrees = std::isfinite(b) ? std::abs(a - b) <= kTolerance * largest : !std::isfinite(a);
    if (!agrees) disagree(output);
  }
}

/// The differences' squares as a share of those of what an output's values are from the mean of their channel: a
/// channel's mean is mostly its bias, which is right whatever becomes of the picture.
double squaredError(const Maps& ours, const Maps& theirs) {
  const size_t channels = theirs.shape.size() == 4 ? static_cast<size_t>(theirs.shape[1]) : 1;
  const size_t count = theirs.values.size() / std::max<size_t>(channels, 1);
  double differences = 0, deviation = 0;
  for (size_t channel = 0; channel < channels; ++channel) {
    const auto values = theirs.values.subspan(channel * count, count),
               made = ours.values.subspan(channel * count, count);
    const double mean = std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(count);
    for (size_t i = 0; i < count; ++i) {
      differences += std::pow(static_cast<double>(made[i]) - static_cast<double>(values[i]), 2);
      deviation += std::pow(static_cast<double>(values[i]) - mean, 2);
    }
  }
  return differences / deviation;
}

/// What OpenCV makes of the picture. The engine itself goes first: it takes more memory than what is chosen, and
/// nothing else runs meanwhile.
struct Expected {
  Expected(const NetworkTask& task, const std::uint8_t* picture) {
    giveBackOneDnnWorkspace();
    const auto opencv = makeOpenCvEngine(task);
    for (const Maps& map : opencv->run(picture)) {
      values.emplace_back(map.values.begin(), map.values.end());
      maps.push_back({values.back(), map.shape});
    }
  }
  std::deque<std::vector<float>> values;  ///< which do not move
  std::vector<Maps> maps;
};

/// Throws whatever is against it.
std::unique_ptr<Engine> oneDnnThatAgrees(const NetworkTask& task, const std::uint8_t* picture,
                                         const std::vector<Maps>& expected) {
  if (!isFastProcessor()) throw Unsupported("oneDNN needs a processor with AVX2");
  if (!multiplies(task.precision)) throw Unsupported("this processor has no instructions for it");
  auto engine = makeOneDnnEngine(task);
  const std::vector<Maps> made = engine->run(picture);
  if (task.precision == Precision::kFloats) {
    checkAgreement(task.outputs, made, expected);
  } else {
    checkLikeness(task.outputs, made, expected, task.precision);
  }
  return engine;
}

}  // namespace

void checkAgreement(const std::vector<std::string>& outputs, const std::vector<Maps>& ours,
                    const std::vector<Maps>& theirs) {
  for (size_t output = 0; output < outputs.size(); ++output) {
    checkOutput(outputs[output], ours.at(output), theirs.at(output));
  }
}

void checkLikeness(const std::vector<std::string>& outputs, const std::vector<Maps>& ours,
                   const std::vector<Maps>& theirs, Precision precision) {
  const double most = precision == Precision::kBytes ? kBytesError : kShortFloatsError;
  double squares = 0;
  for (size_t output = 0; output < outputs.size(); ++output) {
    checkShapes(outputs[output], ours.at(output), theirs.at(output));
    squares += squaredError(ours[output], theirs[output]);
  }
  const bool are_like = squares <= most * most * static_cast<double>(outputs.size());  // false for what is not finite
  if (!are_like) throw Unsupported("its outputs differ too much from those in fp32");
}

std::unique_ptr<Engine> chooseEngine(const std::string& name, const NetworkTask& whole, std::string file) {
  const AskedTask asked(whole, std::move(file));
  const NetworkTask& task = asked.task();
  if (RangeMeter* const meter = RangeMeter::current()) return meter->engineFor(task);
  const auto picture = trialPicture(task.height, task.packed_width);
  const Expected expected(task, picture.data());
  NetworkTask tried = task;
  if (task.precision != Precision::kFloats) {
    try {
      return oneDnnThatAgrees(tried, picture.data(), expected.maps);
    } catch (const std::exception& reason) {
      ::syslog(LOG_NOTICE, "%s: runs in fp32 instead of %s: %s", name.c_str(), nameOf(task.precision), reason.what());
    }
    tried.precision = Precision::kFloats;
  }
  try {
    return oneDnnThatAgrees(tried, picture.data(), expected.maps);
  } catch (const std::exception& reason) {
    ::syslog(LOG_NOTICE, "%s: runs on OpenCV, which is slower: %s", name.c_str(), reason.what());
  }
  return makeOpenCvEngine(task);
}

}  // namespace workstation
