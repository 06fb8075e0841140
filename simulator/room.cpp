#include "simulator/room.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <glm/gtc/constants.hpp>

namespace simulator {
namespace {

/// Appends a quadrilateral given counter-clockwise as seen from outside.
void addQuad(Mesh& mesh, const std::array<glm::vec3, 4>& p, const glm::vec3& color, Surface surface) {
  const glm::vec3 normal = glm::normalize(glm::cross(p[1] - p[0], p[2] - p[0]));
  for (const std::size_t i : {0U, 1U, 2U, 0U, 2U, 3U}) {
    mesh.push_back({p[i], normal, color, static_cast<float>(surface)});
  }
}

/// A box of the given size standing on `base` (centre of its underside), turned by `heading` about z.
void addBox(Mesh& mesh, const glm::vec3& base, const glm::vec3& size, float heading, const glm::vec3& color,
            Surface surface = Surface::kPlain) {
  const glm::vec3 u = glm::vec3(std::cos(heading), std::sin(heading), 0) * (size.x / 2);
  const glm::vec3 v = glm::vec3(-std::sin(heading), std::cos(heading), 0) * (size.y / 2);
  const glm::vec3 w(0, 0, size.z);
  addQuad(mesh, {base - u - v + w, base + u - v + w, base + u + v + w, base - u + v + w}, color, surface);
  addQuad(mesh, {base - u - v, base + u - v, base + u - v + w, base - u - v + w}, color, surface);
  addQuad(mesh, {base + u + v, base - u + v, base - u + v + w, base + u + v + w}, color, surface);
  addQuad(mesh, {base + u - v, base + u + v, base + u + v + w, base + u - v + w}, color, surface);
  addQuad(mesh, {base - u + v, base - u - v, base - u - v + w, base - u + v + w}, color, surface);
}

/// A sphere whose two halves are drawn apart from `a` to `b`, flattened along one axis.
void addCapsule(Mesh& mesh, const Capsule& piece) {
  constexpr int kSegments = 12;
  constexpr int kRings = 3;  // per half
  const glm::vec3 along = piece.b - piece.a;
  const float length = glm::length(along);
  const glm::vec3 axis = length > 1e-4F ? along / length : glm::vec3(0, 0, 1);
  glm::vec3 side = piece.flatAxis - axis * glm::dot(piece.flatAxis, axis);
  if (glm::length(side) < 1e-3F)
    side = glm::cross(axis, std::abs(axis.x) < 0.9F ? glm::vec3(1, 0, 0) : glm::vec3(0, 1, 0));
  side = glm::normalize(side);
  const glm::vec3 other = glm::cross(axis, side);
  std::array<std::array<Vertex, kSegments + 1>, 2 * kRings + 2> grid;
  for (std::size_t row = 0; row < grid.size(); ++row) {
    const bool upper = row > kRings;
    const int ring = static_cast<int>(row) - (upper ? 1 : 0);
    const float latitude = glm::half_pi<float>() * (static_cast<float>(ring) / kRings - 1);
    const float radius = upper ? piece.radiusB : piece.radiusA;
    const glm::vec3 centre = upper ? piece.b : piece.a;
    for (std::size_t k = 0; k <= kSegments; ++k) {
      const float longitude = glm::two_pi<float>() * static_cast<float>(k) / kSegments;
      const float x = std::cos(latitude) * std::cos(longitude);
      const float y = std::cos(latitude) * std::sin(longitude);
      const float z = std::sin(latitude);
      const glm::vec3 offset = side * (x * piece.flat) + other * y + axis * z;
      const glm::vec3 normal = glm::normalize(side * (x / piece.flat) + other * y + axis * z);
      grid[row][k] = {centre + offset * radius, normal, piece.color, static_cast<float>(piece.surface)};
    }
  }
  for (std::size_t row = 0; row + 1 < grid.size(); ++row) {
    for (std::size_t k = 0; k < kSegments; ++k) {
      const auto& p = grid;
      mesh.insert(mesh.end(),
                  {p[row][k], p[row][k + 1], p[row + 1][k + 1], p[row][k], p[row + 1][k + 1], p[row + 1][k]});
    }
  }
}

void addWalls(Room& room, Random& random) {
  static constexpr std::array<glm::vec3, 5> kWalls = {
      {{0.78F, 0.76F, 0.7F}, {0.7F, 0.76F, 0.74F}, {0.8F, 0.78F, 0.78F}, {0.76F, 0.72F, 0.62F}, {0.66F, 0.7F, 0.76F}}};
  static constexpr std::array<glm::vec3, 4> kFloors = {
      {{0.5F, 0.36F, 0.22F}, {0.45F, 0.45F, 0.44F}, {0.6F, 0.5F, 0.38F}, {0.36F, 0.4F, 0.42F}}};
  const glm::vec3 wall = kWalls[random() % kWalls.size()] * uniform(random, 0.85F, 1.1F);
  const auto floor = static_cast<unsigned>(random() % kFloors.size());
  const float w = room.width;
  const float d = room.depth;
  const float h = room.height;
  addQuad(room.mesh, {glm::vec3(0, 0, 0), {w, 0, 0}, {w, d, 0}, {0, d, 0}}, kFloors[floor],
          floor % 2 == 0 ? Surface::kWood : Surface::kTiles);
  addQuad(room.mesh, {glm::vec3(0, d, 0), {w, d, 0}, {w, d, h}, {0, d, h}}, wall, Surface::kPlain);
  addQuad(room.mesh, {glm::vec3(0, 0, 0), {0, d, 0}, {0, d, h}, {0, 0, h}}, wall * 0.95F, Surface::kPlain);
  addQuad(room.mesh, {glm::vec3(w, d, 0), {w, 0, 0}, {w, 0, h}, {w, d, h}}, wall * 0.97F, Surface::kPlain);
  addQuad(room.mesh, {glm::vec3(0, d, h), {w, d, h}, {w, 0, h}, {0, 0, h}}, glm::vec3(0.85F), Surface::kPlain);
  for (const float y : {d}) addBox(room.mesh, {w / 2, y - 0.01F, 0}, {w, 0.02F, 0.1F}, 0, wall * 0.6F);
}

void addOpenings(Room& room, Random& random) {
  const float doorY = uniform(random, 0.9F, 2.0F);
  const bool right = room.bed.centre.x < room.width / 2;
  const float doorX = right ? room.width : 0.0F;
  const float inwards = right ? -1.0F : 1.0F;
  addBox(room.mesh, {doorX + inwards * 0.02F, doorY, 0}, {0.04F, 0.95F, 2.05F}, 0,
         glm::vec3(uniform(random, 0.4F, 0.75F), uniform(random, 0.35F, 0.6F), 0.38F), Surface::kWood);
  room.door = {doorX + inwards * 0.35F, doorY};
  const float windowX = uniform(random, 1.2F, room.width - 1.2F);
  const float bright = uniform(random, 0.4F, 1.0F);
  addBox(room.mesh, {windowX, room.depth - 0.03F, 1.15F}, {1.3F, 0.05F, 1.15F}, 0, glm::vec3(0.8F));
  addBox(room.mesh, {windowX - 0.31F, room.depth - 0.06F, 1.22F}, {0.56F, 0.04F, 1.0F}, 0,
         glm::vec3(0.75F, 0.85F, 0.95F) * bright, Surface::kLight);
  addBox(room.mesh, {windowX + 0.31F, room.depth - 0.06F, 1.22F}, {0.56F, 0.04F, 1.0F}, 0,
         glm::vec3(0.75F, 0.85F, 0.95F) * bright, Surface::kLight);
  for (const float side : {-0.78F, 0.78F}) {
    if (bright > 0.6F) {
      addBox(room.mesh, {windowX + side, room.depth - 0.09F, 0.9F}, {0.3F, 0.1F, 1.5F}, 0,
             glm::vec3(uniform(random, 0.4F, 0.7F), uniform(random, 0.3F, 0.6F), uniform(random, 0.3F, 0.5F)),
             Surface::kStripes);
    }
  }
}

void addBedFrame(Room& room) {
  const Bed& bed = room.bed;
  const glm::vec3 floor(bed.centre, 0);
  const float turnBy = bed.heading;
  const glm::vec3 length(std::cos(turnBy), std::sin(turnBy), 0);
  const glm::vec3 width(-std::sin(turnBy), std::cos(turnBy), 0);
  addBox(room.mesh, floor + glm::vec3(0, 0, 0.25F), {bed.length + 0.06F, bed.width + 0.04F, bed.mattress - 0.41F},
         turnBy, bed.frame, Surface::kWood);
  addBox(room.mesh, floor + glm::vec3(0, 0, bed.mattress - 0.16F), {bed.length, bed.width, 0.16F}, turnBy, bed.sheet,
         Surface::kFabric);
  addBox(room.mesh, floor + length * (bed.length / 2 + 0.04F), {0.06F, bed.width + 0.06F, bed.mattress + 0.4F}, turnBy,
         bed.frame, Surface::kWood);
  addBox(room.mesh, floor - length * (bed.length / 2 + 0.04F), {0.05F, bed.width + 0.06F, bed.mattress + 0.12F}, turnBy,
         bed.frame, Surface::kWood);
  for (const float along : {-0.9F, 0.9F}) {
    for (const float across : {-0.42F, 0.42F}) {
      addBox(room.mesh, floor + length * along + width * across, {0.07F, 0.07F, 0.3F}, turnBy, bed.frame * 0.7F);
    }
  }
}

/// Tries to stand a piece of furniture on a free place along the walls.
bool findWallPlace(const Room& room, Random& random, float radius, glm::vec2& place) {
  for (int attempt = 0; attempt < 12; ++attempt) {
    const auto wall = static_cast<unsigned>(random() % 3);
    const float margin = radius * 0.75F;
    if (wall == 0) place = {uniform(random, margin, room.width - margin), room.depth - margin};
    if (wall == 1) place = {margin, uniform(random, 1.3F, room.depth - margin)};
    if (wall == 2) place = {room.width - margin, uniform(random, 1.3F, room.depth - margin)};
    if (room.isFree(place, radius) && glm::distance(place, room.door) > radius + 0.7F) return true;
  }
  return false;
}

glm::vec3 randomColor(Random& random) {
  return glm::vec3(uniform(random, 0.25F, 0.8F), uniform(random, 0.22F, 0.65F), uniform(random, 0.18F, 0.6F));
}

void addPiece(Room& room, Random& random, unsigned kind, glm::vec2 place) {
  const glm::vec3 base(place, 0);
  const glm::vec3 tint = randomColor(random);
  if (kind == 0) {  // wardrobe
    addBox(room.mesh, base, {0.8F, 0.55F, 1.9F}, place.x < 0.6F || place.x > room.width - 0.6F ? 1.5708F : 0, tint,
           Surface::kWood);
  } else if (kind == 1) {  // bedside table
    addBox(room.mesh, base, {0.45F, 0.4F, 0.6F}, 0, tint, Surface::kWood);
    addBox(room.mesh, base + glm::vec3(0.05F, 0, 0.6F), {0.12F, 0.12F, 0.25F}, 0.4F, randomColor(random));
  } else if (kind == 2) {  // chair
    addBox(room.mesh, base + glm::vec3(0, 0, 0.3F), {0.48F, 0.48F, 0.15F}, 0, tint, Surface::kFabric);
    addBox(room.mesh, base + glm::vec3(0, 0.22F, 0.45F), {0.48F, 0.07F, 0.5F}, 0, tint, Surface::kFabric);
    for (const float x : {-0.2F, 0.2F}) {
      for (const float y : {-0.2F, 0.2F})
        addBox(room.mesh, base + glm::vec3(x, y, 0), {0.04F, 0.04F, 0.3F}, 0, tint * 0.5F);
    }
  } else if (kind == 3) {  // drip stand
    addBox(room.mesh, base, {0.4F, 0.05F, 0.05F}, 0.7F, glm::vec3(0.4F));
    addBox(room.mesh, base, {0.4F, 0.05F, 0.05F}, 2.3F, glm::vec3(0.4F));
    addBox(room.mesh, base, {0.03F, 0.03F, 1.8F}, 0, glm::vec3(0.7F));
    addBox(room.mesh, base + glm::vec3(0.08F, 0, 1.5F), {0.13F, 0.05F, 0.24F}, 0, glm::vec3(0.8F, 0.85F, 0.88F));
  } else {  // plant
    addBox(room.mesh, base, {0.3F, 0.3F, 0.35F}, 0.3F, tint);
    for (int leaf = 0; leaf < 7; ++leaf) {
      const float a = 0.9F * static_cast<float>(leaf);
      addCapsule(room.mesh,
                 {base + glm::vec3(0, 0, 0.4F),
                  base + glm::vec3(0.22F * std::cos(a), 0.22F * std::sin(a), 0.75F + 0.05F * std::cos(3 * a)),
                  0.03F,
                  0.06F,
                  {0, 0, 1},
                  0.5F,
                  glm::vec3(0.15F, 0.38F, 0.14F),
                  Surface::kPlain});
    }
  }
}

void addFurniture(Room& room, Random& random) {
  const std::size_t pieces = 2 + random() % 4;
  for (std::size_t i = 0; i < pieces; ++i) {
    const auto kind = static_cast<unsigned>(random() % 5);
    const float radius = kind == 0 ? 0.5F : 0.35F;
    glm::vec2 place;
    if (!findWallPlace(room, random, radius, place)) continue;
    room.obstacles.emplace_back(place.x, place.y, radius);
    addPiece(room, random, kind, place);
  }
  if (chance(random, 0.5F)) {  // rug
    addBox(room.mesh, {room.width * uniform(random, 0.4F, 0.65F), uniform(random, 1.6F, 2.6F), 0},
           {uniform(random, 1.0F, 1.8F), uniform(random, 0.8F, 1.3F), 0.012F}, uniform(random, -0.3F, 0.3F),
           randomColor(random), chance(random, 0.5F) ? Surface::kStripes : Surface::kFabric);
  }
  for (std::size_t i = random() % 3; i > 0; --i) {  // pictures
    addBox(room.mesh, {uniform(random, 0.5F, room.width - 0.5F), room.depth - 0.015F, uniform(random, 1.3F, 1.6F)},
           {uniform(random, 0.3F, 0.7F), 0.02F, uniform(random, 0.3F, 0.6F)}, 0, randomColor(random), Surface::kTiles);
  }
}

}  // namespace

glm::vec3 Bed::at(float along, float across) const {
  const glm::vec2 u(std::cos(heading), std::sin(heading));
  const glm::vec2 v(-std::sin(heading), std::cos(heading));
  return {centre + u * (length * (along - 0.5F)) + v * (width * (across - 0.5F)), mattress};
}

glm::mat3 Camera::axes() const {
  const glm::vec3 forward(std::cos(heading) * std::cos(pitch), std::sin(heading) * std::cos(pitch), -std::sin(pitch));
  const glm::vec3 level(std::sin(heading), -std::cos(heading), 0);
  const glm::vec3 below = glm::cross(forward, level);
  const glm::vec3 right = level * std::cos(roll) + below * std::sin(roll);
  const glm::vec3 down = below * std::cos(roll) - level * std::sin(roll);
  return glm::transpose(glm::mat3(right, down, forward));
}

glm::vec3 Camera::project(const glm::vec3& world) const {
  const glm::vec3 p = axes() * (world - position);
  const float z = std::max(p.z, 1e-3F);
  return {cx + fx * p.x / z, cy + fy * p.y / z, p.z};
}

bool Room::isFree(glm::vec2 place, float radius) const {
  if (place.x < radius || place.y < radius || place.x > width - radius || place.y > depth - radius) return false;
  const glm::vec2 u(std::cos(bed.heading), std::sin(bed.heading));
  const glm::vec2 local = place - bed.centre;
  const float along = std::abs(glm::dot(local, u));
  const float across = std::abs(glm::dot(local, glm::vec2(-u.y, u.x)));
  if (along < bed.length / 2 + radius && across < bed.width / 2 + radius) return false;
  return std::all_of(obstacles.begin(), obstacles.end(),
                     [&](const glm::vec3& piece) { return glm::distance(place, glm::vec2(piece)) > piece.z + radius; });
}

Room makeRoom(unsigned number) {
  Random random(Random::result_type{104729} * (number + 3));
  random.discard(16);
  Room room;
  room.width = uniform(random, 4.1F, 5.0F);
  room.depth = uniform(random, 3.9F, 4.5F);
  room.height = uniform(random, 2.6F, 3.6F);
  Bed& bed = room.bed;
  bed.mattress = uniform(random, 0.48F, 0.65F);
  static constexpr std::array<glm::vec3, 3> kFrames = {
      {{0.5F, 0.36F, 0.22F}, {0.75F, 0.75F, 0.74F}, {0.35F, 0.26F, 0.2F}}};
  static constexpr std::array<glm::vec3, 6> kBlankets = {{{0.3F, 0.45F, 0.62F},
                                                          {0.62F, 0.6F, 0.52F},
                                                          {0.35F, 0.5F, 0.38F},
                                                          {0.58F, 0.32F, 0.3F},
                                                          {0.8F, 0.8F, 0.82F},
                                                          {0.45F, 0.4F, 0.55F}}};
  bed.frame = kFrames[random() % kFrames.size()];
  bed.blanket = kBlankets[random() % kBlankets.size()] * uniform(random, 0.85F, 1.1F);
  bed.sheet = glm::vec3(uniform(random, 0.72F, 0.9F));
  const bool left = number % 2 == 0;
  const float gap = 0.12F + bed.width / 2;
  if (number % 3 != 2) {  // head at the far wall
    bed.heading = glm::half_pi<float>();
    bed.centre = {left ? gap : room.width - gap, room.depth - 0.12F - bed.length / 2};
    if (number % 6 == 4) bed.centre.x = room.width / 2 + uniform(random, -0.4F, 0.2F);
  } else {  // head at a side wall
    bed.heading = left ? glm::pi<float>() : 0;
    bed.centre = {left ? 0.12F + bed.length / 2 : room.width - 0.12F - bed.length / 2,
                  room.depth - uniform(random, 0.7F, 1.3F)};
  }
  addWalls(room, random);
  room.wallVertices = room.mesh.size();
  addOpenings(room, random);
  addBedFrame(room);
  addFurniture(room, random);
  return room;
}

void setOptics(Camera& camera, const Optics& optics) {
  const float focal = static_cast<float>(optics.focalLength) / 1000.0F;
  camera.fx = static_cast<float>(camera.width) * focal / optics.sensorWidth;
  camera.fy = static_cast<float>(camera.height) * focal / optics.sensorHeight;
  camera.cx = static_cast<float>(camera.width) / 2;
  camera.cy = static_cast<float>(camera.height) / 2;
}

Light makeLight(Random& random) {
  Light light;
  light.towards = glm::normalize(glm::vec3(uniform(random, -0.6F, 0.6F), uniform(random, -0.6F, 0.6F), 1));
  const float warmth = uniform(random, -0.08F, 0.12F);
  const glm::vec3 tint(1 + warmth, 1, 1 - warmth);
  const float level = uniform(random, 0.55F, 1.15F);
  light.lamp = tint * (level * uniform(random, 0.35F, 0.75F));
  light.sky = tint * (level * uniform(random, 0.35F, 0.6F));
  light.ground = glm::vec3(level * uniform(random, 0.2F, 0.35F));
  return light;
}

namespace {

/// Height of the blanket above the mattress, on a grid along and across the bed.
class BlanketField {
 public:
  static constexpr std::size_t kAlong = 36;
  static constexpr std::size_t kAcross = 20;

