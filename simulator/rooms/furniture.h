// Pieces of furniture as they are made: x runs along their back, which is at y = 0, y forwards, z up from the floor.
// The origin is the middle of the back's lower edge.
#pragma once

#include <string_view>

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

/// What people use: it stands where a script says, and some of it rolls.
struct Movable {
  std::string_view name;
  Mesh (*make)(Random& random);
  float depth = 0;       ///< metres from the back to the front
  float seatAt = 0;      ///< from the back to the hips of who sits on it
  float seatHeight = 0;  ///< of the hips' support above the floor; 0 if nobody sits on it
  float reach = 0;       ///< from who pushes it to its middle; 0 if it does not roll
};
extern const std::array<Movable, 3> kMovables;

}  // namespace simulator
