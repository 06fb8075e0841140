#include "simulator/rooms/bedding.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace simulator {
namespace {

/// Height of the blanket above the mattress, on a grid along and across the bed.
class BlanketField {
 public:
  static constexpr std::size_t kAlong = 36;
  static constexpr std::size_t kAcross = 20;

  /// `overPillow`: it reaches so far that it lies on the pillow, too. `ample`: nothing sticks through it.
  BlanketField(const Bed& bed, const Figure* patient, bool overPillow, bool ample) {
    for (std::size_t i = 0; i < kAlong; ++i) {
      for (std::size_t j = 0; j < kAcross; ++j) {
        m_height[i][j] = raise(bed.at(along(i), across(j)), bed.mattress, patient);
        if (overPillow && along(i) > 0.8F) m_height[i][j] = std::max(m_height[i][j], 0.13F);
      }
    }
    if (ample) widen();
    for (int pass = 0; pass < 2; ++pass) smooth();
  }

  static float along(std::size_t i) { return static_cast<float>(i) / (kAlong - 1); }
  static float across(std::size_t j) { return 1.12F * static_cast<float>(j) / (kAcross - 1) - 0.06F; }

  float at(std::size_t i, std::size_t j) const { return m_height[i][j]; }

 private:
  static float raise(const glm::vec3& place, float mattress, const Figure* patient) {
    float top = 0.02F;
    if (patient == nullptr) return top;
    for (const Capsule& piece : patient->capsules) {
      const glm::vec2 a(piece.a);
      const glm::vec2 ab = glm::vec2(piece.b) - a;
      const float squared = std::max(glm::dot(ab, ab), 1e-6F);
      const float t = std::clamp(glm::dot(glm::vec2(place) - a, ab) / squared, 0.0F, 1.0F);
      const float radius = piece.radiusA + (piece.radiusB - piece.radiusA) * t;
      const float distance = glm::distance(glm::vec2(place), a + ab * t) / (radius + 0.03F);
      if (distance >= 1) continue;
      const float z = piece.a.z + (piece.b.z - piece.a.z) * t + radius * std::sqrt(1 - distance * distance);
      top = std::max(top, z - mattress + 0.025F);
    }
    return std::min(top, 0.5F);
  }

  /// Each place is as high as the highest beside it.
  void widen() {
    const auto old = m_height;
    for (std::size_t i = 0; i < kAlong; ++i) {
      for (std::size_t j = 0; j < kAcross; ++j) {
        for (std::size_t k = std::max<std::size_t>(i, 1) - 1; k <= std::min(i + 1, kAlong - 1); ++k) {
          for (std::size_t l = std::max<std::size_t>(j, 1) - 1; l <= std::min(j + 1, kAcross - 1); ++l) {
            m_height[i][j] = std::max(m_height[i][j], old[k][l]);
          }
        }
      }
    }
  }

  void smooth() {
    const auto old = m_height;
    for (std::size_t i = 1; i + 1 < kAlong; ++i) {
      for (std::size_t j = 1; j + 1 < kAcross; ++j) {
        const float around = (old[i - 1][j] + old[i + 1][j] + old[i][j - 1] + old[i][j + 1]) / 4;
        m_height[i][j] = std::max(old[i][j], around);
      }
    }
  }

  std::array<std::array<float, kAcross>, kAlong> m_height{};
};

}  // namespace

float blanketReach(float cover) { return 0.18F + 0.52F * cover; }

void addBedding(const Bed& bed, const Figure* patient, float cover, bool ample, Mesh& mesh) {
  const glm::vec3 left = bed.at(0.9F, 0.22F) + glm::vec3(0, 0, 0.03F);
  const glm::vec3 right = bed.at(0.9F, 0.78F) + glm::vec3(0, 0, 0.03F);
  addCapsule(mesh, {left, right, 0.15F, 0.15F, {0, 0, 1}, 0.4F, bed.sheet * 1.05F, Surface::kPlain});
  const BlanketField field(bed, patient, cover > 1, ample);
  const float upTo = blanketReach(cover);
  const auto point = [&](std::size_t i, std::size_t j) {
    glm::vec3 p = bed.at(BlanketField::along(i) * upTo + 0.01F, BlanketField::across(j));
    const auto row = static_cast<std::size_t>(BlanketField::along(i) * upTo * (BlanketField::kAlong - 1));
    const bool edge = j == 0 || (ample && i == 0) || j + 1 == BlanketField::kAcross;
    p.z += edge ? -0.14F : field.at(row, j);
    return p;
  };
  for (std::size_t i = 0; i + 1 < BlanketField::kAlong; ++i) {
    for (std::size_t j = 0; j + 1 < BlanketField::kAcross; ++j) {
      addQuad(mesh, {point(i, j), point(i + 1, j), point(i + 1, j + 1), point(i, j + 1)}, bed.blanket,
              Surface::kFabric);
    }
  }
}

}  // namespace simulator
