// Stands in for the system log: keeps every line, so that tests see what is logged and how severely.
#pragma once

#include <string>
#include <vector>

struct LogLine {
  int level;
  std::string text;
  bool operator==(const LogLine&) const = default;
};

/// Everything logged since the last clear().
std::vector<LogLine>& capturedLog();
