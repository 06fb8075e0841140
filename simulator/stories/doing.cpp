#include "simulator/stories/doing.h"

#include <algorithm>
#include <cmath>
#include <glm/gtc/constants.hpp>

#include "simulator/figures/postures.h"

namespace simulator {
namespace {

constexpr float kStep = 0.62F;       ///< metres of one step
constexpr float kCrawlStep = 0.35F;  ///< on hands and knees

float smooth(float t) { return t * t * (3 - 2 * t); }

/// A key of an actor, with all that its posture depends on.
struct Moment {
  const Scenario& scenario;
  const Actor& actor;
  float time = 0;

  const Bed& bed() const { return scenario.scene.room.beds[actor.bed]; }
  /// 0 or 1 as Room::freeSide says it.
  float side(const Key& key) const {
    const float free = scenario.scene.room.freeSide(bed());
    return key.farSide ? 1 - free : free;
  }
};

Pose lying(const Key& key, glm::vec2 place, float heading) {
  if (key.lying != Lying::kByRoll) return sideLyingPose(place, heading, key.lying == Lying::kOnLeftSide);
  return lyingPose(place, heading, key.roll);
}

Pose bedPose(const Key& key, const Moment& moment) {
  const Bed& bed = moment.bed();
  const float side = moment.side(key);
  const float outwards = (side == 0 ? -1.0F : 1.0F);
  Pose pose;
  if (key.posture == Posture::kInBed) {
    pose = lying(key, glm::vec2(bed.at(0.48F, 0.5F)), bed.heading);
    if (key.lying == Lying::kByRoll) pose.neckBend = 0.35F;
  } else if (key.posture == Posture::kSitUp) {
    pose = sittingPose(glm::vec2(bed.at(0.48F, 0.5F)), bed.heading + glm::pi<float>());
    for (Limb& leg : pose.legs) leg = {1.45F, 0.1F, 0, 0.15F};
  } else {
    const bool half = key.posture == Posture::kHalfOut;
    const float heading = bed.heading + outwards * glm::half_pi<float>();
    pose = half ? halfLyingPose(glm::vec2(bed.at(0.34F, side == 0 ? 0.1F : 0.9F)), heading + outwards * 0.6F)
                : sittingPose(glm::vec2(bed.at(0.2F, side == 0 ? 0.12F : 0.88F)), heading);
    pose.root.z = bed.mattress + 0.07F * moment.actor.shape.height;
    return pose;
  }
  settle(moment.actor.shape, pose, bed.mattress - 0.02F);
  return pose;
}

Pose seatedPose(const Key& key, const Moment& moment) {
  const Movable& sort = *moment.scenario.things[*key.thing].sort;
  const Placement placed = placementAt(moment.scenario, *key.thing, moment.time);
  const glm::vec2 front(std::cos(placed.heading), std::sin(placed.heading));
  Pose pose = sittingPose(placed.place + front * (sort.seatAt - sort.depth / 2), placed.heading);
  pose.root.z = sort.seatHeight + 0.07F * moment.actor.shape.height;
  return pose;
}

Pose keyPose(const Key& key, const Moment& moment) {
  Pose pose;
  switch (key.posture) {
    case Posture::kInBed:
    case Posture::kSitUp:
    case Posture::kSitEdge:
    case Posture::kHalfOut:
      return bedPose(key, moment);
    case Posture::kSit:
      return seatedPose(key, moment);
    case Posture::kLieFloor:
      pose = lying(key, key.place, key.heading);
      if (key.lying != Lying::kByRoll) break;
      pose.legs[0] = {0.35F, 0.2F, 0, 0.5F};
      pose.arms[0].abduct = 0.7F;
      break;
    case Posture::kKneel:
      pose = kneelingPose(key.place, key.heading);
      break;
    case Posture::kBend:
      pose = bendingPose(key.place, key.heading);
      break;
    case Posture::kSitFloor:
      pose = floorSittingPose(key.place, key.heading);
      break;
    case Posture::kCrawl:
      pose = crawlingPose(key.place, key.heading, 0);
      break;
    case Posture::kStand:
      pose = standingPose(key.place, key.heading);
      if (key.thing) holdHandles(pose);
      break;
  }
  settle(moment.actor.shape, pose, 0);
  return pose;
}

/// Walking or crawling from one key to the next, turning on the spot at both ends.
Pose walk(const Key& from, const Key& to, const Moment& moment) {
  const bool crawls = from.posture == Posture::kCrawl;
  const glm::vec2 way = to.place - from.place;
  const float length = glm::length(way);
  const float t = (moment.time - from.time) / (to.time - from.time);
  const glm::vec2 place = from.place + way * t;
  const float phase = glm::pi<float>() * t * std::max(1.0F, std::round(length / (crawls ? kCrawlStep : kStep)));
  const float heading = std::atan2(way.y, way.x);
  Pose pose = crawls ? crawlingPose(place, heading, phase) : walkingPose(place, heading, phase);
  if (from.thing && from.thing == to.thing) holdHandles(pose);
  const float turning = std::min(0.6F, (to.time - from.time) / 2);
  const float since = moment.time - from.time;
  const float left = to.time - moment.time;
  if (since < turning) pose = blend(keyPose(from, moment), pose, smooth(since / turning));
  if (left < turning) pose = blend(keyPose(to, moment), pose, smooth(left / turning));
  pose.root = {place, pose.root.z};
  settle(moment.actor.shape, pose, 0);
  return pose;
}

bool isOffTheFloor(Posture posture) { return isOnBed(posture) || posture == Posture::kSit; }

Pose poseBetween(const Key& from, const Key& to, const Moment& moment) {
  const bool upright = from.posture == Posture::kStand || from.posture == Posture::kCrawl;
  const bool walks = upright && from.posture == to.posture;
  if (walks && glm::distance(from.place, to.place) > 0.05F) return walk(from, to, moment);
  const float t = (moment.time - from.time) / (to.time - from.time);
  const bool falls = from.posture == Posture::kStand && isOnFloor(to.posture);
  const Pose a = keyPose(from, moment), b = keyPose(to, moment);
  Pose pose = blend(a, b, falls ? t * t : smooth(t));
  if (isOffTheFloor(from.posture) && isOnFloor(to.posture)) {  // over the edge, then down
    pose.root = {glm::mix(glm::vec2(a.root), glm::vec2(b.root), 1 - (1 - t) * (1 - t)),
                 glm::mix(a.root.z, b.root.z, t * t)};
  }
  const bool turnsOver = from.lying != to.lying && from.posture == Posture::kInBed && to.posture == Posture::kInBed;
  if (turnsOver) settle(moment.actor.shape, pose, moment.bed().mattress - 0.02F);
  if (!isOffTheFloor(from.posture) && !isOffTheFloor(to.posture)) settle(moment.actor.shape, pose, 0);
  return pose;
}

Placement aheadOf(const Pose& pose, const Movable& sort) {
  const glm::vec3 front = pose.orientation * glm::vec3(0, 1, 0);
  const glm::vec2 flat = glm::normalize(glm::vec2(front));
  return {glm::vec2(pose.root) + flat * sort.reach, std::atan2(flat.y, flat.x)};
}

/// Where the last key that put it somewhere has left it.
Placement restingAt(const Scenario& scenario, std::size_t thing, float time) {
  Placement placed = scenario.things[thing].first;
  float latest = -1;
  for (const Actor& actor : scenario.actors) {
    for (const Key& key : actor.keys) {
      const bool rolled = key.rolls && key.sitsOn(thing);
      if (key.time > time || key.time <= latest || !(rolled || key.pushes(thing))) continue;
      latest = key.time;
      placed = rolled ? Placement{key.place, key.heading}
                      : aheadOf(keyPose(key, {scenario, actor, key.time}), *scenario.things[thing].sort);
    }
  }
  return placed;
}

Placement between(const Placement& from, const Placement& to, float t) {
  const float turn = std::remainder(to.heading - from.heading, glm::two_pi<float>());
  return {glm::mix(from.place, to.place, t), from.heading + turn * t};
}

}  // namespace

Stretch stretchAt(const Actor& actor, float time) {
  const auto next = std::upper_bound(actor.keys.begin(), actor.keys.end(), time,
                                     [](float moment, const Key& key) { return moment < key.time; });
  return {&*std::prev(next), next == actor.keys.end() ? nullptr : &*next};
}

Pose poseAt(const Scenario& scenario, const Actor& actor, float time) {
  const auto [from, to] = stretchAt(actor, time);
  const Moment moment{scenario, actor, time};
  return to == nullptr ? keyPose(*from, moment) : poseBetween(*from, *to, moment);
}

Placement placementAt(const Scenario& scenario, std::size_t thing, float time) {
  for (const Actor& actor : scenario.actors) {
    if (!actor.isThere(time)) continue;
    const auto [from, to] = stretchAt(actor, time);
    if (to == nullptr) continue;
    if (from->pushes(thing) && to->pushes(thing)) {
      return aheadOf(poseAt(scenario, actor, time), *scenario.things[thing].sort);
    }
    if (from->sitsOn(thing) && to->sitsOn(thing) && to->rolls) {
      const float t = smooth((time - from->time) / (to->time - from->time));
      return between(restingAt(scenario, thing, from->time), {to->place, to->heading}, t);
    }
  }
  return restingAt(scenario, thing, time);
}

}  // namespace simulator
