#include "analysis/detection_processing.h"

#include <syslog.h>

#include <algorithm>
#include <chrono>
#include <cstddef>

#include "analysis/FindingsHistory.h"
#include "analysis/area_of_interest.h"
#include "analysis/tracker.h"
#include "app/detection_params.h"
#include "app/observer.h"
#include "app/process_state.h"
#include "events/event_manager.h"
#include "events/event_names.h"
#include "platform/clock/clock.h"

namespace {

constexpr float kOverlap = 0.2F;         // of the smaller box
constexpr int kMostFramesOutOfBed = 10;  // one more, and the patient counts as out of bed

/// A bounding box in floats.
struct Box {
  float left, top, right, bottom;

  explicit Box(const BoundingBox& box)
      : left(static_cast<float>(box.topLeft.x)),
        top(static_cast<float>(box.topLeft.y)),
        right(static_cast<float>(box.bottomRight.x)),
        bottom(static_cast<float>(box.bottomRight.y)) {}

  float area() const { return (right - left) * (bottom - top); }
};

float intersectionOf(const Box& a, const Box& b) {
  const float x_overlap = std::max(0.0F, std::min(a.right, b.right) - std::max(a.left, b.left));
  const float y_overlap = std::max(0.0F, std::min(a.bottom, b.bottom) - std::max(a.top, b.top));
  return x_overlap * y_overlap;
}

/// Where the point lies; the first bed area that holds it is marked as occupied (beds 1 to 3).
Footings footingOf(const t_XYPoint& point, bool (&patientInBed)[3]) {
  for (int bed = 1; bed <= 3; ++bed) {
    if (g_AreaofInterest.is_detected(bed, point)) {
      patientInBed[bed - 1] = true;
      return Footings::bed;
    }
  }
  return g_AreaofInterest.is_excluded(point) ? Footings::exclusion : Footings::floor;
}

void startOrStop(const char* eventName, bool active) {
  if (active) {
    g_EventManager->sendEventStarted(eventName);
  } else {
    g_EventManager->sendEventStopped(eventName);
  }
}

void stopIfStarted(const char* eventName) {
  if (g_EventManager->isEventStarted(eventName)) {
    g_EventManager->sendEventStopped(eventName);
  }
}

}  // namespace

int DetectionProcessing::m_NumFramesWithMissingPerson = 0;
bool DetectionProcessing::m_SomeoneHasFallen = false;

bool DetectionProcessing::doTheseOverlap(int thisIndex, int otherIndex, int& smallerAreaIndex) {
  const Box thisBox(g_skeletons[static_cast<std::size_t>(thisIndex)].boundingBox);
  const Box otherBox(g_skeletons[static_cast<std::size_t>(otherIndex)].boundingBox);
  const float intersectionArea = intersectionOf(thisBox, otherBox);
  if (intersectionArea <= 0.0F) {
    return false;
  }
  const bool otherIsSmaller = otherBox.area() < thisBox.area();
  const float smallerArea = otherIsSmaller ? otherBox.area() : thisBox.area();
  if (smallerArea <= 0.0F) {
    syslog(LOG_INFO, "SmallerArea is 0");
    return false;
  }
  const float share = intersectionArea / smallerArea;
  if (share <= kOverlap) {
    return false;
  }
  smallerAreaIndex = otherIsSmaller ? otherIndex : thisIndex;
  if (g_observer != nullptr) {
    const int largerAreaIndex = otherIsSmaller ? thisIndex : otherIndex;
    g_observer->overlapFound(static_cast<std::size_t>(smallerAreaIndex), static_cast<std::size_t>(largerAreaIndex),
                             share, kOverlap);
  }
  return true;
}

std::set<int> DetectionProcessing::findDuplicateSkeletons(int thisIndex) {
  std::set<int> duplicates;
  for (int otherIndex = thisIndex + 1; otherIndex < static_cast<int>(g_skeletons.size()); ++otherIndex) {
    int nSmallerIndex = 0;
    if (doTheseOverlap(thisIndex, otherIndex, nSmallerIndex)) {
      duplicates.insert(nSmallerIndex);
    }
  }
  return duplicates;
}

