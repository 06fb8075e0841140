// A room with people in it at one moment, and what is true about them.
#pragma once

#include <array>
#include <vector>

#include "simulator/drawing/renderer.h"

namespace simulator {

struct Person {
  int id = 0;
  BodyShape shape;
  Pose pose;
  bool inBed = false;
  bool standing = false;
  bool lyingOnFloor = false;
};

/// Whether a keypoint shows: outside the picture, hidden behind something, visible.
enum class Visibility : std::uint8_t { kOutside = 0, kHidden = 1, kVisible = 2 };

struct TrueKeypoint {
  float x = 0, y = 0;  ///< pixels of the camera's picture
  Visibility visibility = Visibility::kOutside;
};

using TrueKeypoints = std::array<TrueKeypoint, kKeypoints>;

struct Scene {
  Room room;
  Camera camera;
  Light light;
  std::vector<Person> people;
  float cover = 0.7F;  ///< how far the blanket is pulled up, 0 to 1

  /// Draws the camera's picture and returns each person's keypoints, in the order of `people`.
  std::vector<TrueKeypoints> draw(Renderer& renderer) const;
};

}  // namespace simulator
