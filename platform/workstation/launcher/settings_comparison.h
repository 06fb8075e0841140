// What other settings would have made of a trace: the alarms that they gain and lose.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/workstation/launcher/launch_request.h"
#include "platform/workstation/launcher/retrace_plan.h"

namespace workstation {

/// What a group of settings leads to.
struct SettingsOutcome {
  ParameterGroup set;  ///< empty for the trace with its own
  std::vector<Alarm> alarms;
};

/// The alarms in a replay's JSON lines. Throws std::runtime_error.
std::vector<Alarm> alarmsIn(const std::string& lines);

/// How a comparison is told.
enum class Table {
  kRecording,  ///< a table; times count from the recording's beginning
  kLive,       ///< a table; times are of the day
  kJson,       ///< an object a line
};

/// The first outcome is what the others are compared with. An alarm that begins at most 5 s earlier or later is the
/// same.
std::string comparisonOf(const std::vector<SettingsOutcome>& outcomes, Table table);

/// Lines to stand below the comparison: why the trace cannot tell exactly what was told when it was made, and which
/// alarms differ. Empty where nothing is to be said.
std::string remarksOn(const SettingsOutcome& recorded, const RecordedRun& run, Table table);

/// Replays the request's trace with its own settings and with each group, as many at once as there are cores, and
/// prints the comparison. The exit status; throws std::runtime_error with one line before anything is started.
int compareSettings(const LaunchRequest& request, const std::filesystem::path& source_tree);

}  // namespace workstation
