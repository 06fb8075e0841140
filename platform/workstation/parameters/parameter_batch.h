// Many parameters set at once: one change of the file instead of one for each.
#pragma once

#include <string>

namespace workstation {

/// While one lives, ax_parameter_set changes the values in memory only. One at a time, on the program's main thread.
class ParameterBatch {
 public:
  /// `by`: who sets them, for the journal of changes; empty for somebody on this machine.
  explicit ParameterBatch(const std::string& by = "");
  ~ParameterBatch();
  ParameterBatch(const ParameterBatch&) = delete;
  ParameterBatch& operator=(const ParameterBatch&) = delete;

  /// Writes what was set; on disk on return, all of it or nothing. False after a log line when that is impossible: the
  /// values then stay in memory and go with the next change.
  bool finish();
};

}  // namespace workstation
