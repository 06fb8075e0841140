// An evaluation as a table for the terminal, and as JSON.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "evaluate/judging/judging.h"

namespace evaluate {

/// Two rows for each recording and column, one for each event, then the recordings of each folder together and all,
/// then every difference with its reason.
std::string tableOf(const Evaluation& evaluation);

/// One object: the numbers of the table, the alarms, and every difference with its reason.
std::string jsonOf(const Evaluation& evaluation);

/// What is told of an event: its name, what was found and missed, and the rest of kSumHead.
std::vector<std::string> cellsOf(Event event, const Sum& sum);
inline constexpr std::array kSumHead{"event", "found",    "missed", "false", "a day",
                                     "gaps",  "too long", "delay",  "worst"};
/// "falls/ (12)": of the group, how many recordings have the column; "all (60)".
std::string groupText(const Evaluation& evaluation, const std::string& group, std::size_t column);

/// "16.2", "-" where there is none.
std::string numberText(std::optional<double> number);
/// "1:02.5".
std::string clockText(double seconds);
/// "missed: out of bed from 0:16.2 to 1:07.0"
std::string describe(const Difference& difference);

}  // namespace evaluate
