// Faults that a scenario injects into a service.
#pragma once

#include <map>
#include <string>

namespace scripted {

/// The calls that fail, by their names ("vdo_stream_start"), each after so many more that succeed.
using Faults = std::map<std::string, int>;

/// Counts a call; whether it is one that fails.
inline bool strikes(Faults& faults, const std::string& call) {
  const auto fault = faults.find(call);
  if (fault == faults.end()) return false;
  if (fault->second == 0) return true;
  --fault->second;
  return false;
}

}  // namespace scripted