  BlanketField(const Bed& bed, const Figure* patient) {
    for (std::size_t i = 0; i < kAlong; ++i) {
      for (std::size_t j = 0; j < kAcross; ++j)
        m_height[i][j] = raise(bed.at(along(i), across(j)), bed.mattress, patient);
    }
    for (int pass = 0; pass < 2; ++pass) smooth();
  }

  static float along(std::size_t i) { return static_cast<float>(i) / (kAlong - 1); }
  static float across(std::size_t j) { return 1.12F * static_cast<float>(j) / (kAcross - 1) - 0.06F; }

  float at(std::size_t i, std::size_t j) const { return m_height[i][j]; }

 private:
  static float raise(const glm::vec3& place, float mattress, const Figure* patient) {
    float top = 0.02F;
    if (patient == nullptr) return top;
    for (const Capsule& piece : patient->capsules) {
      const glm::vec2 a(piece.a);
      const glm::vec2 ab = glm::vec2(piece.b) - a;
      const float squared = std::max(glm::dot(ab, ab), 1e-6F);
      const float t = std::clamp(glm::dot(glm::vec2(place) - a, ab) / squared, 0.0F, 1.0F);
      const float radius = piece.radiusA + (piece.radiusB - piece.radiusA) * t;
      const float distance = glm::distance(glm::vec2(place), a + ab * t) / (radius + 0.03F);
      if (distance >= 1) continue;
      const float z = piece.a.z + (piece.b.z - piece.a.z) * t + radius * std::sqrt(1 - distance * distance);
      top = std::max(top, z - mattress + 0.025F);
    }
    return std::min(top, 0.5F);
  }

