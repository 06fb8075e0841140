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
  kFast,   ///< the usual ones: the least work with which no fall of the clips is missed
  kSharp,  ///< more detail, and more work
};

/// "fast" or "sharp".
std::optional<Eyes> eyesFrom(std::string_view word);
const char* nameOf(Eyes eyes);

/// As the environment's VELMOR_EYES says; else fast ones.
Eyes eyesOfRuns();

/// Leaves the looks that those eyes make, the one that is believed most first. False when the sidecar does not name
/// them: those of fast eyes are left, and all looks where it does not name these either, which fast eyes make do with.
bool chooseLooks(AdapterSettings& settings, Eyes eyes);

}  // namespace workstation
