// Events in the trace.
#pragma once

#include <cstdint>
#include <string>

#include "platform/clock/clock.h"

namespace workstation {

/// A change has got its number in the run: a line of the trace says so, where somebody wants one. From any thread.
void traceEvent(std::uint64_t number, const std::string& run, TimeStamp time, const std::string& name,
                bool active) noexcept;

}  // namespace workstation
