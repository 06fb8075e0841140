// What people do with their bodies. Each posture leaves `root` at the given place on the floor plan; settle() finds the
// height. Headings are radians, counter-clockwise from world x.
#pragma once

#include "simulator/figures/body.h"

namespace simulator {

Pose standingPose(glm::vec2 place, float heading);
/// `phase` in radians: one double step is 2 pi.
Pose walkingPose(glm::vec2 place, float heading, float phase);
Pose sittingPose(glm::vec2 place, float heading);
/// On the floor with the legs stretched out.
Pose floorSittingPose(glm::vec2 place, float heading);
Pose kneelingPose(glm::vec2 place, float heading);
Pose bendingPose(glm::vec2 place, float heading);
/// On hands and knees; `phase` as in walking.
Pose crawlingPose(glm::vec2 place, float heading, float phase);
/// Lying with the head towards `heading`; `roll` 0 is face up, pi face down.
Pose lyingPose(glm::vec2 place, float heading, float roll);
/// Lying on the left or right side, the lower arm in front of the body, the knees drawn up.
Pose sideLyingPose(glm::vec2 place, float heading, bool left);
/// The hips on an edge, the trunk lying back from it, the feet on the floor; `heading` is where the knees point.
Pose halfLyingPose(glm::vec2 place, float heading);
/// The hands reach forward to handles.
void holdHandles(Pose& pose);

/// Moves the pose so that the body's lowest point touches `surface` (metres above the floor).
void settle(const BodyShape& shape, Pose& pose, float surface);

}  // namespace simulator
