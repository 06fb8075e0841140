// An evaluation as a table for the terminal, and as JSON.
#pragma once

#include <optional>
#include <string>

#include "evaluate/judging.h"

namespace evaluate {

/// Two rows for each recording and column, one for each event, then all recordings together, then every difference with
/// its reason.
std::string tableOf(const Evaluation& evaluation);

/// One object: the numbers of the table, the alarms, and every difference with its reason.
std::string jsonOf(const Evaluation& evaluation);

/// "16.2", "-" where there is none.
std::string numberText(std::optional<double> number);
/// "1:02.5".
std::string clockText(double seconds);
/// "missed: out of bed from 0:16.2 to 1:07.0"
std::string describe(const Difference& difference);

}  // namespace evaluate
