#include "platform/scripted/stage/pictures.h"

#include <array>
#include <cmath>

namespace scripted {
namespace {

using Vector = std::array<double, 3>;

double dot(const Vector& a, const Vector& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Vector cross(const Vector& a, const Vector& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

/// Turned about an axis whose length is the angle in radians.
Vector turned(const Vector& v, const Vector& axis) {
  const double angle = std::sqrt(dot(axis, axis));
  if (angle == 0) return v;
  const Vector unit{axis[0] / angle, axis[1] / angle, axis[2] / angle};
  const Vector aside = cross(unit, v);
  const double along = dot(unit, v) * (1 - std::cos(angle));
  Vector result;
  for (std::size_t i = 0; i < 3; ++i) result[i] = v[i] * std::cos(angle) + aside[i] * std::sin(angle) + unit[i] * along;
  return result;
}

/// A board in space: where its middle is and where its sides point.
struct Board {
  static constexpr double kSquare = 0.15, kColumns = 10, kRows = 7;
  Vector middle, right, down;

  /// Whether a ray from the camera meets a dark square.
  [[nodiscard]] bool isDarkAt(const Vector& ray) const {
    const Vector normal = cross(right, down);
    const double distance = dot(normal, middle) / dot(normal, ray);
    const Vector place{ray[0] * distance - middle[0], ray[1] * distance - middle[1], ray[2] * distance - middle[2]};
    const double column = std::floor(dot(place, right) / kSquare + kColumns / 2);
    const double row = std::floor(dot(place, down) / kSquare + kRows / 2);
    return column >= 0 && column < kColumns && row >= 0 && row < kRows && std::fmod(column + row, 2) == 0;
  }
};

}  // namespace

std::vector<uint8_t> greyFrame(unsigned width, unsigned height,
                               const std::function<uint8_t(unsigned, unsigned)>& luma) {
  std::vector<uint8_t> frame(std::size_t{width} * height * 3 / 2, 128);
  for (std::size_t i = 0; i < std::size_t{width} * height; ++i) {
    frame[i] = luma(static_cast<unsigned>(i % width), static_cast<unsigned>(i / width));
  }
  return frame;
}

std::vector<uint8_t> chessboardFrame(unsigned width, unsigned height, float focal_length, float slant_x,
                                     float slant_y) {
  constexpr int kSamples = 2;  // of a pixel, in each direction
  const Vector slant{slant_x, slant_y, 0};
  const Board board{{0, 0, 2.0 * focal_length / height}, turned({1, 0, 0}, slant), turned({0, 1, 0}, slant)};
  return greyFrame(width, height, [&](unsigned x, unsigned y) {
    int dark = 0;
    for (int i = 0; i < kSamples; ++i) {
      for (int j = 0; j < kSamples; ++j) {
        const double column = x - 0.5 * width + (j + 0.5) / kSamples;
        const double row = y - 0.5 * height + (i + 0.5) / kSamples;
        dark += board.isDarkAt({column / focal_length, row / focal_length, 1}) ? 1 : 0;
      }
    }
    return static_cast<uint8_t>(200 - 180 * dark / (kSamples * kSamples));
  });
}

}  // namespace scripted
