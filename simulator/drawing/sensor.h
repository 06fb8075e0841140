// What becomes of a picture in the camera: the sensor's noise, and its own way up.
#pragma once

#include <cstdint>
#include <vector>

namespace simulator {

/// Packed 8-bit RGB, rows top to bottom.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;
};

/// Adds noise of that standard deviation in grey levels; on a grey picture (`colored` false) the same to red, green and
/// blue. The same `seed` gives the same noise.
void addNoise(Picture& picture, float deviation, bool colored, std::uint32_t seed);

/// As a sensor sees an upright picture that must be turned clockwise by `rotation` degrees (0, 90, 180, 270) to get it
/// back.
Picture asMounted(const Picture& upright, unsigned rotation);

}  // namespace simulator
