// Somebody's words as others may be shown them.
#pragma once

#include <string>

namespace workstation {

/// Without the control characters of a terminal.
std::string shown(std::string text);

}  // namespace workstation
