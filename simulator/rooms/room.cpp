#include "simulator/rooms/room.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <glm/gtc/constants.hpp>
#include <sstream>

#include "simulator/rooms/furniture.h"

namespace simulator {
namespace {

constexpr float kBedFromWall = 0.12F;

Bed makeBed(Random& random) {
  Bed bed;
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
  return bed;
}

/// The bed, in a place that the room's number chooses.
void placeBed(Room& room, unsigned number, Random& random) {
  Bed bed = makeBed(random);
  const bool left = number % 2 == 0;
  const float gap = kBedFromWall + bed.width / 2;
  if (number % 3 != 2) {  // head at the far wall
    bed.heading = glm::half_pi<float>();
    bed.centre = {left ? gap : room.width - gap, room.depth - kBedFromWall - bed.length / 2};
    if (number % 6 == 4) bed.centre.x = room.width / 2 + uniform(random, -0.4F, 0.2F);
  } else {  // head at a side wall
    bed.heading = left ? glm::pi<float>() : 0;
    bed.centre = {left ? kBedFromWall + bed.length / 2 : room.width - kBedFromWall - bed.length / 2,
                  room.depth - uniform(random, 0.7F, 1.3F)};
  }
  room.beds = {bed};
}

/// Two or three beds, numbered from left to right: side by side with their heads at the far wall, or, two in every
/// other such room, with their feet towards each other.
void placeBeds(Room& room, unsigned number, Random& random) {
  const std::size_t count = number < kFirstOfThreeBeds ? 2 : 3;
  room.width = count == 2 ? uniform(random, 5.4F, 5.9F) : uniform(random, 6.8F, 7.2F);
  room.depth = uniform(random, 4.8F, 5.3F);
  room.beds.clear();
  for (std::size_t i = 0; i < count; ++i) {
    Bed bed = makeBed(random);
    if (count == 2 && number % 2 == 1) {
      const float gap = kBedFromWall + bed.length / 2;
      bed.heading = i == 0 ? glm::pi<float>() : 0;
      bed.centre = {i == 0 ? gap : room.width - gap, room.depth - 1.1F};
    } else {
      bed.heading = glm::half_pi<float>();
      bed.centre = {room.width * (static_cast<float>(i) + 0.5F) / static_cast<float>(count),
                    room.depth - kBedFromWall - bed.length / 2};
    }
    room.beds.push_back(bed);
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
  addBox(room.mesh, {w / 2, d - 0.01F, 0}, {w, 0.02F, 0.1F}, 0, wall * 0.6F);
}

void addDoor(Room& room, Random& random) {
  const float y = uniform(random, 0.9F, 2.0F);
  const bool right = room.beds[0].centre.x < room.width / 2;
  const float x = right ? room.width : 0.0F;
  const float inwards = right ? -1.0F : 1.0F;
  addBox(room.mesh, {x + inwards * 0.02F, y, 0}, {0.04F, 0.95F, 2.05F}, 0,
         {uniform(random, 0.4F, 0.75F), uniform(random, 0.35F, 0.6F), 0.38F}, Surface::kWood);
  room.door = {x + inwards * 0.35F, y};
}

void addWindow(Room& room, Random& random) {
  const float x = uniform(random, 1.2F, room.width - 1.2F);
  const float bright = uniform(random, 0.4F, 1.0F);
  addBox(room.mesh, {x, room.depth - 0.03F, 1.15F}, {1.3F, 0.05F, 1.15F}, 0, glm::vec3(0.8F));
  for (const float pane : {-0.31F, 0.31F}) {
    addBox(room.mesh, {x + pane, room.depth - 0.06F, 1.22F}, {0.56F, 0.04F, 1.0F}, 0,
           glm::vec3(0.75F, 0.85F, 0.95F) * bright, Surface::kLight);
  }
  if (bright <= 0.6F) return;
  for (const float side : {-0.78F, 0.78F}) {  // curtains, above any headboard
    addBox(room.mesh, {x + side, room.depth - 0.09F, 1.08F}, {0.3F, 0.1F, 1.32F}, 0,
           {uniform(random, 0.4F, 0.7F), uniform(random, 0.3F, 0.6F), uniform(random, 0.3F, 0.5F)}, Surface::kStripes);
  }
}

void addBedFrame(Room& room, const Bed& bed) {
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

/// Where people come in.
Box doorway(const Room& room) {
  const bool right = room.door.x > room.width / 2;
  return {{right ? room.width - 1 : 0, room.door.y - 0.5F, 0}, {right ? room.width : 1, room.door.y + 0.5F, 2.05F}};
}

/// Where people get up from the bed.
Box wayOut(const Room& room, const Bed& bed) {
  const float reach = 0.9F / bed.width;
  const float side = room.freeSide(bed);
  const glm::vec3 foot = bed.at(-0.05F, side);
  const glm::vec3 middle = bed.at(0.45F, side == 0 ? -reach : 1 + reach);
  Box box{glm::min(foot, middle), glm::max(foot, middle)};
  box.low.z = 0;
  box.high.z = 2;
  return box;
}

/// What the camera looks across to see the bed: low things may stand there.
Box viewOfBed(const Box& bed) { return {{bed.low.x, 0, 1.2F}, {bed.high.x, bed.low.y, 3}}; }

/// Puts furniture where it belongs and where nothing else is.
class Furnishing {
 public:
  Furnishing(Room& room, Random& random) : m_room(room), m_random(random) {}

  /// Nothing is put into that box.
  void keepFree(const Box& box) { m_taken.push_back(box); }

  /// What is flat: it hangs on the walls and lies on the floor.
  void decorate() {
    for (std::size_t i = m_random() % 3; i > 0; --i) {
      const float height = uniform(m_random, 1.45F, 1.75F);
      alongWalls({pictureOnWall(m_random), "picture"}, height);
    }
    if (!chance(m_random, 0.5F)) return;
    const glm::vec3 place{m_room.width * uniform(m_random, 0.4F, 0.65F), uniform(m_random, 1.6F, 2.6F), 0};
    const float heading = uniform(m_random, -0.3F, 0.3F);
    draw(moved(rug(m_random), place, heading));
  }

  void furnishBed(const Bed& bed) {
    besideBed(bed, {bedsideTable(m_random), "bedside table"}, 1, kFromWall - kBedFromWall);
    if (chance(m_random, 0.4F)) besideBed(bed, {dripStand(), "drip stand"}, 0.72F, 0);
  }

  void furnishWalls() {
    if (chance(m_random, 0.8F)) alongWalls({wardrobe(m_random), "wardrobe"}, 0);
    alongWalls({chair(m_random), "chair"}, 0);
    if (chance(m_random, 0.3F)) alongWalls({chair(m_random), "chair"}, 0);
    if (chance(m_random, 0.5F)) alongWalls({plant(m_random), "plant"}, 0);
  }

 private:
  struct Made {
    Mesh mesh;
    std::string_view name;
  };

  static constexpr float kFromWall = 0.03F;   ///< before the skirting board
  static constexpr float kFromCamera = 1.5F;  ///< nothing stands nearer to the camera's wall
  static constexpr float kBefore = 0.4F;      ///< stays free in front of what stands along a wall
  static constexpr float kApart = 0.1F;       ///< and more than a blanket hangs over

  void draw(const Mesh& mesh) { m_room.mesh.insert(m_room.mesh.end(), mesh.begin(), mesh.end()); }

  bool fits(const Box& box) const {
    const Box wider{box.low - kApart, box.high + kApart};
    return box.low.x >= 0 && box.low.y >= kFromCamera && box.high.x <= m_room.width && box.high.y <= m_room.depth &&
           std::none_of(m_taken.begin(), m_taken.end(), [&](const Box& other) { return wider.meets(other); });
  }

  bool put(const Made& piece, const glm::vec3& place, float heading) {
    const Mesh mesh = moved(piece.mesh, place, heading);
    const Box box = boundsOf(mesh);
    if (!fits(box)) return false;
    draw(mesh);
    m_taken.push_back(box);
    if (place.z <= 0) m_room.furniture.push_back({box, piece.name});
    return true;
  }

  /// With its back towards the head end, `along` the bed from foot (0) to head (1), and `before` that; on the side that
  /// people leave the bed by if it fits there.
  void besideBed(const Bed& bed, const Made& piece, float along, float before) {
    const glm::vec3 towardsHead(std::cos(bed.heading), std::sin(bed.heading), 0);
    const float away = (boundsOf(piece.mesh).high.x + kApart + 0.05F) / bed.width;
    const float side = m_room.freeSide(bed);
    for (const float across : {side == 0 ? -away : 1 + away, side == 0 ? 1 + away : -away}) {
      const glm::vec3 place = bed.at(along, across) - towardsHead * before;
      if (put(piece, {place.x, place.y, 0}, bed.heading + glm::half_pi<float>())) return;
    }
  }

  /// With its back to one of the three walls that the camera sees; not at all if there is no room.
  void alongWalls(const Made& piece, float height) {
    constexpr int kAttempts = 60;
    const float gap = height > 0 ? 0.005F : kFromWall;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
      const auto wall = m_random() % 3;
      const float x = uniform(m_random, 0, m_room.width);
      const float y = uniform(m_random, kFromCamera, m_room.depth);
      const glm::vec3 place = wall == 0   ? glm::vec3(x, m_room.depth - gap, height)
                              : wall == 1 ? glm::vec3(gap, y, height)
                                          : glm::vec3(m_room.width - gap, y, height);
      const float heading = wall == 0 ? glm::pi<float>() : glm::half_pi<float>() * (wall == 1 ? -1.0F : 1.0F);
      const glm::vec3 forwards(-std::sin(heading), std::cos(heading), 0);
      const Box before = boundsOf(moved(piece.mesh, place + forwards * kBefore, heading));
      if (!fits(before) || !put(piece, place, heading)) continue;
      keepFree(before);
      return;
    }
  }

  Room& m_room;
  Random& m_random;
  std::vector<Box> m_taken;
};

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
  const float c = std::cos(roll), s = std::sin(roll);
  return glm::transpose(glm::mat3(level * c + below * s, below * c - level * s, forward));
}

glm::vec3 Camera::project(const glm::vec3& world) const {
  const glm::vec3 p = axes() * (world - position);
  const float z = std::max(p.z, 1e-3F);
  return {cx + fx * p.x / z, cy + fy * p.y / z, p.z};
}

bool Camera::sees(const glm::vec3& world) const {
  const glm::vec3 seen = project(world);
  return seen.z > 0.1F && seen.x >= 0 && seen.y >= 0 && seen.x < static_cast<float>(width) &&
         seen.y < static_cast<float>(height);
}

float Room::freeSide(const Bed& bed) const {
  const glm::vec2 middle(width / 2, depth / 2);
  return glm::distance(glm::vec2(bed.at(0.5F, 0)), middle) < glm::distance(glm::vec2(bed.at(0.5F, 1)), middle) ? 0.0F
                                                                                                               : 1.0F;
}

Room makeRoom(unsigned number) {
  Random random(Random::result_type{104729} * (number + 3));
  random.discard(16);
  Room room;
  room.width = uniform(random, 4.1F, 5.0F);
  room.depth = uniform(random, 3.9F, 4.5F);
  room.height = uniform(random, 2.6F, 3.6F);
  if (number < kFirstOfTwoBeds) {
    placeBed(room, number, random);
  } else {
    placeBeds(room, number, random);
  }
  Furnishing furnishing(room, random);
  addWalls(room, random);
  addDoor(room, random);
  furnishing.keepFree(doorway(room));
  const std::size_t window = room.mesh.size();
  addWindow(room, random);
  furnishing.keepFree(boundsOf(room.mesh, window));
  furnishing.decorate();
  room.flatVertices = room.mesh.size();
  std::vector<Box> frames;
  for (const Bed& bed : room.beds) {
    const std::size_t first = room.mesh.size();
    addBedFrame(room, bed);
    frames.push_back(boundsOf(room.mesh, first));
    furnishing.keepFree(frames.back());
  }
  for (const Bed& bed : room.beds) furnishing.keepFree(wayOut(room, bed));
  for (const Bed& bed : room.beds) furnishing.furnishBed(bed);
  for (const Box& frame : frames) furnishing.keepFree(viewOfBed(frame));
  furnishing.furnishWalls();
  return room;
}

std::string describe(const Room& room) {
  std::ostringstream text;
  text.precision(3);
  text << "room: " << room.width << " x " << room.depth << ", " << room.height << " high\n";
  text << "door: " << room.door.x << ", " << room.door.y << '\n';
  for (std::size_t i = 0; i < room.beds.size(); ++i) {
    const Bed& bed = room.beds[i];
    const glm::vec3 a = bed.at(0, 0), b = bed.at(1, 1), out = bed.at(0.2F, room.freeSide(bed));
    text << "bed " << i + 1 << ": x " << std::min(a.x, b.x) << " to " << std::max(a.x, b.x) << ", y "
         << std::min(a.y, b.y) << " to " << std::max(a.y, b.y) << "; head towards "
         << std::lround(glm::degrees(bed.heading)) << " degrees; people get up at " << out.x << ", " << out.y
         << "; mattress at " << bed.mattress << '\n';
  }
  for (const Piece& piece : room.furniture) {
    text << piece.name << ": x " << piece.low.x << " to " << piece.high.x << ", y " << piece.low.y << " to "
         << piece.high.y << ", " << piece.high.z << " high\n";
  }
  return text.str();
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

}  // namespace simulator
