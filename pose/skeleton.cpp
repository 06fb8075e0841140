#include "pose/skeleton.h"

#include <syslog.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "app/process_state.h"

namespace {

constexpr float kCountingScore = 0.1F;  // a keypoint of the upper body counts above it
constexpr float kSmallestShare = 0.007F;
constexpr float kLargestShare = 0.7F;  // of the picture that a person's box may cover
constexpr int kTopMargin = 50;         // pixels below the picture's top in which nobody stands on his head

bool counts(const Keypoints& keypoints, BodyPart part) {
  const auto found = keypoints.find(part);
  return found != keypoints.end() && found->second.score > kCountingScore;
}

/// The middle of two parts, or the one that is there.
bool middleOf(const Keypoints& keypoints, BodyPart right, BodyPart left, Point& out) {
  const auto rightFound = keypoints.find(right);
  const auto leftFound = keypoints.find(left);
  if (rightFound != keypoints.end() && leftFound != keypoints.end()) {
    return setAveragePoint(rightFound->second.point, leftFound->second.point, out);
  }
  if (rightFound != keypoints.end()) return setPoint(rightFound->second.point, out);
  if (leftFound != keypoints.end()) return setPoint(leftFound->second.point, out);
  return false;
}

bool isArm(BodyPart part) {
  return part == BodyPart::LeftElbow || part == BodyPart::RightElbow || part == BodyPart::LeftWrist ||
         part == BodyPart::RightWrist;
}

// 64 bits wide, because the inverted box of no keypoints does not fit an int.
std::int64_t widthOf(const BoundingBox& box) { return std::int64_t{box.bottomRight.x} - box.topLeft.x; }
std::int64_t heightOf(const BoundingBox& box) { return std::int64_t{box.bottomRight.y} - box.topLeft.y; }

std::optional<Rejection> findImplausibleSize(const BoundingBox& box, int streamWidth, int streamHeight) {
  const float thisArea = static_cast<float>(widthOf(box)) * static_cast<float>(heightOf(box));
  const auto sceneArea = static_cast<float>(streamWidth * streamHeight);
  const float share = thisArea / sceneArea;
  const bool tooSmall = share < kSmallestShare;
  if (!tooSmall && !(share > kLargestShare)) return std::nullopt;
  if (g_IsDevMode) {
    syslog(LOG_INFO, "Rejecting skeleton due to incorrect size");
    syslog(LOG_INFO, "thisArea %f, sceneArea %f, ThisAreaOutOfWholeScene %f", static_cast<double>(thisArea),
           static_cast<double>(sceneArea), static_cast<double>(share));
  }
  if (tooSmall) return Rejection{Rejection::Rule::tooSmall, share, kSmallestShare};
  return Rejection{Rejection::Rule::tooLarge, share, kLargestShare};
}

void logPoint(const std::string& tag, const char* label, bool isSet, const Point& point) {
  if (isSet) {
    syslog(LOG_INFO, "[%s] %s          : (%d,%d)", tag.c_str(), label, point.x, point.y);
  } else {
    syslog(LOG_INFO, "[%s] %s          : N/A", tag.c_str(), label);
  }
}

}  // namespace

const EdgeSpecificationVector AllEdges = {
    {BodyPart::Nose, BodyPart::LeftEye},
    {BodyPart::Nose, BodyPart::RightEye},
    {BodyPart::Nose, BodyPart::LeftEar},
    {BodyPart::Nose, BodyPart::RightEar},
    {BodyPart::LeftEar, BodyPart::LeftEye},
    {BodyPart::RightEar, BodyPart::RightEye},
    {BodyPart::LeftEye, BodyPart::RightEye},
    {BodyPart::LeftShoulder, BodyPart::RightShoulder},
    {BodyPart::LeftShoulder, BodyPart::LeftElbow},
    {BodyPart::LeftShoulder, BodyPart::LeftHip},
    {BodyPart::RightShoulder, BodyPart::RightElbow},
    {BodyPart::RightShoulder, BodyPart::RightHip},
    {BodyPart::LeftElbow, BodyPart::LeftWrist},
    {BodyPart::RightElbow, BodyPart::RightWrist},
    {BodyPart::LeftHip, BodyPart::RightHip},
    {BodyPart::LeftHip, BodyPart::LeftKnee},
    {BodyPart::RightHip, BodyPart::RightKnee},
    {BodyPart::LeftKnee, BodyPart::LeftAnkle},
    {BodyPart::RightKnee, BodyPart::RightAnkle},
};

