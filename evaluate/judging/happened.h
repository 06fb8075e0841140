// What happened in a recording, as somebody in the room tells it: docs/happened.md.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace evaluate {

/// Seconds from a recording's first picture; `begin` is before `end`.
struct Interval {
  double begin = 0;
  double end = 0;
};
using Intervals = std::vector<Interval>;

/// Something physical that took no time.
struct Moment {
  double at = 0;
  std::string text;
};

/// Each list of intervals is in order and without overlaps.
struct Happened {
  double length_s = 0;
  std::map<int, Intervals> in_bed;      ///< by bed, 1 to 3
  std::map<int, Intervals> out_of_bed;  ///< by bed; where neither is told, both answers are right
  Intervals fallen;
  Intervals nobody;
  Intervals carer;
  std::vector<Moment> moments;  ///< in order
};

/// `name` is told in mistakes. Throws std::runtime_error: "NAME line N: what is wrong; what is allowed", a line for
/// each mistake.
Happened parseHappened(std::string_view text, const std::string& name);

/// Throws std::runtime_error as parseHappened does, and one line for a file that cannot be read.
Happened readHappened(const std::filesystem::path& file);

}  // namespace evaluate
