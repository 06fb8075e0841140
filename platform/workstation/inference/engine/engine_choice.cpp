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

void checkAgreement(const std::string& output, const Maps& ours, const Maps& theirs) {
  if (ours.shape != theirs.shape || ours.values.size() != theirs.values.size()) {
    throw Unsupported("both engines make another shape of output \"" + output + "\"");
  }
  float largest = 1.0F;
  for (const float value : theirs.values) largest = std::max(largest, std::abs(value));
  for (size_t i = 0; i < ours.values.size(); ++i) {
    const bool agrees = std::abs(ours.values[i] - theirs.values[i]) <= kTolerance * largest;  // not so for no number
    if (!agrees) throw Unsupported("both engines do not agree on output \"" + output + "\"");
  }
}

ChosenEngine oneDnnThatAgrees(const NetworkTask& task, const std::uint8_t* picture, const std::vector<Maps>& expected) {
  ChosenEngine chosen{makeOneDnnEngine(task), {}};
  chosen.trial = chosen.engine->run(picture);
  for (size_t output = 0; output < expected.size(); ++output) {
    checkAgreement(task.outputs[output], chosen.trial[output], expected[output]);
  }
  return chosen;
}

}  // namespace

ChosenEngine chooseEngine(const std::string& name, const NetworkTask& task) {
  const auto picture = trialPicture(task.height, task.packed_width);
  ChosenEngine opencv{makeOpenCvEngine(task), {}};
  opencv.trial = opencv.engine->run(picture.data());
  try {
    return oneDnnThatAgrees(task, picture.data(), opencv.trial);
  } catch (const std::exception& reason) {
    ::syslog(LOG_WARNING, "%s: runs on OpenCV, which is slower: %s", name.c_str(), reason.what());
  }
  return opencv;
}

}  // namespace workstation
