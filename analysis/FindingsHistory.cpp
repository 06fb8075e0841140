#include "analysis/FindingsHistory.h"

#include <chrono>
#include <cmath>
#include <iterator>
#include <opencv2/core/types.hpp>

#include "app/floor_params.h"
#include "app/observer.h"
#include "app/process_state.h"
#include "app/truncate.h"
#include "geometry/distance_controller.h"

namespace {

constexpr float kVelocityFactor = 100000.0F;
/// Height in metres of the superior point of somebody whose height in the picture is unknown.
constexpr float kAverageNeckHeight = 1.4F;

float lengthOf(float x, float y) { return std::sqrt(x * x + y * y); }

cv::Point2f toFloat(const Point& p) { return {static_cast<float>(p.x), static_cast<float>(p.y)}; }

Point toWhole(const cv::Point2f& p) { return {truncateToInt(p.x), truncateToInt(p.y)}; }

/// The mean of one of the skeletons' points over the findings that have it; false, and (0, 0), when none has.
bool averageOf(const Findings& findings, Point Skeleton::*point, bool Skeleton::*hasPoint, Point& average) {
  int n = 0;
  int sumX = 0;
  int sumY = 0;
  for (const Finding& finding : findings) {
    if (finding.skeleton.*hasPoint) {
      sumX += (finding.skeleton.*point).x;
      sumY += (finding.skeleton.*point).y;
      ++n;
    }
  }
  average = n < 1 ? Point() : Point(sumX / n, sumY / n);
  return n >= 1;
}

void setVelocity(Findings& findings) {
  Finding& current = findings.back();
  const Finding& oldest = findings.front();
  const auto timeDelta = static_cast<float>(
      std::chrono::duration_cast<std::chrono::milliseconds>(current.timeStamp - oldest.timeStamp).count());
  current.instantVelocity = {static_cast<float>(current.centroid.first - oldest.centroid.first) / timeDelta,
                             static_cast<float>(current.centroid.second - oldest.centroid.second) / timeDelta};
  FPoint sum;
  for (const Finding& finding : findings) {
    sum.x += finding.instantVelocity.x;
    sum.y += finding.instantVelocity.y;
  }
  const auto count = static_cast<float>(findings.size());
  current.averageVelocity = {sum.x / count, sum.y / count};
}

void setMovement(Finding& current) {
  const Skeleton& skeleton = current.skeleton;
  current.hasValidAverageNormalFactorVelocity = skeleton.hasSuperior && skeleton.hasInferior;
  if (!current.hasValidAverageNormalFactorVelocity) {
    return;
  }
  current.averageNormalFactorVelocity = {current.averageVelocity.x / skeleton.skeletonHeight * kVelocityFactor,
                                         current.averageVelocity.y / skeleton.skeletonHeight * kVelocityFactor};
  const float magnitude = lengthOf(current.averageNormalFactorVelocity.x, current.averageNormalFactorVelocity.y);
  // Findings of one moment or a body without height give infinity, which says nothing about movement.
  if (std::isfinite(magnitude) && magnitude > kVelocityThreshold) {
    current.isMoving = true;
  }
}

/// Where the superior point of the person, were she upright above the floor position, would appear.
cv::Point2f upright(const Finding& current, cv::Point3f floorPosition, const cv::Point2f& feet) {
  if (!current.hasValidAverageSkeletonHeight) {
    floorPosition.z = -kAverageNeckHeight;
    return g_DistanceController.world_to_screen_point(floorPosition);
  }
  floorPosition.z = -1.0F;
  const cv::Point2f normal = g_DistanceController.world_to_screen_point(floorPosition) - feet;
  const float ratio = current.averageSkeletonHeight / lengthOf(normal.x, normal.y);
  return feet + normal * ratio;
}

/// Standing or lying, from where the superior point is and would be upright, and from the body's proportions.
Activity postureOf(const Finding& current) {
  const auto dx = static_cast<float>(current.expectedSuperior.x - current.averageSuperior.x);
  const auto dy = static_cast<float>(current.expectedSuperior.y - current.averageSuperior.y);
  if (lengthOf(dx, dy) > current.getExpectedSuperiorAreaRadius()) {
    return Activity::lying_down;
  }
  float ratio = 0.0F;
  const bool foreshortened = current.getTorsoToLegsRatio(ratio) && ratio < one_find::minTorsoToLegsRatio;
  return foreshortened ? Activity::lying_down : Activity::standing;
}

}  // namespace

FallVeto whatRulesOutFall(const Finding& finding) {
  if (finding.footing == Footings::bed) return FallVeto::inBed;
  if (finding.footing == Footings::exclusion) return FallVeto::inExclusion;
  if (finding.activity == Activity::unknownActivity) return FallVeto::unknownActivity;
  if (finding.activity == Activity::standing) return FallVeto::standing;
  if (finding.activity == Activity::sitting) return FallVeto::sitting;
  if (finding.skeleton.isNearEdge(g_StreamWidth, g_StreamHeight)) return FallVeto::nearEdge;
  return finding.isMoving ? FallVeto::moving : FallVeto::none;
}

void FindingsHistory::add(FindingVector& findings) {
  const TimeStamp now = ticker_clock::now();
  for (Finding& finding : findings) {
    finding.timeStamp = now;
  }
  for (Finding& finding : findings) {
    add(finding);
    if (g_observer != nullptr) g_observer->personJudged(m_findingsMap[finding.id], m_historyDepth);
  }
}

