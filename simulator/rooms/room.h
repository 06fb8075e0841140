// A patient's room: furniture, light and the camera on its wall. Metres; x to the right along the camera's wall, y away
// from it, z up; the floor is z = 0.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "simulator/figures/mesh.h"

namespace simulator {

struct Bed {
  glm::vec2 centre{0};
  float heading = 0;  ///< direction of the head end, radians counter-clockwise from x
  float length = 2.05F;
  float width = 0.95F;
  float mattress = 0.55F;  ///< height of its upper side
  glm::vec3 frame{0.5F, 0.35F, 0.2F};
  glm::vec3 sheet{0.85F};
  glm::vec3 blanket{0.3F, 0.45F, 0.6F};

  /// A point of the mattress: `along` from the foot (0) to the head (1), `across` from the right (0) to the left (1).
  glm::vec3 at(float along, float across) const;
};

/// Pinhole camera without distortion. Focal lengths and centre in pixels of a width x height picture.
struct Camera {
  glm::vec3 position{0};
  float heading = 0;  ///< viewing direction in plan, radians counter-clockwise from x
  float pitch = 0;    ///< downwards, radians
  float roll = 0;     ///< of the camera, clockwise as it looks, radians
  float fx = 1, fy = 1, cx = 640, cy = 360;
  int width = 1280, height = 720;

  /// Rows: the camera's right, down and forward axes in the world.
  glm::mat3 axes() const;
  /// Pixel (x, y) and depth (z, metres along the viewing axis).
  glm::vec3 project(const glm::vec3& world) const;
  /// Whether that is before the camera and within the picture.
  bool sees(const glm::vec3& world) const;

  friend bool operator==(const Camera&, const Camera&) = default;
};

struct Light {
  glm::vec3 towards{0.2F, -0.3F, 1};  ///< direction to the lamp
  glm::vec3 lamp{0.6F};
  glm::vec3 sky{0.5F};     ///< from above
  glm::vec3 ground{0.3F};  ///< from below
  glm::vec3 torch{0};      ///< a small lamp without shadows, as strong as this a metre away
  glm::vec3 torchPlace{0};
  float panes = 1;        ///< how bright the window is; torch and infrared are for less than by day, 1
  bool infrared = false;  ///< no colours; cloth is pale

  friend bool operator==(const Light&, const Light&) = default;
};

/// A piece of furniture that stands on the floor.
struct Piece : Box {
  std::string_view name;
};

struct Room {
  float width = 4.6F;
  float depth = 4.3F;
  float height = 2.7F;
  std::vector<Bed> beds{1};      ///< at least one
  glm::vec2 door{4.6F, 2.0F};    ///< where people come in
  Mesh mesh;                     ///< walls, floor and furniture, without the bedding
  std::size_t flatVertices = 0;  ///< the mesh's first vertices: walls and what is flat on them, without shadows
  std::vector<Piece> furniture;  ///< without the beds

  /// Side that people leave that bed by: the one nearer to the room's middle. 0 is the bed's right, 1 its left.
  float freeSide(const Bed& bed) const;
};

/// For who writes a script: sizes, and where beds, door and furniture are, a line each.
std::string describe(const Room& room);

/// One of the fixed rooms: with one bed, then with two, then with three.
Room makeRoom(unsigned number);
inline constexpr unsigned kFirstOfTwoBeds = 28;
inline constexpr unsigned kFirstOfThreeBeds = 34;
inline constexpr unsigned kAllRooms = 40;
inline constexpr unsigned kMostBeds = 3;

/// Sensor width and height in millimetres, focal length in micrometres.
struct Optics {
  float sensorWidth = 6.34F;
  float sensorHeight = 3.53F;
  unsigned focalLength = 3700;
};

void setOptics(Camera& camera, const Optics& optics);

Light makeLight(Random& random);

}  // namespace simulator
