// Random pictures to train the networks on.
#pragma once

#include <filesystem>

#include "simulator/scene.h"

namespace simulator {

/// A random moment in one of the rooms; `heldOut` takes rooms, bodies and viewpoints that training never sees.
Scene randomScene(Random& random, bool heldOut);

enum class DatasetKind : std::uint8_t {
  kCrops,     ///< windows of 320x320 pixels, most of them around people: for the pose network
  kDetector,  ///< squares as the person validator cuts them, 300x300, some of them empty: for the detector
  kWhole,     ///< whole pictures of 1280x720: to measure with
};

/// Windows of random scenes, `count` of them.
struct DatasetRequest {
  std::filesystem::path folder;
  std::size_t count = 0;
  unsigned seed = 1;
  bool heldOut = false;
  DatasetKind kind = DatasetKind::kCrops;
};

/// Writes `images.bin` (count x height x width x 3 bytes, RGB) and `labels.bin` (count x 3 people x 17 keypoints x (x,
/// y, visibility) as 32-bit floats in the window's pixels; visibility -1 where there is no such person).
void writeDataset(const DatasetRequest& request);

}  // namespace simulator