void DetectionProcessing::applyNonMaximumSuppression() {
  std::set<int> allDuplicateSkeletons;
  for (int i = 0; i < static_cast<int>(g_skeletons.size()); ++i) {
    const std::set<int> duplicateSkeletons = findDuplicateSkeletons(i);
    if (duplicateSkeletons.empty()) {
      continue;
    }
    allDuplicateSkeletons.insert(duplicateSkeletons.begin(), duplicateSkeletons.end());
    if (g_IsDevMode) {
      syslog(LOG_INFO, "applyNonMaximumSuppression deleting %d skeletons", static_cast<int>(duplicateSkeletons.size()));
    }
  }
  Skeletons newSkeletons;
  for (int i = 0; i < static_cast<int>(g_skeletons.size()); ++i) {
    if (!allDuplicateSkeletons.contains(i)) {
      newSkeletons.push_back(g_skeletons[static_cast<std::size_t>(i)]);
    }
  }
  g_skeletons = newSkeletons;
}

void DetectionProcessing::monitor_AOI() {
  bool patientInBed[3] = {};
  applyNonMaximumSuppression();
  FindingVector findings;
  for (const auto& [aTrackedId, trackedSkeleton] : g_Tracker.track_skeletons(g_skeletons)) {
    if (!trackedSkeleton.hasSuperior) {
      continue;
    }
    const t_one_centroid aTrackedSkeletonCentroid(trackedSkeleton.superior.x, trackedSkeleton.superior.y);
    const Footings thisFooting = footingOf(aTrackedSkeletonCentroid, patientInBed);
    findings.emplace_back(aTrackedId, aTrackedSkeletonCentroid, trackedSkeleton, thisFooting);
  }
  const bool aBedIsEmpty = (g_DetectionParams.b_Detection1Active && !patientInBed[0]) ||
                           (g_DetectionParams.b_Detection2Active && !patientInBed[1]) ||
                           (g_DetectionParams.b_Detection3Active && !patientInBed[2]);
  m_NumFramesWithMissingPerson = aBedIsEmpty ? m_NumFramesWithMissingPerson + 1 : 0;
  g_findingsHistory.add(findings);
  if (g_observer != nullptr) g_observer->bedsWatched(patientInBed, m_NumFramesWithMissingPerson, kMostFramesOutOfBed);
}

void DetectionProcessing::fallen_detection() {
  m_SomeoneHasFallen = false;
  for (const int id : g_findingsHistory.getIDs()) {
    Findings findings;
    if (!g_findingsHistory.get(id, findings)) {
      syslog(LOG_INFO, "fallen_detection: get failed");
    } else if (findings.back().activity == Activity::fallen) {
      m_SomeoneHasFallen = true;
      if (g_observer != nullptr) g_observer->fallFound(id);
      return;
    }
  }
}

void DetectionProcessing::manage_events() {
  if (g_DetectionParams.b_DetectPatientOutOfBed) {
    startOrStop(kOutOfBedEvent, m_NumFramesWithMissingPerson > kMostFramesOutOfBed);
  } else {
    stopIfStarted(kOutOfBedEvent);
  }
  if (g_DetectionParams.b_DetectFallenPersons) {
    startOrStop(kFallEvent, m_SomeoneHasFallen);
  } else {
    stopIfStarted(kFallEvent);
  }
}

int getMillisecondsBetween(const timeval& t1, const timeval& t2) {
  return static_cast<int>((t2.tv_sec * 1000 + t2.tv_usec / 1000) - (t1.tv_sec * 1000 + t1.tv_usec / 1000));
}

int getMillisecondsSince(const timeval& t) {
  using std::chrono::duration_cast;
  const auto sinceEpoch = duration_cast<std::chrono::microseconds>(ticker_clock::now().time_since_epoch());
  const auto seconds = duration_cast<std::chrono::seconds>(sinceEpoch);
  return getMillisecondsBetween(t, {seconds.count(), (sinceEpoch - seconds).count()});
}
