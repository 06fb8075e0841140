// What lies on a bed's mattress.
#pragma once

#include "simulator/rooms/room.h"

namespace simulator {

/// How far the blanket reaches from the foot (0) to the head (1) of the bed when it is pulled up by `cover`.
float blanketReach(float cover);

/// The mattress's bedding: pillow and, over the body from the waist down (or flat if nobody lies there), the blanket.
/// `cover` 0 is folded away, 1 up to the chest, 1.5 over the head. Through one that is not `ample` feet and hands may
/// stick.
void addBedding(const Bed& bed, const Figure* patient, float cover, bool ample, Mesh& mesh);

}  // namespace simulator
