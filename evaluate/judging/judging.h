// What came of an evaluation: each recording's alarms beside what happened, and why they differ.
#pragma once

#include <array>
#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "evaluate/judging/scoring.h"
#include "evaluate/judging/watched.h"
#include "platform/workstation/launcher/launch_request.h"

namespace evaluate {

/// Who looks at the recording, and with which settings.
struct Column {
  bool sees_truth = false;          ///< the true people instead of the networks
  std::string settings;             ///< NAME.WORD.settings.json instead of the recording's own; empty for those
  workstation::ParameterGroup set;  ///< counts instead of the recording's own

  [[nodiscard]] std::string name() const;
  /// "WORD settings" or "KEY=VALUE KEY=VALUE", empty for the recording's own.
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
  std::string name;  ///< of the folder, "night/falls/lamp"
  std::filesystem::path video;
  Happened happened;
  std::map<std::size_t, Outcome> outcomes;  ///< by column; no reference where there is no truth
};

struct Evaluation {
  std::vector<Column> columns;        ///< networks and true people side by side; the recordings' own settings first
  std::vector<Recording> recordings;  ///< by name; only what could be evaluated
  std::vector<std::string> problems;  ///< a line each

  /// The folders that hold some of the recordings and not all, "night/falls/", by name, the whole folder ("") last.
  [[nodiscard]] std::vector<std::string> groups() const;
  /// How many recordings of the group have the column.
  [[nodiscard]] std::ptrdiff_t count(std::size_t column, const std::string& group) const;
  /// Of all recordings of the group.
  [[nodiscard]] Sum sum(std::size_t column, Event event, const std::string& group) const;
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
