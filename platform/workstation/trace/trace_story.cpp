#include "platform/workstation/trace/trace_story.h"

#include <algorithm>
#include <cmath>
#include <numeric>
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
  measurePace(last.get());
  const std::uint64_t number = m_moment.now->number;
  if (last != nullptr && number == last->number + 1) {
    if (!last->failed) m_moment.before = last;
    return;
  }
  if (last != nullptr && number > last->number) m_gaps += number - last->number - 1;
  m_moment.before = nullptr;
}

/// Cycles that come about as fast as they are meant to count as if they came so exactly.
void TraceStory::measurePace(const TraceCycle* last) {
  constexpr std::size_t kLately = 12;  // the findings by which somebody is judged
  constexpr double kMuch = 0.1;
  constexpr double kPerSecond_ns = 1e9;
  const TraceCycle& now = *m_moment.now;
  if (last != nullptr && now.number == last->number + 1 && now.ns > last->ns) m_steps_ns.push_back(now.ns - last->ns);
  if (m_steps_ns.size() > kLately) m_steps_ns.pop_front();
  const double meant = m_moment.header->period_ms / 1000.0;
  m_moment.cycle_s = meant;
  if (m_steps_ns.empty()) return;
  const double sum_ns = std::accumulate(m_steps_ns.begin(), m_steps_ns.end(), 0.0);
  const double average = sum_ns / static_cast<double>(m_steps_ns.size()) / kPerSecond_ns;
  if (std::abs(average - meant) > kMuch * meant) m_moment.cycle_s = average;
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
