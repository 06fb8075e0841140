#include "platform/workstation/trace/trace_event.h"

#include <syslog.h>

#include <exception>
#include <nlohmann/json.hpp>

#include "platform/trace/trace_sink.h"

namespace workstation {

void traceEvent(std::uint64_t number, const std::string& run, TimeStamp time, const std::string& name,
                bool active) noexcept {
  try {
    TraceSink* const sink = openTraceSink();
    if (sink == nullptr) return;
    nlohmann::ordered_json line = {{"kind", "event"}, {"seq", number}};
    // A replay's file is one run, and the same bytes whenever it is made.
    if (!ticker_clock::isReplay()) line["run"] = run;
    line["ns"] = time.time_since_epoch().count();
    line["name"] = name;
    line["active"] = active;
    sink->take(line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
  } catch (const std::exception& error) {
    ::syslog(LOG_ERR, "An event is missing in the trace: %s", error.what());
  }
}

}  // namespace workstation
