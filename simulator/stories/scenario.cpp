#include "simulator/stories/scenario.h"

#include <algorithm>
#include <cmath>
#include <glm/gtc/constants.hpp>

namespace simulator {
namespace {

constexpr float kStep = 0.62F;  // metres of one step

Pose keyPose(const Key& key, const Actor& actor, const Room& room) {
  const Bed& bed = room.beds[0];
  const float side = room.freeSide(room.beds[0]);
  Pose pose;
  switch (key.posture) {
    case Posture::kInBed:
      pose = lyingPose(glm::vec2(bed.at(0.48F, 0.5F)), bed.heading, key.roll);
      pose.neckBend = 0.35F;
      settle(actor.shape, pose, bed.mattress - 0.02F);
      return pose;
    case Posture::kSitUp:
      pose = sittingPose(glm::vec2(bed.at(0.48F, 0.5F)), bed.heading + glm::pi<float>());
      for (Limb& leg : pose.legs) leg = {1.45F, 0.1F, 0, 0.15F};
      settle(actor.shape, pose, bed.mattress - 0.02F);
      return pose;
    case Posture::kSitEdge:
      pose = sittingPose(glm::vec2(bed.at(0.2F, side == 0 ? 0.12F : 0.88F)),
                         bed.heading + (side == 0 ? -1.0F : 1.0F) * glm::half_pi<float>());
      pose.root.z = bed.mattress + 0.07F * actor.shape.height;
      return pose;
    case Posture::kLieFloor:
      pose = lyingPose(key.place, key.heading, key.roll);
      pose.legs[0] = {0.35F, 0.2F, 0, 0.5F};
      pose.arms[0].abduct = 0.7F;
      break;
    case Posture::kKneel:
      pose = kneelingPose(key.place, key.heading);
      break;
    case Posture::kBend:
      pose = bendingPose(key.place, key.heading);
      break;
    case Posture::kStand:
      pose = standingPose(key.place, key.heading);
      break;
  }
  settle(actor.shape, pose, 0);
  return pose;
}

float smooth(float t) { return t * t * (3 - 2 * t); }

/// Walking from one standing key to the next, turning on the spot at both ends.
Pose walk(const Key& from, const Key& to, float time, const Actor& actor, const Room& room) {
  const glm::vec2 way = to.place - from.place;
  const float length = glm::length(way);
  const float t = (time - from.time) / (to.time - from.time);
  const glm::vec2 place = from.place + way * t;
  const float phase = glm::pi<float>() * t * std::max(1.0F, std::round(length / kStep));
  Pose pose = walkingPose(place, std::atan2(way.y, way.x), phase);
  const float turning = std::min(0.6F, (to.time - from.time) / 2);
  const float since = time - from.time;
  const float left = to.time - time;
  if (since < turning) pose = blend(keyPose(from, actor, room), pose, smooth(since / turning));
  if (left < turning) pose = blend(keyPose(to, actor, room), pose, smooth(left / turning));
  pose.root = {place, pose.root.z};
  settle(actor.shape, pose, 0);
  return pose;
}

Pose poseBetween(const Key& from, const Key& to, float time, const Actor& actor, const Room& room) {
  const bool walks = from.posture == Posture::kStand && to.posture == Posture::kStand;
  if (walks && glm::distance(from.place, to.place) > 0.05F) return walk(from, to, time, actor, room);
  const float t = (time - from.time) / (to.time - from.time);
  const bool falls = from.posture == Posture::kStand && to.posture == Posture::kLieFloor;
  Pose pose = blend(keyPose(from, actor, room), keyPose(to, actor, room), falls ? t * t : smooth(t));
  if (!isOnBed(from.posture) && !isOnBed(to.posture)) settle(actor.shape, pose, 0);
  return pose;
}

/// Nobody is ever quite still: breath, a swaying head, a moving hand.
void enliven(Pose& pose, float time, int id) {
  const float own = 1.7F * static_cast<float>(id);
  pose.neckTurn += 0.22F * std::sin(0.5F * time + own);
  pose.neckBend += 0.06F * std::sin(0.8F * time + own);
  pose.spineBend += 0.012F * std::sin(1.6F * time);
  pose.arms[0].bend += 0.1F * std::sin(0.37F * time + own);
  pose.arms[1].flex += 0.06F * std::sin(0.29F * time + own);
}

Person personAt(const Actor& actor, float time, const Room& room) {
  const auto next = std::upper_bound(actor.keys.begin(), actor.keys.end(), time,
                                     [](float moment, const Key& key) { return moment < key.time; });
  const Key& from = *std::prev(next);
  const bool last = next == actor.keys.end();
  Person person;
  person.id = actor.id;
  person.shape = actor.shape;
  person.pose = last ? keyPose(from, actor, room) : poseBetween(from, *next, time, actor, room);
  enliven(person.pose, time, actor.id);
  const Posture to = last ? from.posture : next->posture;
  person.inBed = isOnBed(from.posture) && isOnBed(to);
  person.lyingOnFloor = from.posture == Posture::kLieFloor && to == Posture::kLieFloor;
  person.standing = from.posture == Posture::kStand && to == Posture::kStand;
  return person;
}

/// The blanket comes off as the patient sits up and on again after lying down.
float coverAt(const Actor& actor, float time) {
  float cover = 0;
  for (std::size_t i = 0; i + 1 < actor.keys.size(); ++i) {
    if (time < actor.keys[i].time || time >= actor.keys[i + 1].time) continue;
    const float t = (time - actor.keys[i].time) / (actor.keys[i + 1].time - actor.keys[i].time);
    const float a = actor.keys[i].posture == Posture::kInBed ? 0.75F : 0.0F;
    const float b = actor.keys[i + 1].posture == Posture::kInBed ? 0.75F : 0.0F;
    cover = a + (b - a) * t;
  }
  return time >= actor.keys.back().time && actor.keys.back().posture == Posture::kInBed ? 0.75F : cover;
}

}  // namespace

bool isOnBed(Posture posture) {
  return posture == Posture::kInBed || posture == Posture::kSitUp || posture == Posture::kSitEdge;
}

bool isOnFloor(Posture posture) { return posture == Posture::kLieFloor; }

bool Actor::comes() const { return keys.front().time > 0; }

bool Actor::leaves() const { return keys.size() > 1 && keys.back().posture == Posture::kStand; }

std::array<glm::vec2, 4> FloorRectangle::corners() const {
  return {corner, corner + glm::vec2(width, 0), corner + glm::vec2(width, -depth), corner + glm::vec2(0, -depth)};
}

Scene Scenario::at(float time) const {
  Scene now = scene;
  now.cover = 0.4F;
  for (const Actor& actor : actors) {
    const bool patient = isOnBed(actor.keys.front().posture);
    if (patient) now.cover = coverAt(actor, time);
    if (time < actor.keys.front().time || (actor.leaves() && time > actor.keys.back().time)) continue;
    now.people.push_back(personAt(actor, time, scene.room));
  }
  return now;
}

}  // namespace simulator
