// Areas of four corners that an installer draws around a bed in the picture.
#pragma once

#include <array>

#include "simulator/rooms/room.h"

namespace simulator {

/// Corners in pixels of the upright picture and inside it, clockwise.
using Area = std::array<glm::vec2, 4>;

/// How far the bed's volume reaches above the mattress, in metres: about the shoulders of whoever sits up.
inline constexpr float kAirAboveMattress = 0.5F;

/// These places in the picture; one that is outside comes to the picture's edge.
Area areaOf(const Camera& camera, const std::array<glm::vec3, 4>& places);

/// A bed at mattress height, a tenth longer and wider. Corners: head left, head right, foot right, foot left, as
/// somebody who lies in it on the back and is seen from above.
Area mattressArea(const Camera& camera, const Bed& bed);

/// What the picture shows of that outline and of kAirAboveMattress over it, in four corners. A box is seen as up to six
/// corners, and more where the picture ends; until four are left, whatever changes the outline's area least goes: a
/// side whose neighbours, made longer, meet inside the picture, or a corner. Corner 1 is the one nearest to the
/// mattress' corner 1, and so on.
Area volumeArea(const Camera& camera, const Bed& bed);

}  // namespace simulator
