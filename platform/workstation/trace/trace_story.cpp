#include "platform/workstation/trace/trace_story.h"

#include <algorithm>
#include <utility>

namespace workstation {
namespace {

TraceChange changeOf(const TraceEvent& event, double t, const std::string& because) {
  return {event.seq, event.run, event.ns, t, event.name, event.active, because};
}

}  // namespace

std::vector<TraceChange> TraceStory::take(TraceLine line) {
  if (auto* header = std::get_if<TraceHeader>(&line)) {
    m_moment.header = std::make_shared<TraceHeader>(std::move(*header));
  } else if (auto* settings = std::get_if<TraceSettings>(&line)) {
    m_moment.settings = std::make_shared<TraceSettings>(std::move(*settings));
  } else if (auto* event = std::get_if<TraceEvent>(&line)) {
    constexpr std::size_t kMostSent = 1000;  // by one cycle: more are no trace's
    if (m_sent.size() < kMostSent) m_sent.push_back(std::move(*event));
  } else if (auto* cycle = std::get_if<TraceCycle>(&line)) {
    advance(std::move(*cycle));
    return changesNow();
  }
  return {};
}

void TraceStory::advance(TraceCycle cycle) {
  const auto last = std::exchange(m_moment.now, std::make_shared<TraceCycle>(std::move(cycle)));
  countEmpty(last.get());
  const std::uint64_t number = m_moment.now->number;
  if (last != nullptr && number == last->number + 1) {
    if (!last->failed) m_moment.before = last;
    return;
  }
  if (last != nullptr && number > last->number) m_gaps += number - last->number - 1;
  m_moment.before = nullptr;
}

/// A cycle that failed leaves the count as it is. After cycles that are missing the count may have begun anew, unless
/// it is longer than they are many.
void TraceStory::countEmpty(const TraceCycle* last) {
  const TraceCycle& now = *m_moment.now;
  auto& since = m_moment.empty_since_ns;
  const bool is_next = last != nullptr && now.number > last->number;
  if (now.failed && is_next && now.number == last->number + 1) return;
  const auto cycles = static_cast<std::uint64_t>(now.empty_cycles);
  if (cycles == 1) {
    since = now.ns;
  } else if (!is_next || cycles <= now.number - last->number) {
    since = std::nullopt;
  }
}

std::vector<TraceChange> TraceStory::changesNow() {
  const TraceCycle& now = *m_moment.now;
  std::vector<TraceChange> changes;
  std::vector<TraceEventState> told = now.events;
  for (const TraceEvent& event : std::exchange(m_sent, {})) {
    const auto state = std::find_if(told.begin(), told.end(), [&event](const TraceEventState& one) {
      return one.changed && one.name == event.name && one.active == event.active;
    });
    const bool known = state != told.end();
    changes.push_back(
        changeOf(event, now.t, known ? becauseText(event.name, m_moment.scene()) : "no cycle of the trace tells why"));
    if (known) state->changed = false;
  }
  for (const TraceEventState& state : told) {
    if (!state.changed) continue;
    changes.push_back(
        {std::nullopt, "", now.ns, now.t, state.name, state.active, becauseText(state.name, m_moment.scene())});
  }
  return changes;
}

std::vector<TraceChange> TraceStory::rest() {
  std::vector<TraceChange> changes;
  const double t = m_moment.now == nullptr ? 0 : m_moment.now->t;
  for (const TraceEvent& event : std::exchange(m_sent, {})) {
    changes.push_back(changeOf(event, t, "the trace ends before the cycle that tells why"));
  }
  return changes;
}

}  // namespace workstation
