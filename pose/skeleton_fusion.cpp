#include "pose/skeleton_fusion.h"

#include <syslog.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <utility>

#include "app/observer.h"

namespace {

constexpr float clusterDistanceThreshold = 100.0F;  // weighted pixels, see getDistance
constexpr int kFused = -1;                          // the detector rotation of a merged skeleton

std::size_t indexOf(int i) { return static_cast<std::size_t>(i); }

void eraseAt(Skeletons& skeletons, int index) { skeletons.erase(skeletons.begin() + index); }

/// The score-weighted mean of two sightings of a body part, or the origin when neither has a score.
Keypoint mergeKeypoints(const Keypoint& k1, const Keypoint& k2, BodyPart part) {
  const float weight = k1.score + k2.score;
  if (!(weight > 0.0F)) return {Point(), part, 0.0F};
  const auto mean = [&](int first, int second) {
    return static_cast<int>((k1.score * static_cast<float>(first) + k2.score * static_cast<float>(second)) / weight);
  };
  return {Point(mean(k1.point.x, k2.point.x), mean(k1.point.y, k2.point.y)), part, weight};
}

/// The length that two intervals have in common.
float overlapOf(int begin1, int end1, int begin2, int end2) {
  return std::max(0.0F, static_cast<float>(std::min(end1, end2)) - static_cast<float>(std::max(begin1, begin2)));
}

float areaOf(const BoundingBox& box) {
  const float width = static_cast<float>(box.bottomRight.x) - static_cast<float>(box.topLeft.x);
  const float height = static_cast<float>(box.bottomRight.y) - static_cast<float>(box.topLeft.y);
  return width * height;
}

}  // namespace

Skeletons combineSkeletons(const Skeletons& north, const Skeletons& east, const Skeletons& south, const Skeletons& west,
                           float aiThreshold, int /*modelWidth*/, int /*modelHeight*/) {
  Skeletons combined = north;
  for (const Skeletons* list : {&east, &south, &west}) combined.insert(combined.end(), list->begin(), list->end());
  if (g_observer != nullptr) g_observer->fusionBegan(combined);
  clusterSkeletons(combined);
  if (g_observer != nullptr) g_observer->fusedFiltered(combined, aiThreshold);

  Skeletons confident;
  std::copy_if(combined.begin(), combined.end(), std::back_inserter(confident),
               [aiThreshold](const Skeleton& one) { return one.score > aiThreshold && one.hasSuperior; });
  return confident;
}

void clusterSkeletons(Skeletons& S) {
  while (S.size() >= 2) {
    int i = 0;
    int j = 0;
    float minDistance = 0.0F;
    findMinDistancePair(S, i, j, minDistance);
    if (minDistance > clusterDistanceThreshold) return;

    const Skeleton& first = S[indexOf(i)];
    const Skeleton& second = S[indexOf(j)];
    if (isAdjacentDetector(first.detectorRotation, second.detectorRotation)) {
      Skeleton merged = merge(first, second);
      if (g_observer != nullptr) g_observer->pairFused(indexOf(i), indexOf(j), minDistance, merged);
      eraseAt(S, j);
      eraseAt(S, i);
      S.push_back(std::move(merged));
    } else {
      const int weaker = first.score > second.score ? j : i;
      if (g_observer != nullptr) g_observer->pairReduced(indexOf(i), indexOf(j), minDistance, indexOf(weaker));
      eraseAt(S, weaker);
    }
  }
}

void findMinDistancePair(const Skeletons& S, int& i, int& j, float& minDistance) {
  minDistance = std::numeric_limits<float>::max();
  for (std::size_t first = 0; first < S.size(); ++first) {
    for (std::size_t second = first + 1; second < S.size(); ++second) {
      const float distance = getDistance(S[first], S[second]);
      if (distance < minDistance) {
        minDistance = distance;
        i = static_cast<int>(first);
        j = static_cast<int>(second);
      }
    }
  }
}

float getDistance(const Skeleton& s1, const Skeleton& s2) {
  float distance = 0.0F;
  float totalWeight = 0.0F;
  for (const auto& [part, partWeight] : bodyPartWeights) {
    const Keypoint& k1 = s1.keypoints.at(part);
    const Keypoint& k2 = s2.keypoints.at(part);
    const int dx = k1.point.x - k2.point.x;
    const int dy = k1.point.y - k2.point.y;
    const double apart = std::sqrt(static_cast<double>(dx * dx + dy * dy));
    const float weight = (k1.score + k2.score) * partWeight;
    distance = static_cast<float>(static_cast<double>(distance) + static_cast<double>(weight) * apart);
    totalWeight += weight;
  }
  distance /= totalWeight;
  const double overlap = getIOS(s1.boundingBox, s2.boundingBox);
  return static_cast<float>(static_cast<double>(distance) * (1.0 - overlap));
}

float getIOS(const BoundingBox& a, const BoundingBox& b) {
  const float xOverlap = overlapOf(a.topLeft.x, a.bottomRight.x, b.topLeft.x, b.bottomRight.x);
  const float yOverlap = overlapOf(a.topLeft.y, a.bottomRight.y, b.topLeft.y, b.bottomRight.y);
  const float intersection = xOverlap * yOverlap;
  if (intersection <= 0.0F) return 0.0F;
  const float smallerArea = std::min(areaOf(a), areaOf(b));
  if (smallerArea <= 0.0F) {
    syslog(LOG_INFO, "SmallerArea is 0");
    return 0.0F;
  }
  return intersection / smallerArea;
}

Skeleton merge(const Skeleton& s1, const Skeleton& s2) {
  Keypoints keypoints;
  for (const BodyPart part : BodyParts) {
    keypoints.emplace(part, mergeKeypoints(s1.keypoints.at(part), s2.keypoints.at(part), part));
  }
  return {keypoints, kFused, s1.score + s2.score};
}
