// One finding: what is known of one tracked person in one analysis cycle.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <vector>

#include "app/common_structs.h"
#include "platform/clock/clock.h"
#include "pose/skeleton.h"

/// Where a person's reference point lies: in an active bed area, in an active exclusion area, elsewhere.
enum class Footings : std::int32_t { unknown = 0, floor = 1, bed = 2, exclusion = 3 };

/// `sitting` is never assigned and treated like `standing`.
enum class Activity : std::int32_t { unknownActivity = 0, standing = 1, sitting = 2, lying_down = 3, fallen = 4 };

struct FPoint {
  float x = 0.0F;
  float y = 0.0F;
};

/// All positions are pixels of the analysis picture. A "hasValid" flag speaks of the field after it. What is averaged
/// is averaged over the person's history, and only once that is long enough; until then the fields keep these defaults.
struct one_find {
  /// Legs at least twice as long as the torso in the picture belong to somebody who does not stand.
  static constexpr float minTorsoToLegsRatio = 0.5F;

  one_find(int personId, const t_one_centroid& referencePoint, const Skeleton& trackedSkeleton, Footings where)
      : id(personId), centroid(referencePoint), skeleton(trackedSkeleton), footing(where) {}

  /// How far, in pixels, the superior point of somebody upright may lie from where it is expected: half the short side
  /// of the bounding box, and the whole short side of a box more than twice as long as wide.
  float getExpectedSuperiorAreaRadius() const;
  /// Length of the torso over length of the legs. False, with `ratio` untouched, when an average point is missing or
  /// the legs have no length.
  bool getTorsoToLegsRatio(float& ratio) const;

  int id;                   ///< the tracker's id of the person
  TimeStamp timeStamp;      ///< when the finding was recorded
  t_one_centroid centroid;  ///< the person's reference point: the skeleton's superior point
  Skeleton skeleton;
  float averageSkeletonHeight = 0.0F;
  bool hasValidAverageSkeletonHeight = false;
  FPoint instantVelocity;  ///< of the centroid from the oldest to this finding, pixels per ms
  FPoint averageVelocity;  ///< mean of the instantVelocity of all findings, pixels per ms
  bool hasValidAverageNormalFactorVelocity = false;
  FPoint averageNormalFactorVelocity;  ///< averageVelocity in 1/100000 of the body's height per ms
  bool hasValidAverageInferior = false;
  Point averageInferior;
  bool hasValidAverageSuperior = false;
  Point averageSuperior;  ///< moved along with the feet when those are placed on the floor
  bool hasValidExpectedInferior = false;
  Point expectedInferior;  ///< where the feet appear according to the floor calibration
  bool hasValidExpectedSuperior = false;
  Point expectedSuperior;  ///< where the superior point of an upright person would appear
  bool hasValidAverageHipMedian = false;
  Point averageHipMedian;
  bool isMoving = false;
  Activity activity = Activity::unknownActivity;
  rectangle rect;
  Footings footing;
  int seconds = 0;
};

using Finding = one_find;
/// One person's findings, the oldest first.
using Findings = std::deque<one_find>;
using FindingVector = std::vector<one_find>;
using t_findings_list = FindingVector;
/// Person id to that person's findings.
using FindingsMap = std::map<int, Findings>;
using IDVector = std::vector<int>;
