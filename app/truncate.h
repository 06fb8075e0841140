// From computed to whole pixels.
#pragma once

#include <algorithm>
#include <cmath>

/// Truncates toward zero. Far-off values stay within +-2^29, so that differences of two results fit an int; not a
/// number gives 0.
inline int truncateToInt(float value) {
  constexpr float kLimit = 536870912.0F;
  return std::isnan(value) ? 0 : static_cast<int>(std::clamp(value, -kLimit, kLimit));
}
