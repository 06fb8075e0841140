// Whether a source can be watched, asked before anything is started.
#pragma once

#include <string>

namespace workstation {

/// Why no video can be had from the source (an absolute path or a URI), as one line that names it; empty when it can.
/// For a live run a source that is no file need not answer yet, and nothing of it is opened.
std::string videoProblem(const std::string& source, bool replay);

}  // namespace workstation
