// The shared vocabulary of a detected person: body parts, keypoints, boxes and the skeleton they make up.
// All coordinates are whole pixels of the analysed picture, x to the right, y downward.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// A position in pixels.
struct Point {
  Point() = default;
  Point(int px, int py) : x(px), y(py) {}

  int x = 0;
  int y = 0;
};

/// The parts of the body that the pose model sees. The values are the keypoint order of its output tensors.
enum class BodyPart : std::int32_t {
  Nose = 0,
  LeftEye,
  RightEye,
  LeftEar,
  RightEar,
  LeftShoulder,
  RightShoulder,
  LeftElbow,
  RightElbow,
  LeftWrist,
  RightWrist,
  LeftHip,
  RightHip,
  LeftKnee,
  RightKnee,
  LeftAnkle,
  RightAnkle
};

/// One part of a body at a place in the picture. A model's score runs from 0 to 1; a merged one may exceed 1.
struct Keypoint {
  Keypoint() = default;
  Keypoint(const Point& at, BodyPart part, float confidence) : point(at), bodyPart(part), score(confidence) {}

  Point point;
  BodyPart bodyPart = BodyPart::Nose;
  float score = 0.0F;
};

/// A limb to draw, between copies of its two keypoints.
struct Edge {
  Edge(const Keypoint& from, const Keypoint& to) : a(from), b(to) {}

  Keypoint a;
  Keypoint b;
};

/// An upright box in pixels: its width is bottomRight.x - topLeft.x, its height bottomRight.y - topLeft.y.
struct BoundingBox {
  BoundingBox() = default;
  BoundingBox(const Point& first, const Point& last) : topLeft(first), bottomRight(last) {}

  Point topLeft;
  Point bottomRight;
};

using Keypoints = std::map<BodyPart, Keypoint>;
using Edges = std::vector<Edge>;
using EdgeSpecificationVector = std::vector<std::pair<BodyPart, BodyPart>>;

/// Every body part, in increasing order.
inline constexpr std::array<BodyPart, 17> BodyParts = {
    BodyPart::Nose,         BodyPart::LeftEye,       BodyPart::RightEye,  BodyPart::LeftEar,    BodyPart::RightEar,
    BodyPart::LeftShoulder, BodyPart::RightShoulder, BodyPart::LeftElbow, BodyPart::RightElbow, BodyPart::LeftWrist,
    BodyPart::RightWrist,   BodyPart::LeftHip,       BodyPart::RightHip,  BodyPart::LeftKnee,   BodyPart::RightKnee,
    BodyPart::LeftAnkle,    BodyPart::RightAnkle};

/// The limbs of a skeleton, in drawing order. The nose joins the ears both straight and through the eyes.
extern const EdgeSpecificationVector AllEdges;

/// How much each body part counts when two skeletons are compared.
extern const std::map<BodyPart, float> bodyPartWeights;

/// "Left Shoulder" and the like; "Unknown" for a value that is no body part.
std::string bodyPartToName(BodyPart bodyPart);

/// Copies a point. Always true.
bool setPoint(const Point& from, Point& to);
/// The middle of two points, truncated toward zero. Always true.
bool setAveragePoint(const Point& p, const Point& q, Point& to);

/// Top of the body: the mid-shoulder when both shoulders are seen, else the highest-ranked head point, else a lone
/// shoulder. False, with `out` untouched, when none of them scores above 0.1.
bool getSuperior(const Keypoints& keypoints, Point& out);
/// Feet: the middle of the ankles, or the one that is there, whatever their scores. False when there is none.
bool getInferior(const Keypoints& keypoints, Point& out);
/// The middle of the hips, or the one that is there, whatever their scores. False when there is none.
bool getHipMedian(const Keypoints& keypoints, Point& out);

/// The box around all keypoints but elbows and wrists, whatever their scores, so that outstretched arms do not widen
/// it. Inverted (the largest int to the smallest) when there is none.
BoundingBox getBoundingBox(const Keypoints& keypoints);

/// The limbs of AllEdges whose two ends score above 0, in that order. Throws std::out_of_range for a missing part.
Edges getEdges(const Keypoints& keypoints);

/// Whether the edge starts at the nose, an eye or an ear.
bool isHead(const Edge& edge);

/// The quarter turn (0, 90, 180, 270) of a body whose axis, from feet to head, points along `angle` radians: 0 is
/// upright, 90 has the head to the left of the feet, 270 to the right. -1 for anything outside [-pi, pi].
int skeletonAngleToRotation(float angle);

/// Whether both are rotations of a run (0, 90, 180, 270) and a quarter turn apart.
bool isAdjacentDetector(int detectorRotation, int rotation);

/// Why a skeleton cannot be a person.
struct Rejection {
  enum class Rule : std::int32_t { noPlace, tooSmall, tooLarge, turned, upsideDownAtTop };

  Rule rule;
  float value = 0.0F;  ///< what was found: share of the picture, degrees or pixels
  float limit = 0.0F;  ///< what it was held against; the run's rotation for `turned`
};

/// A detected person. What is derived from the keypoints is computed once, at construction.
struct Skeleton {
  /// No keypoints, nothing derived, detectorRotation -2.
  Skeleton() = default;
  /// With the given limbs. `rotation` is that of the model run that found the person, in degrees.
  Skeleton(const Keypoints& points, const Edges& limbs, int rotation, float poseScore);
  /// With the limbs of getEdges. `rotation` -1 marks a skeleton fused from several runs.
  Skeleton(const Keypoints& points, int rotation, float poseScore);

  /// Whether the skeleton may be a person in a picture of that size (pixels): it has a place, covers a plausible share
  /// of the picture, and lies along or across the orientation of the run that found it.
  bool isValid(int streamWidth, int streamHeight) const;
  /// The first rule that speaks against it; none for a valid one.
  std::optional<Rejection> findRejection(int streamWidth, int streamHeight) const;

  /// Whether the box comes within an eighth of its shorter side of the picture's edge, or crosses it.
  bool isNearEdge(int streamWidth, int streamHeight) const;

  /// The body's quarter turn (see skeletonAngleToRotation). False, with `rotation` untouched, when it has no angle.
  bool getRotation(int& rotation) const;

  Keypoints keypoints;
  Edges edges;
  Point superior;  ///< top of the body
  bool hasSuperior = false;
  Point inferior;  ///< feet
  bool hasInferior = false;
  Point hipMedian;
  bool hasHipMedian = false;
  bool hasSkeletonHeight = false;
  float skeletonHeight = 0.0F;  ///< pixels from inferior to superior
  bool hasAngle = false;
  float angle = 0.0F;         ///< direction from inferior to superior, radians in (-pi, pi]; upright is near -pi/2
  int detectorRotation = -2;  ///< run that found it: 0, 90, 180, 270; -1 fused from several, -2 unknown
  BoundingBox boundingBox;    ///< arms excluded
  float score = 0.0F;         ///< the pose score; the sum of both for a merged skeleton
};

using Skeletons = std::vector<Skeleton>;

/// The fused skeletons of the current cycle.
extern Skeletons g_skeletons;

/// Writes what was derived from a skeleton to the system log, each line tagged.
void logSkeleton(const Skeleton& skeleton, const std::string& tag);
