#include "tests/video/captured_log.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

std::vector<LogLine>& capturedLog() {
  static std::vector<LogLine> lines;
  return lines;
}

bool hasLogged(int level, const std::string& beginning) {
  return std::any_of(capturedLog().begin(), capturedLog().end(),
                     [&](const LogLine& line) { return line.level == level && line.text.starts_with(beginning); });
}

extern "C" void syslog(int level, const char* format, ...) {
  std::array<char, 1024> text = {};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  capturedLog().push_back({level, text.data()});
}
