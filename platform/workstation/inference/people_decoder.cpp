#include "platform/workstation/inference/people_decoder.h"

#include <algorithm>
#include <cmath>

namespace workstation {
namespace {

constexpr int kPeakRadius = 2;          // a centre is the highest of 5x5 cells
constexpr float kFarOutside = 1.0e4F;   // cells
constexpr float kLeastWeight = 0.002F;  // beyond the distance of this weight nothing is looked for

struct Center {
  int y;
  int x;
  float score;
};

bool isPeak(const PoseHeads& heads, int y, int x) {
  const float value = heads.center[heads.at(y, x)];
  for (int row = std::max(0, y - kPeakRadius); row <= std::min(heads.rows - 1, y + kPeakRadius); ++row) {
    for (int column = std::max(0, x - kPeakRadius); column <= std::min(heads.columns - 1, x + kPeakRadius); ++column) {
      if (heads.center[heads.at(row, column)] > value) return false;
    }
  }
  return true;
}

std::vector<Center> findCenters(const PoseHeads& heads, const PeopleRules& rules) {
  std::vector<Center> centers;
  for (int y = 0; y < heads.rows; ++y) {
    for (int x = 0; x < heads.columns; ++x) {
      const float score = sigmoid(heads.center[heads.at(y, x)]);
      if (score > rules.center_threshold && isPeak(heads, y, x)) centers.push_back({y, x, score});
    }
  }
  std::stable_sort(centers.begin(), centers.end(), [](const Center& a, const Center& b) { return a.score > b.score; });
  centers.resize(std::min(centers.size(), rules.most_people));
  return centers;
}

/// The likeliest cell near the regressed place, weighed by the distance from it, and the point inside that cell.
PersonPoint findPoint(const PoseHeads& heads, size_t point, float y, float x, float spread) {
  const size_t cells = heads.cells();
  const float radius = std::sqrt(-spread * std::log(kLeastWeight));
  const auto from = [radius](float at) { return std::max(0, static_cast<int>(std::ceil(at - radius))); };
  const auto to = [radius](float at, int size) {
    return std::min(size - 1, static_cast<int>(std::floor(at + radius)));
  };
  PersonPoint best{y, x, 0};
  for (int row = from(y); row <= to(y, heads.rows); ++row) {
    for (int column = from(x); column <= to(x, heads.columns); ++column) {
      const float dy = static_cast<float>(row) - y;
      const float dx = static_cast<float>(column) - x;
      const size_t cell = heads.at(row, column);
      const float score = sigmoid(heads.heat[point * cells + cell]) * std::exp(-(dy * dy + dx * dx) / spread);
      if (score > best.score) {
        best = {static_cast<float>(row) + heads.offset[2 * point * cells + cell],
                static_cast<float>(column) + heads.offset[(2 * point + 1) * cells + cell], score};
      }
    }
  }
  return best;
}

DecodedPerson decode(const PoseHeads& heads, const Center& center, float spread) {
  const size_t cells = heads.cells();
  const size_t cell = heads.at(center.y, center.x);
  DecodedPerson person{center.score, {}};
  for (size_t point = 0; point < kPersonPoints; ++point) {
    const float y = static_cast<float>(center.y) + heads.regression[2 * point * cells + cell];
    const float x = static_cast<float>(center.x) + heads.regression[(2 * point + 1) * cells + cell];
    // Far outside the picture is where an int would overflow.
    const bool isNear = std::abs(y) < kFarOutside && std::abs(x) < kFarOutside;
    person.points[point] = isNear ? findPoint(heads, point, y, x, spread) : PersonPoint{y, x, 0};
  }
  return person;
}

/// Diagonal of the box around all points, cells.
float sizeOf(const DecodedPerson& person) {
  const auto y = std::minmax_element(person.points.begin(), person.points.end(),
                                     [](const PersonPoint& a, const PersonPoint& b) { return a.y < b.y; });
  const auto x = std::minmax_element(person.points.begin(), person.points.end(),
                                     [](const PersonPoint& a, const PersonPoint& b) { return a.x < b.x; });
  return std::hypot(y.second->y - y.first->y, x.second->x - x.first->x);
}

bool isFinite(const DecodedPerson& person) {
  return std::all_of(person.points.begin(), person.points.end(), [](const PersonPoint& point) {
    return std::isfinite(point.y) && std::isfinite(point.x) && std::isfinite(point.score);
  });
}

}  // namespace

bool areTwins(const DecodedPerson& a, const DecodedPerson& b, float share) {
  std::array<float, kPersonPoints> distances{};
  std::transform(a.points.begin(), a.points.end(), b.points.begin(), distances.begin(),
                 [](const PersonPoint& p, const PersonPoint& q) { return std::hypot(p.y - q.y, p.x - q.x); });
  const auto middle = distances.begin() + kPersonPoints / 2;
  std::nth_element(distances.begin(), middle, distances.end());
  return *middle < share * std::max(sizeOf(a), sizeOf(b));
}

std::vector<DecodedPerson> decodePeople(const PoseHeads& heads, const PeopleRules& rules) {
  const float spread = rules.reach * static_cast<float>(std::min(heads.rows, heads.columns));
  std::vector<DecodedPerson> people;
  for (const Center& center : findCenters(heads, rules)) {
    const DecodedPerson person = decode(heads, center, spread);
    if (!isFinite(person)) continue;
    const bool isTwin = std::any_of(people.begin(), people.end(), [&](const DecodedPerson& other) {
      return areTwins(person, other, rules.twin_distance);
    });
    if (!isTwin) people.push_back(person);
  }
  return people;
}

}  // namespace workstation
