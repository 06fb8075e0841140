#include "tests/video/captured_log.h"

#include <array>
#include <cstdarg>
#include <cstdio>

std::vector<LogLine>& capturedLog() {
  static std::vector<LogLine> lines;
  return lines;
}

extern "C" void syslog(int level, const char* format, ...) {
  std::array<char, 1024> text = {};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  capturedLog().push_back({level, text.data()});
}
