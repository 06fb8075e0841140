// What the networks give for what a scenario says that they see.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "platform/scripted/inference.h"

namespace scripted {

/// A place in a picture.
struct Pixel {
  float y, x;
};

/// Nose, eyes, ears, shoulders, elbows, wrists, hips, knees, ankles; left before right.
using PersonPixels = std::array<Pixel, 17>;

/// A person who stands upright, facing the camera; top of the head at (x, top), all in pixels.
PersonPixels standingPerson(float x, float top, float height);

/// Somebody of the upright picture in the picture that was turned for a run of the given rotation; the sizes are those
/// of the turned picture.
PersonPixels turned(const PersonPixels& person, int rotation, float height, float width);

/// The outputs of a pose network that sees given people: a grid with a cell every 16 pixels, quantized as the models
/// are.
struct PoseGrid {
  PoseGrid(int grid_height, int grid_width);

  /// Puts a person in. Peaks have the given logit, the root's is 1 higher.
  void add(const PersonPixels& person, float logit, std::size_t root = 0);

  [[nodiscard]] Inference::Outputs outputs() const { return {heatmaps, short_offsets, mid_offsets}; }

  int height;  ///< cells
  int width;
  std::vector<uint8_t> heatmaps;       ///< 17 logits a cell
  std::vector<uint8_t> short_offsets;  ///< 17 y, 17 x
  std::vector<uint8_t> mid_offsets;    ///< 16 edges' y, their x; the same edges backward
};

/// The outputs of a detector that is sure of 19 chairs and finds one more thing: 0 is a person.
Inference::Outputs detectorOutputs(float kind, float score);

/// Models that are loaded from now on have a pose model's tensors, for a picture and a grid of these sizes.
void describePoseModel(std::size_t height, std::size_t width, std::size_t rows, std::size_t columns);

}  // namespace scripted
