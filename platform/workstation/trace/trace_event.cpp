#include "platform/workstation/trace/trace_event.h"

#include <syslog.h>

#include <exception>
#include <nlohmann/json.hpp>

#include "platform/trace/trace_sink.h"

namespace workstation {

namespace {

void tellMissing(const std::exception& error) {
  ::syslog(LOG_ERR, "An event is missing in the trace: %s", error.what());
}

void traceLine(const char* kind, std::uint64_t number, const std::string& run, TimeStamp time,
               const nlohmann::ordered_json& what) noexcept {
  try {
    TraceSink* const sink = openTraceSink();
    if (sink == nullptr) return;
    nlohmann::ordered_json line = {{"kind", kind}, {"seq", number}};
    // A replay's file is one run, and the same bytes whenever it is made.
    if (!ticker_clock::isReplay()) line["run"] = run;
    line["ns"] = time.time_since_epoch().count();
    line.update(what);
    sink->take(line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
  } catch (const std::exception& error) {
    tellMissing(error);
  }
}

}  // namespace

void traceEvent(std::uint64_t number, const std::string& run, TimeStamp time, const std::string& name,
                bool active) noexcept {
  traceLine("event", number, run, time, {{"name", name}, {"active", active}});
}

void traceWatching(std::uint64_t number, const std::string& run, TimeStamp time, bool active,
                   const std::string& why) noexcept {
  try {
    nlohmann::ordered_json what = {{"active", active}};
    if (!why.empty()) what["why"] = why;
    traceLine("watching", number, run, time, what);
  } catch (const std::exception& error) {
    tellMissing(error);
  }
}

}  // namespace workstation
