// A trace in sentences, for whoever reads a terminal.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace workstation {

struct ExplainRequest {
  std::string trace;              ///< a file, or the directory of what was watched live
  std::optional<std::string> at;  ///< seconds, or a live trace's local time "HH:MM[:SS[.s]]": all about the cycle then
  std::optional<std::uint64_t> event;  ///< its number: that change and what led to it
};

/// Lines, each with its line feed: without `at` and `event`, how each event began and ended. Throws std::runtime_error
/// with one line: file, line where there is one, what is wrong and what is allowed.
std::string explainTrace(const ExplainRequest& request);

}  // namespace workstation
