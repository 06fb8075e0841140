// People from the four raw heads of MoveNet multipose (CenterNet with keypoints: Zhou et al., "Objects as Points",
// 2019).
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <span>
#include <vector>

namespace workstation {

inline constexpr size_t kPersonPoints = 17;  ///< in COCO's order, nose to right ankle

/// Maps of one run, channel first, each of rows x columns cells: logits of a person's centre (1 channel), the points of
/// the person centred in a cell relative to it (34: y and x in turn), logits of points (17), and where in its cell a
/// point lies (34: y and x in turn). Distances in cells.
struct PoseHeads {
  std::span<const float> center;
  std::span<const float> regression;
  std::span<const float> heat;
  std::span<const float> offset;
  int rows = 0;
  int columns = 0;

  size_t at(int y, int x) const {
    return static_cast<size_t>(y) * static_cast<size_t>(columns) + static_cast<size_t>(x);
  }
  size_t cells() const { return at(rows, 0); }
};

/// The probability that a logit stands for.
inline float sigmoid(float logit) { return 1.0F / (1.0F + std::exp(-logit)); }

/// What counts as a person.
struct PeopleRules {
  float center_threshold = 0.15F;  ///< least probability of a centre
  float reach = 0.3F;              ///< spread of the search around a regressed point, squared cells to a cell of the
                                   ///< grid's shorter side
  float twin_distance = 0.08F;     ///< median distance of two people's points, as a share of the larger, that makes one
  size_t most_people = 10;
};

struct PersonPoint {
  float y = 0;  ///< cells
  float x = 0;
  float score = 0;  ///< 0 to 1
};

struct DecodedPerson {
  float score = 0;  ///< of the centre, 0 to 1
  std::array<PersonPoint, kPersonPoints> points;
};

/// Whether the median distance of two people's points is below that share of the larger one's size.
bool areTwins(const DecodedPerson& a, const DecodedPerson& b, float share);

/// The people in decreasing score, no two of them the same. Values that are not numbers find nobody.
std::vector<DecodedPerson> decodePeople(const PoseHeads& heads, const PeopleRules& rules);

}  // namespace workstation
