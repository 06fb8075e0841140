#include "app/finding.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kShortestLegs = 0.0001;  // pixels

/// In double precision, exact before the root for any two positions.
double distanceBetween(const Point& a, const Point& b) {
  const double dx = static_cast<double>(a.x) - b.x;
  const double dy = static_cast<double>(a.y) - b.y;
  return std::sqrt(dx * dx + dy * dy);
}

}  // namespace

float one_find::getExpectedSuperiorAreaRadius() const {
  const BoundingBox& box = skeleton.boundingBox;
  // In double precision, because the box of no keypoints is wider than an int.
  const auto bbWidth = static_cast<float>(static_cast<double>(box.bottomRight.x) - box.topLeft.x);
  const auto bbHeight = static_cast<float>(static_cast<double>(box.bottomRight.y) - box.topLeft.y);
  const float aspect = bbWidth / bbHeight;
  if (aspect < 0.5F) {
    return bbWidth;
  }
  if (aspect > 2.0F) {
    return bbHeight;
  }
  return std::min(bbWidth, bbHeight) / 2.0F;
}

bool one_find::getTorsoToLegsRatio(float& ratio) const {
  if (!hasValidAverageHipMedian || !hasValidAverageInferior || !hasValidAverageSuperior) {
    return false;
  }
  const double dInferiorToHipMedian = distanceBetween(averageInferior, averageHipMedian);
  const double dSuperiorToHipMedian = distanceBetween(averageSuperior, averageHipMedian);
  if (dInferiorToHipMedian < kShortestLegs) {
    return false;
  }
  ratio = static_cast<float>(dSuperiorToHipMedian / dInferiorToHipMedian);
  return true;
}
