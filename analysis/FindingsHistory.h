// The latest findings of every tracked person, and what follows from them: movement, expected places, activity.
#pragma once

#include <cstddef>
#include <cstdint>

#include "app/finding.h"

/// Why a finding is none of somebody lying helpless on the floor; the first reason in this order.
enum class FallVeto : std::int32_t { none, inBed, inExclusion, unknownActivity, standing, sitting, nearEdge, moving };
FallVeto whatRulesOutFall(const Finding& finding);

/// In 1/100000 of the body's height per ms, a tenth of the height per second: who is faster moves.
inline constexpr float kVelocityThreshold = 10.0F;

class FindingsHistory {
 public:
  /// Keeps at most `historyDepth` findings of each person.
  explicit FindingsHistory(std::size_t historyDepth) : m_historyDepth(historyDepth) {}

  /// Stamps the time into all findings of a cycle and adds each.
  void add(FindingVector& findings);
  /// Appends a finding. From historyDepth - 1 findings of the person on, the newest one is given averages, movement,
  /// expected places and an activity; what earlier findings were given stays.
  void add(Finding& finding);
  /// Forgets a person, known or not.
  void remove(int id);
  /// A copy of a person's findings; false, with `out` untouched, for an unknown id.
  bool get(int id, Findings& out) const;
  /// Throws std::out_of_range for an unknown id. Valid until the next change.
  const Finding& getLatestFinding(int id) const;
  /// In ascending order.
  IDVector getIDs() const;
  int getNumberOfEntries() const;

  // The steps of add, in their order. Each writes into the newest of a person's findings.
  void setAverageInferior(Findings& findings) const;
  void setAverageSuperior(Findings& findings) const;
  void setAverageHipMedian(Findings& findings) const;
  void setAverageSkeletonHeight(Findings& findings) const;
  void setExpectedLocations(Findings& findings) const;
  void setActivity(Findings& findings) const;

 private:
  FindingsMap m_findingsMap;
  std::size_t m_historyDepth;
};

extern FindingsHistory g_findingsHistory;
