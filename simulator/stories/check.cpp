#include "simulator/stories/check.h"

#include <algorithm>
#include <cmath>
#include <glm/gtc/constants.hpp>
#include <sstream>

#include "simulator/stories/doing.h"

namespace simulator {
namespace {

constexpr float kSlack = 0.03F;      ///< metres that a body may press into something
constexpr float kBesideBed = 0.35F;  ///< what somebody needs to sit down on the bed's edge
constexpr float kStep = 0.2F;        ///< seconds

/// What is looked at: nose, shoulders, hips, knees and ankles. Hands may reach into things.
constexpr std::array<std::size_t, 9> kParts = {0, 5, 6, 11, 12, 13, 14, 15, 16};

bool holds(const Box& box, const glm::vec3& point) {
  return glm::all(glm::greaterThan(point, box.low + kSlack)) && glm::all(glm::lessThan(point, box.high - kSlack));
}

/// The mattress and what is over and under it.
bool isOver(const Bed& bed, glm::vec2 place) {
  const glm::vec2 u(std::cos(bed.heading), std::sin(bed.heading));
  const glm::vec2 local = place - bed.centre;
  return std::abs(glm::dot(local, u)) < bed.length / 2 - kSlack &&
         std::abs(glm::dot(local, glm::vec2(-u.y, u.x))) < bed.width / 2 - kSlack;
}

std::string nameOf(std::string_view piece) { return std::string("the ").append(piece); }

std::string bedName(std::size_t bed) { return "bed " + std::to_string(bed + 1); }

/// What stands where a thing, or somebody's hips, cannot be; "" if nothing does.
std::string occupantOf(const Room& room, glm::vec2 place) {
  for (std::size_t i = 0; i < room.beds.size(); ++i) {
    if (isOver(room.beds[i], place)) return bedName(i);
  }
  for (const Piece& piece : room.furniture) {
    if (holds({{piece.low.x, piece.low.y, -1}, {piece.high.x, piece.high.y, 1}}, {place, 0})) {
      return nameOf(piece.name);
    }
  }
  return "";
}

/// What a body that is on no bed is in at a moment; "" if it is in nothing.
std::string obstacleOf(const Scenario& scenario, const Actor& actor, float time) {
  const Room& room = scenario.scene.room;
  const Pose pose = poseAt(scenario, actor, time);
  const Figure figure = makeFigure(actor.shape, pose);
  for (const std::size_t part : kParts) {
    const glm::vec3& point = figure.keypoints[part];
    if (!holds({glm::vec3(0, 0, -1), {room.width, room.depth, room.height}}, point)) return "the wall";
    for (const Piece& piece : room.furniture) {
      if (holds(piece, point)) return nameOf(piece.name);
    }
  }
  for (std::size_t i = 0; i < room.beds.size(); ++i) {
    if (isOver(room.beds[i], glm::vec2(pose.root))) return bedName(i);
  }
  const auto [from, to] = stretchAt(actor, time);
  for (std::size_t i = 0; i < scenario.things.size(); ++i) {
    if (from->thing == i || (to != nullptr && to->thing == i)) continue;
    constexpr float kHalf = 0.2F;  // of the narrowest thing
    if (glm::distance(glm::vec2(pose.root), placementAt(scenario, i, time).place) < kHalf) {
      return nameOf(scenario.things[i].sort->name) + " (furniture[" + std::to_string(i) + "])";
    }
  }
  return "";
}

std::string pathOf(std::size_t actor, std::size_t key) {
  return "people[" + std::to_string(actor) + "].keys[" + std::to_string(key) + "]";
}

/// Of the keys that are not on the bed, and the ways between them.
std::optional<Fault> faultOf(const Scenario& scenario, std::size_t number) {
  const Actor& actor = scenario.actors[number];
  for (std::size_t i = 0; i < actor.keys.size(); ++i) {
    const Key& key = actor.keys[i];
    if (isOnBed(key.posture)) continue;
    const std::string where = pathOf(number, i) + (key.posture == Posture::kSit ? ".on" : ".place");
    const std::string what = obstacleOf(scenario, actor, key.time);
    if (!what.empty()) return Fault{where, "lies in " + what};
    if (i == 0 || isOnBed(actor.keys[i - 1].posture)) continue;
    const float since = actor.keys[i - 1].time;
    for (int step = 1; static_cast<float>(step) * kStep < key.time - since; ++step) {
      const std::string between = obstacleOf(scenario, actor, since + static_cast<float>(step) * kStep);
      if (!between.empty()) return Fault{where, "the way there leads through " + between};
    }
  }
  return std::nullopt;
}

std::optional<Fault> bedFaultOf(const Scenario& scenario, std::size_t number) {
  const Actor& actor = scenario.actors[number];
  const Room& room = scenario.scene.room;
  const Bed& bed = room.beds[actor.bed];
  const float side = 1 - room.freeSide(bed);
  const glm::vec2 beside(bed.at(0.2F, side == 0 ? -kBesideBed / bed.width : 1 + kBesideBed / bed.width));
  const bool free = glm::all(glm::greaterThan(beside, glm::vec2(0))) &&
                    glm::all(glm::lessThan(beside, glm::vec2(room.width, room.depth)));
  for (std::size_t i = 0; i < actor.keys.size(); ++i) {
    if (actor.keys[i].farSide && !free) {
      return Fault{pathOf(number, i) + ".side", "the wall is too near to that side of " + bedName(actor.bed)};
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<Fault> faultOf(const Scenario& scenario) {
  const Room& room = scenario.scene.room;
  if (const float z = scenario.scene.camera.position.z; z >= room.height) {
    std::ostringstream what;
    what << "hangs above the ceiling, " << z << " m of " << room.height << " m";
    return Fault{"camera.position", what.str()};
  }
  for (std::size_t i = 0; i < scenario.things.size(); ++i) {
    const std::string what = occupantOf(room, scenario.things[i].first.place);
    if (!what.empty()) return Fault{"furniture[" + std::to_string(i) + "].place", "lies in " + what};
  }
  for (std::size_t i = 0; i < scenario.actors.size(); ++i) {
    for (std::size_t k = 0; k < i && scenario.actors[i].patient; ++k) {
      if (!scenario.actors[k].patient || scenario.actors[k].bed != scenario.actors[i].bed) continue;
      return Fault{"people[" + std::to_string(i) + "].bed", bedName(scenario.actors[i].bed) + " is people[" +
                                                                std::to_string(k) +
                                                                "]'s; say another, or \"patient\": false"};
    }
    if (std::optional<Fault> fault = bedFaultOf(scenario, i)) return fault;
    if (std::optional<Fault> fault = faultOf(scenario, i)) return fault;
  }
  return std::nullopt;
}

}  // namespace simulator
