#include "simulator/stories/scenario.h"

#include <algorithm>
#include <cmath>
#include <glm/gtc/constants.hpp>

#include "simulator/stories/doing.h"

namespace simulator {
namespace {

/// Nobody is ever quite still: breath, a swaying head, a moving hand.
void enliven(Pose& pose, float time, int id) {
  const float own = 1.7F * static_cast<float>(id);
  pose.neckTurn += 0.22F * std::sin(0.5F * time + own);
  pose.neckBend += 0.06F * std::sin(0.8F * time + own);
  pose.spineBend += 0.012F * std::sin(1.6F * time);
  pose.arms[0].bend += 0.1F * std::sin(0.37F * time + own);
  pose.arms[1].flex += 0.06F * std::sin(0.29F * time + own);
}

bool isOnMattress(Posture posture) { return isOnBed(posture) && posture != Posture::kHalfOut; }

Person personAt(const Scenario& scenario, const Actor& actor, float time) {
  const auto [from, next] = stretchAt(actor, time);
  const Posture to = next == nullptr ? from->posture : next->posture;
  Person person;
  person.id = actor.id;
  person.shape = actor.shape;
  person.pose = poseAt(scenario, actor, time);
  enliven(person.pose, time, actor.id);
  person.bed = actor.bed;
  person.inBed = isOnMattress(from->posture) && isOnMattress(to);
  const bool slides = from->posture == Posture::kHalfOut ? to == Posture::kInBed
                                                         : to == Posture::kHalfOut && from->posture == Posture::kInBed;
  person.underBlanket = actor.patient && (person.inBed || slides);
  person.lyingOnFloor = from->posture == Posture::kLieFloor && to == Posture::kLieFloor;
  person.standing = from->posture == Posture::kStand && to == Posture::kStand;
  return person;
}

/// The blanket comes off as the patient sits up and on again after lying down.
float coverAt(const Actor& actor, float time) {
  const auto coverOf = [](const Key& key) { return key.posture == Posture::kInBed ? key.cover : 0.0F; };
  if (time < actor.keys.front().time) return 0;
  const auto [from, to] = stretchAt(actor, time);
  if (to == nullptr) return coverOf(*from);
  const float t = (time - from->time) / (to->time - from->time);
  return coverOf(*from) + (coverOf(*to) - coverOf(*from)) * t;
}

/// `base` as it is by day; the camera's own light comes from where the camera is.
Light lightOf(const Lighting& lighting, Light light, const glm::vec3& camera) {
  const bool day = lighting.kind == Lighting::Kind::kDay;
  const float left = day || lighting.kind == Lighting::Kind::kDark ? lighting.level : 0.05F;
  for (glm::vec3* part : {&light.lamp, &light.sky, &light.ground}) *part *= left;
  if (day) return light;
  light.panes = 0.05F;
  light.lamp = glm::vec3(0);
  light.torchPlace = camera;
  if (lighting.kind == Lighting::Kind::kLamp) {
    light.torch = glm::vec3(4.2F, 3.5F, 2.6F) * lighting.level;
    light.torchPlace = lighting.lamp;
  } else if (lighting.kind == Lighting::Kind::kInfrared) {
    light.infrared = true;
    light.torch = glm::vec3(6) * lighting.level;
  }
  return light;
}

}  // namespace

bool isOnBed(Posture posture) {
  return posture == Posture::kInBed || posture == Posture::kSitUp || posture == Posture::kSitEdge ||
         posture == Posture::kHalfOut;
}

bool isOnFloor(Posture posture) { return posture == Posture::kLieFloor || posture == Posture::kSitFloor; }

bool Actor::comes() const { return keys.front().time > 0; }

bool Actor::leaves() const { return keys.size() > 1 && keys.back().posture == Posture::kStand; }

bool Actor::isThere(float time) const { return time >= keys.front().time && !(leaves() && time > keys.back().time); }

std::array<glm::vec2, 4> FloorRectangle::corners() const {
  return {corner, corner + glm::vec2(width, 0), corner + glm::vec2(width, -depth), corner + glm::vec2(0, -depth)};
}

Scene Scenario::at(float time) const {
  Scene now = scene;
  now.covers.fill(0.4F);
  for (const Actor& actor : actors) {
    if (actor.hasBlanket) now.covers[actor.bed] = coverAt(actor, time);
    if (actor.isThere(time)) now.people.push_back(personAt(*this, actor, time));
  }
  for (std::size_t i = 0; i < things.size(); ++i) {
    const Placement placed = placementAt(*this, i, time);
    const Mesh mesh = moved(things[i].mesh, {placed.place, 0}, placed.heading - glm::half_pi<float>());
    now.things.insert(now.things.end(), mesh.begin(), mesh.end());
  }
  for (const Lighting& entry : lighting) {
    if (entry.time > time) break;
    now.light = lightOf(entry, scene.light, scene.camera.position);
    now.noise = entry.noise;
  }
  return now;
}

}  // namespace simulator
