// Pieces of furniture as they are made: x runs along their back, which is at y = 0, y forwards, z up from the floor.
// The origin is the middle of the back's lower edge.
#pragma once

#include "simulator/figures/mesh.h"

namespace simulator {

Mesh wardrobe(Random& random);
Mesh bedsideTable(Random& random);
Mesh chair(Random& random);
Mesh dripStand();
Mesh plant(Random& random);
/// To be hung up: its back's middle is the origin.
Mesh pictureOnWall(Random& random);
/// To be laid down: the origin is its middle.
Mesh rug(Random& random);

}  // namespace simulator