const std::map<BodyPart, float> bodyPartWeights = {
    {BodyPart::Nose, 2.0F},          {BodyPart::LeftEye, 1.0F},    {BodyPart::RightEye, 1.0F},
    {BodyPart::LeftEar, 1.0F},       {BodyPart::RightEar, 1.0F},   {BodyPart::LeftShoulder, 8.0F},
    {BodyPart::RightShoulder, 8.0F}, {BodyPart::LeftElbow, 1.0F},  {BodyPart::RightElbow, 1.0F},
    {BodyPart::LeftWrist, 1.0F},     {BodyPart::RightWrist, 1.0F}, {BodyPart::LeftHip, 8.0F},
    {BodyPart::RightHip, 8.0F},      {BodyPart::LeftKnee, 4.0F},   {BodyPart::RightKnee, 4.0F},
    {BodyPart::LeftAnkle, 2.0F},     {BodyPart::RightAnkle, 2.0F},
};

std::string bodyPartToName(BodyPart bodyPart) {
  static constexpr std::array<const char*, BodyParts.size()> kNames = {
      "Nose",           "Left Eye",   "Right Eye",   "Left Ear",   "Right Ear",   "Left Shoulder",
      "Right Shoulder", "Left Elbow", "Right Elbow", "Left Wrist", "Right Wrist", "Left Hip",
      "Right Hip",      "Left Knee",  "Right Knee",  "Left Ankle", "Right Ankle"};
  const auto index = static_cast<std::int32_t>(bodyPart);
  if (index < 0 || index >= static_cast<std::int32_t>(kNames.size())) return "Unknown";
  return kNames[static_cast<std::size_t>(index)];
}

bool setPoint(const Point& from, Point& to) {
  to = from;
  return true;
}

bool setAveragePoint(const Point& p, const Point& q, Point& to) {
  to = Point((p.x + q.x) / 2, (p.y + q.y) / 2);
  return true;
}

bool getSuperior(const Keypoints& keypoints, Point& out) {
  if (counts(keypoints, BodyPart::LeftShoulder) && counts(keypoints, BodyPart::RightShoulder)) {
    return setAveragePoint(keypoints.at(BodyPart::LeftShoulder).point, keypoints.at(BodyPart::RightShoulder).point,
                           out);
  }
  static constexpr std::array<BodyPart, 7> kRanking = {
      BodyPart::Nose,     BodyPart::LeftEye,       BodyPart::RightEye,    BodyPart::LeftEar,
      BodyPart::RightEar, BodyPart::RightShoulder, BodyPart::LeftShoulder};
  const auto* const best =
      std::find_if(kRanking.begin(), kRanking.end(), [&](BodyPart part) { return counts(keypoints, part); });
  return best != kRanking.end() && setPoint(keypoints.at(*best).point, out);
}

bool getInferior(const Keypoints& keypoints, Point& out) {
  return middleOf(keypoints, BodyPart::RightAnkle, BodyPart::LeftAnkle, out);
}

bool getHipMedian(const Keypoints& keypoints, Point& out) {
  return middleOf(keypoints, BodyPart::RightHip, BodyPart::LeftHip, out);
}

BoundingBox getBoundingBox(const Keypoints& keypoints) {
  using Limits = std::numeric_limits<int>;
  BoundingBox box(Point(Limits::max(), Limits::max()), Point(Limits::min(), Limits::min()));
  for (const auto& [part, keypoint] : keypoints) {
    if (isArm(part)) continue;
    box.topLeft.x = std::min(box.topLeft.x, keypoint.point.x);
    box.topLeft.y = std::min(box.topLeft.y, keypoint.point.y);
    box.bottomRight.x = std::max(box.bottomRight.x, keypoint.point.x);
    box.bottomRight.y = std::max(box.bottomRight.y, keypoint.point.y);
  }
  return box;
}

Edges getEdges(const Keypoints& keypoints) {
  Edges edges;
  for (const auto& [from, to] : AllEdges) {
    const Keypoint& a = keypoints.at(from);
    if (!(a.score > 0.0F)) continue;
    const Keypoint& b = keypoints.at(to);
    if (b.score > 0.0F) edges.emplace_back(a, b);
  }
  return edges;
}

bool isHead(const Edge& edge) { return edge.a.bodyPart >= BodyPart::Nose && edge.a.bodyPart <= BodyPart::RightEar; }

int skeletonAngleToRotation(float angle) {
  constexpr float kQuarterPi = 0.7853982F;
  constexpr float kThreeQuarterPi = 2.3561945F;
  constexpr float kPi = 3.1415927F;
  if (kQuarterPi <= angle && angle < kThreeQuarterPi) return 180;
  if (kThreeQuarterPi <= angle && angle <= kPi) return 90;
  if (-kPi <= angle && angle < -kThreeQuarterPi) return 90;
  if (-kThreeQuarterPi <= angle && angle < -kQuarterPi) return 0;
  if (-kQuarterPi <= angle && angle < kQuarterPi) return 270;
  return -1;
}

bool isAdjacentDetector(int detectorRotation, int rotation) {
  if (detectorRotation == 0 || detectorRotation == 180) return rotation == 90 || rotation == 270;
  if (detectorRotation == 90 || detectorRotation == 270) return rotation == 0 || rotation == 180;
  return false;
}