void FindingsHistory::add(Finding& finding) {
  Findings& findings = m_findingsMap[finding.id];
  findings.push_back(finding);
  if (findings.size() > m_historyDepth) {
    findings.pop_front();
  }
  if (findings.size() + 1 < m_historyDepth) {
    return;
  }
  setAverageInferior(findings);
  setAverageSuperior(findings);
  setAverageHipMedian(findings);
  setVelocity(findings);
  setMovement(findings.back());
  setAverageSkeletonHeight(findings);
  setExpectedLocations(findings);
  setActivity(findings);
}

void FindingsHistory::remove(int id) { m_findingsMap.erase(id); }

bool FindingsHistory::get(int id, Findings& out) const {
  const auto entry = m_findingsMap.find(id);
  if (entry == m_findingsMap.end()) {
    return false;
  }
  out = entry->second;
  return true;
}

const Finding& FindingsHistory::getLatestFinding(int id) const { return m_findingsMap.at(id).back(); }

IDVector FindingsHistory::getIDs() const {
  IDVector ids;
  ids.reserve(m_findingsMap.size());
  for (const auto& [id, findings] : m_findingsMap) {
    ids.push_back(id);
  }
  return ids;
}

int FindingsHistory::getNumberOfEntries() const { return static_cast<int>(m_findingsMap.size()); }

void FindingsHistory::setAverageInferior(Findings& findings) const {
  Finding& current = findings.back();
  current.hasValidAverageInferior =
      averageOf(findings, &Skeleton::inferior, &Skeleton::hasInferior, current.averageInferior);
}

void FindingsHistory::setAverageSuperior(Findings& findings) const {
  Finding& current = findings.back();
  current.hasValidAverageSuperior =
      averageOf(findings, &Skeleton::superior, &Skeleton::hasSuperior, current.averageSuperior);
}

void FindingsHistory::setAverageHipMedian(Findings& findings) const {
  Finding& current = findings.back();
  current.hasValidAverageHipMedian =
      averageOf(findings, &Skeleton::hipMedian, &Skeleton::hasHipMedian, current.averageHipMedian);
}

void FindingsHistory::setAverageSkeletonHeight(Findings& findings) const {
  Finding& current = findings.back();
  const float initialHeight = current.skeleton.hasSkeletonHeight ? current.skeleton.skeletonHeight : 0.0F;
  current.averageSkeletonHeight = initialHeight;
  current.hasValidAverageSkeletonHeight = true;
  if (findings.size() < m_historyDepth) {
    return;
  }
  if (findings.size() > 1) {
    const Finding& previous = *std::prev(findings.end(), 2);
    current.averageSkeletonHeight =
        previous.hasValidAverageSkeletonHeight ? previous.averageSkeletonHeight : initialHeight;
  }
  int n = 0;
  int sumH = 0;
  for (const Finding& finding : findings) {
    if (finding.skeleton.hasSkeletonHeight) {
      sumH = truncateToInt(static_cast<float>(sumH) + finding.skeleton.skeletonHeight);
      ++n;
    }
  }
  current.hasValidAverageSkeletonHeight = n >= 1;
  if (n >= 1) {
    const int wholePixels = sumH / n;
    current.averageSkeletonHeight = static_cast<float>(wholePixels);
  }
}

void FindingsHistory::setExpectedLocations(Findings& findings) const {
  Finding& current = findings.back();
  if (!current.skeleton.hasInferior) {
    return;
  }
  const cv::Point2f averageInferiorScreen = toFloat(current.averageInferior);
  cv::Point3f averageInferiorWorld = g_DistanceController.screen_point_to_world_floor(averageInferiorScreen);
  if (g_FloorParams.b_FeetOnFloor) {
    averageInferiorWorld.z = 0.0F;
  }
  current.expectedInferior = toWhole(g_DistanceController.world_to_screen_point(averageInferiorWorld));
  current.hasValidExpectedInferior = true;
  current.averageSuperior.x += current.expectedInferior.x - current.averageInferior.x;
  current.averageSuperior.y += current.expectedInferior.y - current.averageInferior.y;

  cv::Point2f expectedSuperiorScreen = upright(current, averageInferiorWorld, averageInferiorScreen);
  int rotation = 0;
  if (current.skeleton.getRotation(rotation) && rotation == 0) {
    const float areaRadius = current.getExpectedSuperiorAreaRadius();
    const auto topOfBox = static_cast<float>(current.skeleton.boundingBox.topLeft.y);
    const float topOfLollyHead = expectedSuperiorScreen.y - areaRadius;
    if (topOfLollyHead > topOfBox) {
      expectedSuperiorScreen.y = topOfBox + areaRadius;
    }
  }
  current.expectedSuperior = toWhole(expectedSuperiorScreen);
  current.hasValidExpectedSuperior = true;
}

void FindingsHistory::setActivity(Findings& findings) const {
  Finding& current = findings.back();
  if (!current.skeleton.hasSuperior || !current.skeleton.hasInferior || current.footing == Footings::bed ||
      current.footing == Footings::exclusion) {
    current.activity = Activity::unknownActivity;
    return;
  }
  current.activity = postureOf(current);
  const auto consecutiveLyingDowns = static_cast<std::ptrdiff_t>(findings.size() / 2);
  for (auto finding = findings.rbegin(); finding != findings.rbegin() + consecutiveLyingDowns; ++finding) {
    if (whatRulesOutFall(*finding) != FallVeto::none) {
      return;
    }
  }
  current.activity = Activity::fallen;
}
