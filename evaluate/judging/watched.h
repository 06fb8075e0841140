// What a run made of a recording, from its trace.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "evaluate/judging/scoring.h"

namespace evaluate {

struct Watched {
  Intervals out_of_bed;  ///< when each event was active
  Intervals fall;
  std::set<int> beds;  ///< in use
  double until_s = 0;  ///< of the last cycle

  [[nodiscard]] const Intervals& alarms(Event event) const { return event == Event::kFall ? fall : out_of_bed; }
};

/// Throws std::runtime_error with one line for what is no whole trace of a recording of this length.
Watched readWatched(const std::filesystem::path& trace, double length_s);

/// Why the event was as it was at a moment: after the last cycle at or before it.
struct Question {
  Event event;
  double at = 0;
};

/// A sentence for each question. Throws std::runtime_error as the trace's reader does.
std::vector<std::string> whyIn(const std::filesystem::path& trace, const std::vector<Question>& questions);

}  // namespace evaluate
