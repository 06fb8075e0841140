#include "platform/workstation/trace/trace_listener.h"

namespace workstation {
namespace {

/// Constant at first, so that others may set it before main.
constinit TraceListener the_listener = nullptr;

}  // namespace

void setTraceListener(TraceListener listener) { the_listener = listener; }

void tellTraceListener(const std::string& lines) {
  if (the_listener != nullptr) the_listener(lines);
}

}  // namespace workstation
