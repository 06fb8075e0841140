#include "simulator/drawing/sensor.h"

#include <algorithm>
#include <cmath>

namespace simulator {
namespace {

/// Small and the same on every machine.
class Noise {
 public:
  Noise(float deviation, std::uint32_t seed) : m_scale(deviation / kDeviationOfSum), m_state(seed * 2654435761U + 1) {}

  /// The sum of four bytes is nearly normal.
  int next() {
    m_state ^= m_state << 13U;
    m_state ^= m_state >> 17U;
    m_state ^= m_state << 5U;
    int sum = -2 * 255;
    for (unsigned shift = 0; shift < 32; shift += 8) sum += static_cast<int>(m_state >> shift & 255U);
    return static_cast<int>(std::lround(m_scale * static_cast<float>(sum)));
  }

 private:
  static constexpr float kDeviationOfSum = 147.8F;

  float m_scale;
  std::uint32_t m_state;
};

}  // namespace

void addNoise(Picture& picture, float deviation, bool colored, std::uint32_t seed) {
  if (deviation <= 0) return;
  Noise noise(deviation, seed);
  int change = 0;
  for (std::size_t i = 0; i < picture.rgb.size(); ++i) {
    if (colored || i % 3 == 0) change = noise.next();
    picture.rgb[i] = static_cast<std::uint8_t>(std::clamp(picture.rgb[i] + change, 0, 255));
  }
}

Picture asMounted(const Picture& upright, unsigned rotation) {
  if (rotation == 0) return upright;
  const bool lying = rotation != 180;
  Picture turned{lying ? upright.height : upright.width, lying ? upright.width : upright.height, {}};
  turned.rgb.resize(upright.rgb.size());
  for (int y = 0; y < upright.height; ++y) {
    for (int x = 0; x < upright.width; ++x) {
      const int column = rotation == 90 ? y : rotation == 180 ? upright.width - 1 - x : upright.height - 1 - y;
      const int row = rotation == 90 ? upright.width - 1 - x : rotation == 180 ? upright.height - 1 - y : x;
      const auto at = [](int line, int width, int place) {
        return (static_cast<std::size_t>(line) * static_cast<std::size_t>(width) + static_cast<std::size_t>(place)) * 3;
      };
      std::copy_n(&upright.rgb[at(y, upright.width, x)], 3, &turned.rgb[at(row, turned.width, column)]);
    }
  }
  return turned;
}

}  // namespace simulator
