#include "simulator/figures/postures.h"

#include <algorithm>
#include <cmath>
#include <glm/gtc/constants.hpp>

namespace simulator {
namespace {

constexpr glm::vec3 kX{1, 0, 0};
constexpr glm::vec3 kY{0, 1, 0};
constexpr glm::vec3 kZ{0, 0, 1};

glm::quat turn(float angle, const glm::vec3& axis) { return glm::angleAxis(angle, axis); }

/// Body axes for someone upright who faces `heading`.
glm::quat upright(float heading) { return turn(heading - glm::half_pi<float>(), kZ); }

}  // namespace

Pose standingPose(glm::vec2 place, float heading) {
  Pose pose;
  pose.root = {place, 0.9F};
  pose.orientation = upright(heading);
  pose.spineBend = 0.05F;
  for (Limb& arm : pose.arms) arm = {0.05F, 0.12F, 0, 0.2F};
  for (Limb& leg : pose.legs) leg = {0.02F, 0.04F, -0.1F, 0.04F};
  return pose;
}

Pose walkingPose(glm::vec2 place, float heading, float phase) {
  Pose pose = standingPose(place, heading);
  for (std::size_t side = 0; side < 2; ++side) {
    const float own = phase + (side == 0 ? 0.0F : glm::pi<float>());
    pose.legs[side].flex = 0.08F + 0.38F * std::sin(own);
    pose.legs[side].bend = 0.1F + 0.45F * std::max(0.0F, std::cos(own));
    pose.arms[side].flex = -0.32F * std::sin(own);
    pose.arms[side].bend = 0.3F + 0.1F * std::cos(own);
  }
  return pose;
}

Pose sittingPose(glm::vec2 place, float heading) {
  Pose pose = standingPose(place, heading);
  pose.spineBend = 0.15F;
  for (Limb& leg : pose.legs) leg = {1.45F, 0.12F, 0, 1.4F};
  for (Limb& arm : pose.arms) arm = {0.5F, 0.15F, 0.2F, 0.7F};
  return pose;
}

Pose kneelingPose(glm::vec2 place, float heading) {
  Pose pose = standingPose(place, heading);
  pose.spineBend = 0.5F;
  pose.legs[0] = {1.35F, 0.1F, 0, 1.6F};
  pose.legs[1] = {0.1F, 0.1F, 0, 1.6F};
  for (Limb& arm : pose.arms) arm = {1.0F, 0.15F, 0.1F, 0.4F};
  return pose;
}

Pose bendingPose(glm::vec2 place, float heading) {
  Pose pose = standingPose(place, heading);
  pose.spineBend = 0.85F;
  for (Limb& leg : pose.legs) leg = {0.3F, 0.1F, 0, 0.4F};
  for (Limb& arm : pose.arms) arm = {1.0F, 0.1F, 0.1F, 0.3F};
  return pose;
}

Pose lyingPose(glm::vec2 place, float heading, float roll) {
  Pose pose;
  pose.root = {place, 0.15F};
  // Face down with the head towards world y, turned about the body's length, then towards the heading.
  const glm::quat faceDown = turn(-glm::half_pi<float>(), kX);
  pose.orientation = turn(heading - glm::half_pi<float>(), kZ) * turn(roll + glm::pi<float>(), kY) * faceDown;
  for (Limb& arm : pose.arms) arm = {0.1F, 0.35F, 0, 0.35F};
  for (Limb& leg : pose.legs) leg = {0.12F, 0.1F, 0, 0.2F};
  return pose;
}

Pose floorSittingPose(glm::vec2 place, float heading) {
  Pose pose = standingPose(place, heading);
  pose.spineBend = 0.1F;
  pose.neckBend = 0.2F;
  pose.legs[0] = {1.5F, 0.2F, 0, 0.1F};
  pose.legs[1] = {1.75F, 0.12F, 0, 0.6F};
  for (Limb& arm : pose.arms) arm = {0.1F, 0.3F, 0, 0.5F};
  return pose;
}

Pose crawlingPose(glm::vec2 place, float heading, float phase) {
  Pose pose = standingPose(place, heading);
  pose.spineBend = 1.2F;
  pose.neckBend = -0.5F;
  for (std::size_t side = 0; side < 2; ++side) {
    const float swing = std::sin(phase + (side == 0 ? 0.0F : glm::pi<float>()));
    pose.legs[side] = {0.05F + 0.3F * swing, 0.08F, 0, 1.55F};
    pose.arms[side] = {1.2F - 0.25F * swing, 0.05F, 0, 0.1F + 0.15F * std::max(0.0F, swing)};
  }
  return pose;
}

Pose sideLyingPose(glm::vec2 place, float heading, bool left) {
  Pose pose = lyingPose(place, heading, (left ? 1.0F : -1.0F) * 1.45F);
  const std::size_t below = left ? 0 : 1;
  pose.spineBend = 0.2F;
  pose.neckBend = 0.2F;
  pose.arms[below] = {1.2F, -0.1F, 0, 1.1F};
  pose.arms[1 - below] = {0.75F, -0.15F, 0, 0.7F};
  pose.legs[below] = {0.4F, -0.02F, 0, 0.6F};
  pose.legs[1 - below] = {0.8F, -0.06F, 0, 1.1F};
  return pose;
}

Pose halfLyingPose(glm::vec2 place, float heading) {
  Pose pose = standingPose(place, heading);
  pose.spineBend = -1.3F;
  pose.legs[0] = {1.2F, 0.15F, 0, 1.15F};
  pose.legs[1] = {1.05F, 0.3F, 0, 0.8F};
  pose.arms[0] = {0.2F, 0.9F, 0, 0.5F};
  pose.arms[1] = {0.3F, 0.5F, 0, 0.9F};
  return pose;
}

void holdHandles(Pose& pose) {
  for (Limb& arm : pose.arms) arm = {0.55F, 0.1F, 0, 0.55F};
}

void settle(const BodyShape& shape, Pose& pose, float surface) {
  pose.root.z += surface - makeFigure(shape, pose).lowest();
}

}  // namespace simulator
