// Where a trace's lines go in a scenario: into memory.
#pragma once

#include <string>
#include <vector>

namespace scripted {

struct Trace {
  bool is_wanted = false;          ///< openTraceSink() is null otherwise
  std::vector<std::string> lines;  ///< without their line feeds
};

Trace& trace();

}  // namespace scripted
