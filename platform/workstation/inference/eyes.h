// How sharply the networks look: which of a network's looks at the picture are made.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/workstation/inference/pose_adapter.h"

namespace workstation {

enum class Eyes {
  kFast,   ///< fewer looks: less work, and fewer people are found
  kUsual,  ///< as was chosen for falls
  kSharp,  ///< more detail, and more work
};

/// "fast", "usual" or "sharp".
std::optional<Eyes> eyesFrom(std::string_view word);
const char* nameOf(Eyes eyes);

/// As the environment's VELMOR_EYES says; else the usual ones.
Eyes eyesOfRuns();

/// Leaves the looks that those eyes make, the one that is believed most first. False when the sidecar does not name
/// them: the usual ones are left, and they are all looks where it names none at all.
bool chooseLooks(AdapterSettings& settings, Eyes eyes);

}  // namespace workstation