  void smooth() {
    const auto old = m_height;
    for (std::size_t i = 1; i + 1 < kAlong; ++i) {
      for (std::size_t j = 1; j + 1 < kAcross; ++j) {
        const float around = (old[i - 1][j] + old[i + 1][j] + old[i][j - 1] + old[i][j + 1]) / 4;
        m_height[i][j] = std::max(old[i][j], around);
      }
    }
  }

  std::array<std::array<float, kAcross>, kAlong> m_height{};
};

}  // namespace

float blanketReach(float cover) { return 0.18F + 0.52F * cover; }

void addBedding(const Bed& bed, const Figure* patient, float cover, Mesh& mesh) {
  const glm::vec3 left = bed.at(0.9F, 0.22F) + glm::vec3(0, 0, 0.03F);
  const glm::vec3 right = bed.at(0.9F, 0.78F) + glm::vec3(0, 0, 0.03F);
  addCapsule(mesh, {left, right, 0.15F, 0.15F, {0, 0, 1}, 0.4F, bed.sheet * 1.05F, Surface::kPlain});
  const BlanketField field(bed, patient);
  const float upTo = blanketReach(cover);
  const auto point = [&](std::size_t i, std::size_t j) {
    glm::vec3 p = bed.at(BlanketField::along(i) * upTo + 0.01F, BlanketField::across(j));
    const auto row = static_cast<std::size_t>(BlanketField::along(i) * upTo * (BlanketField::kAlong - 1));
    const bool edge = j == 0 || j + 1 == BlanketField::kAcross;
    p.z += edge ? -0.14F : field.at(row, j);
    return p;
  };
  for (std::size_t i = 0; i + 1 < BlanketField::kAlong; ++i) {
    for (std::size_t j = 0; j + 1 < BlanketField::kAcross; ++j) {
      addQuad(mesh, {point(i, j), point(i + 1, j), point(i + 1, j + 1), point(i, j + 1)}, bed.blanket,
              Surface::kFabric);
    }
  }
}

void addFigure(const Figure& figure, Mesh& mesh) {
  for (const Capsule& piece : figure.capsules) addCapsule(mesh, piece);
}

}  // namespace simulator
