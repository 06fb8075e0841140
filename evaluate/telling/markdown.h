// An evaluation for a page of the documentation.
#pragma once

#include <string>

#include "evaluate/judging/judging.h"

namespace evaluate {

/// A table of the sums, how many of the differences better eyes would not help, and every difference of the recordings'
/// own settings with its reason, in Markdown. `command` is how it was made.
std::string markdownOf(const Evaluation& evaluation, const std::string& command);

/// The page with `text` between the lines kMarkBegin and kMarkEnd, in place of what stands there. Throws
/// std::runtime_error with one line when it does not have both, once.
std::string placedIn(const std::string& page, const std::string& text);

inline constexpr const char* kMarkBegin = "<!-- evaluation: begin -->";
inline constexpr const char* kMarkEnd = "<!-- evaluation: end -->";

}  // namespace evaluate
