// Follows a trace and tells each change of an event with its reason.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/workstation/trace/explanation.h"

namespace workstation {

struct TraceChange {
  std::optional<std::uint64_t> seq;  ///< none where the trace has no line for it
  std::string run;
  std::int64_t ns = 0;
  double t = 0;
  std::string name;
  bool active = false;
  std::string because;
};

/// A cycle with what held then, for as long as somebody keeps it.
struct TraceMoment {
  std::shared_ptr<const TraceHeader> header;
  std::shared_ptr<const TraceSettings> settings;
  std::shared_ptr<const TraceCycle> before;  ///< the last complete one; null when cycles between are not known
  std::shared_ptr<const TraceCycle> now;     ///< null before the first

  double cycle_s = 0;  ///< from cycle to cycle, as it was lately

  [[nodiscard]] Scene scene() const { return {*header, *settings, before.get(), *now, cycle_s}; }
};

class TraceStory {
 public:
  /// The changes of which is known now why they came.
  std::vector<TraceChange> take(TraceLine line);
  /// Those for which the cycle never came.
  std::vector<TraceChange> rest();
  /// The last cycle.
  [[nodiscard]] const TraceMoment& moment() const { return m_moment; }
  /// Cycles that are missing between others of one run.
  [[nodiscard]] std::uint64_t gaps() const { return m_gaps; }

 private:
  void advance(TraceCycle cycle);
  void measurePace(const TraceCycle* last);
  std::vector<TraceChange> changesNow();

  TraceMoment m_moment{std::make_shared<TraceHeader>(), std::make_shared<TraceSettings>(), nullptr, nullptr, 0};
  std::vector<TraceEvent> m_sent;       ///< by the cycle whose line comes next
  std::deque<std::int64_t> m_steps_ns;  ///< from cycle to cycle, the last of them
  std::uint64_t m_gaps = 0;
};

}  // namespace workstation
