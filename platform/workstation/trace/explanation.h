// Sentences about one cycle of a trace: who is where, why an event is active and why not. They tell what the trace
// shows and guess no cause beside it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/workstation/trace/trace_reader.h"

namespace workstation {

inline constexpr const char* kTracedOutOfBed = "Patient Out of Bed";
inline constexpr const char* kTracedFall = "Fall Detected";

/// A cycle and what is needed to understand it; borrowed. `before` is null when the cycle before it is not known.
struct Scene {
  const TraceHeader& header;
  const TraceSettings& settings;
  const TraceCycle* before;
  const TraceCycle& now;
  double cycle_s;  ///< from cycle to cycle, as it was lately
};

/// "Person 3 stands." of "person 3 stands".
std::string asSentence(std::string text);
/// "1 cycle", "2 cycles", "no cycles".
std::string amountOf(std::int64_t count, const std::string& what);
/// "3 s", "5.5 s": for so long the program saw it, which counts in cycles.
std::string secondsOf(int cycles, const Scene& scene);
/// So many decimals that the two differ when the numbers do: {"0.379", "0.380"}.
std::pair<std::string, std::string> sideBySide(double value, double limit, int decimals);
/// Texts one after another, "nothing" for none.
std::string listOf(const std::vector<std::string>& texts, const std::string& between);

/// All of what follows begins in lower case and has no full stop.
/// What is known of somebody: place, posture and what stands against a fall.
std::string personText(const TracePerson& person, const Scene& scene);
/// "person 3 stands": the same in a few words.
std::string shortPersonText(const TracePerson& person, const Scene& scene);
/// Who is in the bed and by how much, or who is nearest and who was seen in it and left out.
std::string bedText(const TraceBed& bed, const Scene& scene);
/// Why the event is active after this cycle, or why not.
std::string becauseText(const std::string& event, const Scene& scene);
/// Whether the event is active after the cycle; none when the cycle does not know it.
std::optional<TraceEventState> stateOf(const std::string& event, const TraceCycle& cycle);

}  // namespace workstation
