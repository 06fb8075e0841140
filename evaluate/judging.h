// What came of an evaluation: each recording's alarms beside what happened, and why they differ.
#pragma once

#include <array>
#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "evaluate/scoring.h"
#include "evaluate/watched.h"
#include "platform/workstation/launcher/launch_request.h"

namespace evaluate {

/// Who looks at the recording, and with which settings.
struct Column {
  bool sees_truth = false;          ///< the true people instead of the networks
  workstation::ParameterGroup set;  ///< counts instead of the recording's own

  [[nodiscard]] std::string name() const;
  /// "KEY=VALUE KEY=VALUE", empty for the recording's own.
  [[nodiscard]] std::string setText() const;
};

/// A difference, why it is, and how it looks there.
struct ToldDifference {
  Difference difference;
  std::string because;
  bool also_in_counterpart = false;  ///< with the same settings and the other eyes
  std::string jpeg;                  ///< empty without a picture
};

/// Of one column for one recording.
struct Outcome {
  std::array<Intervals, kEvents.size()> alarms;  ///< by event
  std::array<Sum, kEvents.size()> sums;
  std::vector<ToldDifference> differences;  ///< in the order of time
};

struct Recording {
  std::string name;
  std::filesystem::path video;
  Happened happened;
  std::map<std::size_t, Outcome> outcomes;  ///< by column; no reference where there is no truth
};

struct Evaluation {
  std::vector<Column> columns;        ///< networks and true people side by side; the recordings' own settings first
  std::vector<Recording> recordings;  ///< by name; only what could be evaluated
  std::vector<std::string> problems;  ///< a line each

  /// How many recordings have the column.
  [[nodiscard]] std::ptrdiff_t count(std::size_t column) const;
  /// Of all recordings.
  [[nodiscard]] Sum sum(std::size_t column, Event event) const;
};

inline constexpr std::size_t kNetworksColumn = 0;
/// The same settings with the other eyes.
constexpr std::size_t counterpartOf(std::size_t column) { return column ^ 1U; }

/// What a run made of a recording.
struct Seen {
  Watched watched;
  std::filesystem::path trace;
};

/// Fills the recording's outcomes, by column. Throws std::runtime_error when a trace cannot be read.
void judge(const std::map<std::size_t, Seen>& seen, Recording& recording);

}  // namespace evaluate
