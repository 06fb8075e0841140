// The trace of a workstation's program: a replay's goes to the file VELMOR_TRACE, a live run's to the directory
// VELMOR_TRACE_DIR, where the environment names them.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "platform/clock/clock.h"
#include "platform/trace/trace_sink.h"
#include "platform/workstation/trace/live_explanation.h"
#include "platform/workstation/trace/trace_listener.h"
#include "platform/workstation/trace/trace_output.h"

using workstation::LiveTrace;
using workstation::ReplayTrace;

namespace {

/// The process's end has 5 s in all, and the journal is more important.
constexpr std::chrono::milliseconds kPatienceAtEnd{500};

std::string named(const char* variable) {
  const char* const value = std::getenv(variable);
  return value == nullptr ? "" : value;
}

/// Never destroyed, as all that others hold: lines come until the process ends.
ReplayTrace* replay_trace = nullptr;
LiveTrace* live_trace = nullptr;

/// The program's main returns 0 whatever became of its trace. From before main, so that it comes after nearly all else.
[[maybe_unused]] const int registered = on_exit(
    [](int status, void* /*unused*/) {
      if (live_trace != nullptr) live_trace->finish(kPatienceAtEnd);
      if (replay_trace == nullptr || replay_trace->finish() || status != 0) return;
      std::fflush(nullptr);
      _exit(EXIT_FAILURE);
    },
    nullptr);

/// What is watched live: for whoever covers people now or asks why, and for later where a directory is named.
class LiveSink final : public TraceSink {
 public:
  void take(const std::string& lines) override {
    workstation::tellTraceListener(lines);
    workstation::tellLiveExplanation(lines);
    if (live_trace != nullptr) live_trace->take(lines);
  }
};

TraceSink* makeSink() {
  if (ticker_clock::isReplay()) {
    if (const std::string file = named("VELMOR_TRACE"); !file.empty()) replay_trace = new ReplayTrace(file);
    return replay_trace;
  }
  if (const std::string directory = named("VELMOR_TRACE_DIR"); !directory.empty()) {
    live_trace = new LiveTrace(directory);
  }
  return new LiveSink;
}

}  // namespace

TraceSink* openTraceSink() {
  static TraceSink* const the_sink = makeSink();
  return the_sink;
}
