// A room drawn by code, as a camera would see it from wherever it hangs, and what may happen before the lens.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "platform/workstation/decoding/nv12_picture.h"

/// 640x360 grey levels of full range.
class Shot {
 public:
  static constexpr int kWidth = 640;
  static constexpr int kHeight = 360;

  workstation::I420View view() const {
    static const std::vector<std::uint8_t> chroma(kWidth * kHeight / 4, 128);
    return {m_grey.data(), chroma.data(), chroma.data(), kWidth, kWidth / 2, kWidth / 2, kWidth, kHeight, true};
  }
  std::uint8_t& at(int x, int y) { return m_grey[offsetOf(x, y)]; }
  std::uint8_t at(int x, int y) const { return m_grey[offsetOf(x, y)]; }
  const std::vector<std::uint8_t>& grey() const { return m_grey; }

  /// Each level by a function of it and its place.
  template <typename Function>
  Shot changed(const Function& function) const {
    Shot shot = *this;
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        shot.at(x, y) =
            static_cast<std::uint8_t>(std::clamp(std::lround(function(double{0} + shot.at(x, y), x, y)), 0L, 255L));
      }
    }
    return shot;
  }
  Shot lit(double factor) const {
    return changed([factor](double level, int, int) { return factor * level; });
  }
  /// With a sensor's noise.
  Shot noisy(unsigned seed) const {
    std::mt19937 random(seed);
    return changed([&](double level, int, int) {
      const auto bits = random();
      return level + static_cast<double>(bits % 4 + bits / 4 % 4 + bits / 16 % 4) - 4.5;
    });
  }
  /// A rectangle of one level laid over it.
  Shot with(int left, int top, int right, int bottom, int level) const {
    return changed(
        [=](double was, int x, int y) { return x >= left && x < right && y >= top && y < bottom ? level : was; });
  }
  /// Each pixel the mean of those up to `reach` away.
  Shot blurred(int reach) const {
    Shot shot = *this;
    for (const auto& [dx, dy] : {std::pair(1, 0), {0, 1}, {1, 0}, {0, 1}}) {
      const Shot before = shot;
      shot = before.changed([&before, reach, dx = dx, dy = dy](double, int x, int y) {
        double sum = 0;
        for (int i = -reach; i <= reach; ++i) {
          sum += before.at(std::clamp(x + i * dx, 0, kWidth - 1), std::clamp(y + i * dy, 0, kHeight - 1));
        }
        return sum / (2 * reach + 1);
      });
    }
    return shot;
  }

 private:
  static std::size_t offsetOf(int x, int y) {
    return static_cast<std::size_t>(y) * kWidth + static_cast<std::size_t>(x);
  }

  std::vector<std::uint8_t> m_grey = std::vector<std::uint8_t>(std::size_t{kWidth} * kHeight, 150);
};

/// How the camera hangs, against how it hung at first: pixels of the shot, degrees clockwise.
struct Hanging {
  double right = 0, down = 0, turned = 0;
};

/// Furniture of a room, the same for the same number.
inline Shot drawnRoom(unsigned room, Hanging hanging = {}) {
  std::mt19937 random(room);
  const auto any = [&random](int least, int most) { return std::uniform_int_distribution<int>(least, most)(random); };
  std::vector<std::array<int, 5>> things;
  for (int i = 0; i < 60; ++i) {
    const int x = any(-200, 800);
    const int y = any(-200, 500);
    things.push_back({x, y, x + any(20, 90), y + any(20, 90), any(30, 230)});
  }
  constexpr double kRadians = 3.14159265 / 180;
  const double cosine = std::cos(hanging.turned * kRadians);
  const double sine = std::sin(hanging.turned * kRadians);
  return Shot().changed([&](double level, int column, int row) {
    const double x = cosine * (column - 320) - sine * (row - 180) + 320 + hanging.right;
    const double y = sine * (column - 320) + cosine * (row - 180) + 180 + hanging.down;
    for (const auto& [left, top, right, bottom, grey] : things) {
      if (x >= left && x < right && y >= top && y < bottom) level = grey;
    }
    return level;
  });
}
