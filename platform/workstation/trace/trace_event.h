// Events in the trace.
#pragma once

#include <cstdint>
#include <string>

#include "platform/clock/clock.h"

namespace workstation {

/// A change has got its number in the run: a line of the trace says so, where somebody wants one. From any thread.
void traceEvent(std::uint64_t number, const std::string& run, TimeStamp time, const std::string& name,
                bool active) noexcept;

/// The same of a beginning or end of watching, and `why` it ended: a trouble's name, or empty.
void traceWatching(std::uint64_t number, const std::string& run, TimeStamp time, bool active,
                   const std::string& why) noexcept;

}  // namespace workstation
