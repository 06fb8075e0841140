// Whether a source can be watched, asked before anything is started.
#pragma once

#include <string>

namespace workstation {

/// Why no video can be had from the source (an absolute path or a URI), as one line that names it; empty when it can.
std::string videoProblem(const std::string& source);

}  // namespace workstation
