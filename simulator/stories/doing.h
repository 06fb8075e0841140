// Who and what is where at a moment of a scenario.
#pragma once

#include "simulator/stories/scenario.h"

namespace simulator {

/// The actor's posture; the actor must be there.
Pose poseAt(const Scenario& scenario, const Actor& actor, float time);

/// The key that somebody who is there comes from, and the one that follows; nullptr after the last.
struct Stretch {
  const Key* from = nullptr;
  const Key* to = nullptr;
};
Stretch stretchAt(const Actor& actor, float time);

Placement placementAt(const Scenario& scenario, std::size_t thing, float time);

}  // namespace simulator
