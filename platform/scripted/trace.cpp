#include "platform/scripted/trace.h"

#include <sstream>

#include "platform/trace/trace_sink.h"

namespace {

class Lines final : public TraceSink {
 public:
  void take(const std::string& lines) override {
    std::istringstream stream(lines);
    for (std::string line; std::getline(stream, line);) scripted::trace().lines.push_back(line);
  }
};

}  // namespace

namespace scripted {

Trace& trace() {
  static Trace the_trace;
  return the_trace;
}

}  // namespace scripted

TraceSink* openTraceSink() {
  static Lines lines;
  return scripted::trace().is_wanted ? &lines : nullptr;
}
