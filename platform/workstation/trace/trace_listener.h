// For whoever needs the lines of a trace while the cycle that they are about is under way.
#pragma once

#include <string>

namespace workstation {

/// Is given what a live run's trace is given, on the main loop's thread; must not throw, and returns at once.
using TraceListener = void (*)(const std::string& lines);

/// One for the process, set before main.
void setTraceListener(TraceListener listener);
/// For whoever takes the trace's lines.
void tellTraceListener(const std::string& lines);

}  // namespace workstation