Skeleton::Skeleton(const Keypoints& points, const Edges& limbs, int rotation, float poseScore)
    : keypoints(points),
      edges(limbs),
      detectorRotation(rotation),
      boundingBox(getBoundingBox(points)),
      score(poseScore) {
  hasSuperior = getSuperior(keypoints, superior);
  hasInferior = getInferior(keypoints, inferior);
  hasHipMedian = getHipMedian(keypoints, hipMedian);
  if (!hasSuperior || !hasInferior) return;

  const auto dx = static_cast<float>(superior.x - inferior.x);
  const auto dy = static_cast<float>(superior.y - inferior.y);
  skeletonHeight = std::sqrt(dx * dx + dy * dy);
  hasSkeletonHeight = true;
  angle = std::atan2(dy, dx);
  hasAngle = true;
}

Skeleton::Skeleton(const Keypoints& points, int rotation, float poseScore)
    : Skeleton(points, ::getEdges(points), rotation, poseScore) {}

bool Skeleton::isValid(int streamWidth, int streamHeight) const { return !findRejection(streamWidth, streamHeight); }

std::optional<Rejection> Skeleton::findRejection(int streamWidth, int streamHeight) const {
  using Rule = Rejection::Rule;
  if (!hasSuperior && !hasInferior) {
    if (g_IsDevMode) syslog(LOG_ERR, "Skeleton::isValid rejecting skeleton with no Superior nor Inferior");
    return Rejection{Rule::noPlace};
  }
  if (hasInferior) {
    if (auto implausible = findImplausibleSize(boundingBox, streamWidth, streamHeight)) return implausible;
  }
  int rotation = 0;
  if (!getRotation(rotation)) return std::nullopt;
  if (!isAdjacentDetector(detectorRotation, rotation) && rotation != detectorRotation) {
    if (g_IsDevMode) {
      syslog(LOG_INFO,
             "Rejecting detected skeleton due to rotation mismatch: detector rotation=%d skeleton rotation=%d",
             detectorRotation, rotation);
    }
    return Rejection{Rule::turned, static_cast<float>(rotation), static_cast<float>(detectorRotation)};
  }
  if (rotation == 180 && inferior.y < kTopMargin) {
    if (g_IsDevMode) {
      syslog(LOG_INFO, "Rejecting detected skeleton due to inferior to close to top of viewport");
    }
    return Rejection{Rule::upsideDownAtTop, static_cast<float>(inferior.y), static_cast<float>(kTopMargin)};
  }
  return std::nullopt;
}

bool Skeleton::isNearEdge(int streamWidth, int streamHeight) const {
  const auto shorterSide = static_cast<float>(std::min(widthOf(boundingBox), heightOf(boundingBox)));
  const int margin = static_cast<int>(shorterSide / 8.0F);
  if (boundingBox.bottomRight.x > streamWidth - margin) {
    if (g_IsDevMode) {
      syslog(LOG_INFO, "Bounding box exceeding stream width");
      syslog(LOG_INFO, "boundingBox.bottomRight.x %d, streamWidth %d, maxMargin %d", boundingBox.bottomRight.x,
             streamWidth, margin);
    }
    return true;
  }
  if (boundingBox.bottomRight.y > streamHeight - margin) {
    if (g_IsDevMode) syslog(LOG_INFO, "Bounding box exceeding stream height");
    return true;
  }
  if (boundingBox.topLeft.x < margin || boundingBox.topLeft.y < margin) {
    if (g_IsDevMode) syslog(LOG_INFO, "Bounding box less than margin");
    return true;
  }
  return false;
}

bool Skeleton::getRotation(int& rotation) const {
  if (!hasAngle) return false;
  rotation = skeletonAngleToRotation(angle);
  return true;
}

void logSkeleton(const Skeleton& skeleton, const std::string& tag) {
  constexpr double kHalfTurn = 3.1415691;  // the divisor of the logged angle
  logPoint(tag, "Superior", skeleton.hasSuperior, skeleton.superior);
  logPoint(tag, "Inferior", skeleton.hasInferior, skeleton.inferior);
  if (skeleton.hasAngle) {
    const double angle = skeleton.angle;
    syslog(LOG_INFO, "[%s] Skeleton Angle    : %f (%f)", tag.c_str(), angle, angle / kHalfTurn);
    syslog(LOG_INFO, "[%s] Skeleton Rotation : %d", tag.c_str(), skeletonAngleToRotation(skeleton.angle));
  } else {
    syslog(LOG_INFO, "[%s] Skeleton Angle    : N/A", tag.c_str());
  }
  syslog(LOG_INFO, "[%s] Detector Rotation : %d", tag.c_str(), skeleton.detectorRotation);
  syslog(LOG_INFO, "[%s] Score             : %f", tag.c_str(), static_cast<double>(skeleton.score));
  syslog(LOG_INFO, "[%s] BBox Area          : %f", tag.c_str(),
         static_cast<double>(widthOf(skeleton.boundingBox)) * static_cast<double>(heightOf(skeleton.boundingBox)));
}
