// The friendly names by which the program's events are known everywhere: on the wire, in journals, on the page.
#pragma once

#include <array>

inline constexpr const char* kOutOfBedEvent = "Patient Out of Bed";
inline constexpr const char* kFallEvent = "Fall Detected";

/// In the order in which they are declared.
inline constexpr std::array kEvents{kOutOfBedEvent, kFallEvent};
