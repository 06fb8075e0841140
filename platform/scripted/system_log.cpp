#include "platform/scripted/system_log.h"

#include <array>
#include <cstdarg>
#include <cstdio>

namespace scripted {

std::vector<LogLine>& systemLog() {
  static std::vector<LogLine> lines;
  return lines;
}

}  // namespace scripted

extern "C" void syslog(int level, const char* format, ...) {
  std::array<char, 1024> text = {};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  scripted::systemLog().push_back({level, text.data()});
}
