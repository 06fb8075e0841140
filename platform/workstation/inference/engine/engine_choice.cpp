#include "platform/workstation/inference/engine/engine_choice.h"

#include <syslog.h>

#include <algorithm>
#include <cmath>
#include <exception>

#include "platform/workstation/inference/engine/onednn_engine.h"
#include "platform/workstation/inference/engine/opencv_engine.h"
#include "platform/workstation/inference/engine/unsupported.h"

namespace workstation {
namespace {

/// Of the largest value of an output: two orders of adding up floats differ by less than a tenth of it.
constexpr float kTolerance = 1e-3F;

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

void checkOutput(const std::string& output, const Maps& ours, const Maps& theirs) {
  if (ours.shape != theirs.shape || ours.values.size() != theirs.values.size()) {
    throw Unsupported("the engines make different shapes of output \"" + output + "\"");
  }
  float largest = 1.0F;
  for (const float value : theirs.values) {
    if (std::isfinite(value)) largest = std::max(largest, std::abs(value));
  }
  for (size_t i = 0; i < ours.values.size(); ++i) {
    const float a = ours.values[i];
    const float b = theirs.values[i];
    const bool agrees = std::isfinite(b) ? std::abs(a - b) <= kTolerance * largest : !std::isfinite(a);
    if (!agrees) throw Unsupported("the engines do not agree on output \"" + output + "\"");
  }
}

/// Throws whatever is against it.
std::unique_ptr<Engine> oneDnnThatAgrees(const NetworkTask& task, const std::uint8_t* picture,
                                         const std::vector<Maps>& expected) {
  if (!isFastProcessor()) throw Unsupported("oneDNN needs a processor with AVX2");
  auto engine = makeOneDnnEngine(task);
  checkAgreement(task.outputs, engine->run(picture), expected);
  return engine;
}

}  // namespace

void checkAgreement(const std::vector<std::string>& outputs, const std::vector<Maps>& ours,
                    const std::vector<Maps>& theirs) {
  for (size_t output = 0; output < outputs.size(); ++output) {
    checkOutput(outputs[output], ours.at(output), theirs.at(output));
  }
}

std::unique_ptr<Engine> chooseEngine(const std::string& name, const NetworkTask& task) {
  const auto picture = trialPicture(task.height, task.packed_width);
  auto opencv = makeOpenCvEngine(task);
  const std::vector<Maps> expected = opencv->run(picture.data());
  try {
    return oneDnnThatAgrees(task, picture.data(), expected);
  } catch (const std::exception& reason) {
    ::syslog(LOG_NOTICE, "%s: runs on OpenCV, which is slower: %s", name.c_str(), reason.what());
  }
  return opencv;
}

}  // namespace workstation
