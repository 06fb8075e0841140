// An evaluation as one page for a browser that needs nothing else: no scripts, no other files.
#pragma once

#include <string>

#include "evaluate/judging/judging.h"

namespace evaluate {

/// The page holds pictures of people: who writes it down keeps it from others. `folder` is named in it.
std::string reportOf(const Evaluation& evaluation, const std::string& folder);

}  // namespace evaluate
