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
  std::size_t bed = 0;  ///< whose patient it is
  bool inBed = false;
  bool underBlanket = false;  ///< the bed's blanket lies on whatever of the body it reaches
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
  Mesh things;                                            ///< what stands in the room and may be moved
  std::array<float, kMostBeds> covers{0.7F, 0.7F, 0.7F};  ///< how far each bed's blanket is pulled up, 0 to 1.5
  bool ampleBlankets = false;                             ///< hands and feet do not stick through them
  float noise = 0;                                        ///< standard deviation in grey levels

  /// Draws the camera's picture and returns each person's keypoints, in the order of `people`.
  std::vector<TrueKeypoints> draw(Renderer& renderer) const;

 private:
  TrueKeypoint look(const Renderer& renderer, const Person& person, const glm::vec3& place, float depth) const;
};

}  // namespace simulator
