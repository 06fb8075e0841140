// The decision layer of a cycle: from this cycle's skeletons to the two events.
#pragma once

#include <sys/time.h>

#include <set>

/// The cycle calls monitor_AOI, fallen_detection and manage_events, in this order. They work on the process-wide
/// skeletons, tracker, areas, findings history, settings and events.
class DetectionProcessing {
 public:
  DetectionProcessing() = delete;

  /// Removes duplicates from g_skeletons: of two boxes that overlap, the smaller.
  static void applyNonMaximumSuppression();
  /// Whether two skeletons' boxes share more than a fifth of the smaller one; then names the smaller one (of two
  /// equals, `thisIndex`), else leaves smallerAreaIndex untouched. Both indices must be within g_skeletons.
  static bool doTheseOverlap(int thisIndex, int otherIndex, int& smallerAreaIndex);
  /// The indices to drop after comparing a skeleton with all later ones.
  static std::set<int> findDuplicateSkeletons(int thisIndex);

  /// Tracks the skeletons, places every person in bed, exclusion area or on the floor, records the findings and counts
  /// the cycles in which an active bed is empty.
  static void monitor_AOI();
  /// Looks for a person who has fallen.
  static void fallen_detection();
  /// Starts and stops the events.
  static void manage_events();

 private:
  static int m_NumFramesWithMissingPerson;  ///< consecutive cycles in which an active bed was empty
  static bool m_SomeoneHasFallen;           ///< in this cycle
};

/// Milliseconds from t1 to t2, each first truncated to milliseconds.
int getMillisecondsBetween(const timeval& t1, const timeval& t2);
/// Milliseconds from t to now.
int getMillisecondsSince(const timeval& t);
