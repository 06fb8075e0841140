// A system log that keeps every line, so that scenarios see what is logged and how severely.
#pragma once

#include <string>
#include <vector>

namespace scripted {

struct LogLine {
  int level;  ///< LOG_ERR, ...
  std::string text;
  bool operator==(const LogLine&) const = default;
};

/// Everything logged since the last clear().
std::vector<LogLine>& systemLog();

}  // namespace scripted
