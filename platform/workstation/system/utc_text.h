// A time as others read it: in the journal, in the feed, in a trace's explanation.
#pragma once

#include <ctime>
#include <string>

#include "platform/clock/clock.h"

namespace workstation {

/// "2026-03-01T12:00:31.500Z"
std::string utcText(TimeStamp time);

/// Seconds since 1970, to the millisecond, as the journal and the standard output show them.
double secondsOf(TimeStamp time);

/// On the clock of the place where the program runs, also when that has been set to another zone since.
std::tm localTime(TimeStamp time);

/// "14:03", on the clock of the place where the program runs.
std::string localClock(TimeStamp time);

}  // namespace workstation
