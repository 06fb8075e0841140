#include "platform/clock/beat_keeper.h"

#include <syslog.h>

#include <algorithm>

namespace ticker_clock {
namespace {

constexpr BeatKeeper::Microseconds kWindow = std::chrono::minutes(1);

long long millisecondsOf(std::chrono::nanoseconds span) { return span / std::chrono::milliseconds(1); }

}  // namespace

void BeatKeeper::begin(Microseconds period, Microseconds now) {
  const std::scoped_lock lock(m_mutex);
  m_beat = {};
  m_beat.period = period;
  m_calls.clear();
  m_begun = m_said = now;
  m_left_out_unsaid = 0;
}

void BeatKeeper::note(Microseconds now, Microseconds took, std::uint64_t left_out) {
  const std::scoped_lock lock(m_mutex);
  m_beat.last_call = took;
  m_beat.left_out += left_out;
  m_left_out_unsaid += left_out;
  m_calls.push_back({now, left_out});
  forgetOld(now);
  if (m_left_out_unsaid > 0 && now - m_said >= kWindow) say(now);
}

Beat BeatKeeper::at(Microseconds now) {
  const std::scoped_lock lock(m_mutex);
  forgetOld(now);
  Beat beat = m_beat;
  if (beat.period.count() > 0) beat.age = now - m_begun;
  for (const Call& call : m_calls) beat.left_out_last_minute += call.left_out;
  return beat;
}

void BeatKeeper::forgetOld(Microseconds now) {
  while (!m_calls.empty() && now - m_calls.front().time > kWindow) m_calls.pop_front();
}

void BeatKeeper::say(Microseconds now) {
  const double seconds = std::chrono::duration<double>(now - m_said).count();
  const double due = std::max(1.0, std::chrono::duration<double>(now - m_said) / m_beat.period);
  const double done = std::max(1.0, due - static_cast<double>(m_left_out_unsaid));
  syslog(LOG_ERR,
         "this machine is too slow: %llu of %.0f pictures of the last %.0f s were left out, the last cycle took %lld "
         "ms instead of at most %lld; alarms take %.1f times as long as they should",
         static_cast<unsigned long long>(m_left_out_unsaid), due, seconds, millisecondsOf(m_beat.last_call),
         millisecondsOf(m_beat.period), due / done);
  m_said = now;
  m_left_out_unsaid = 0;
}

}  // namespace ticker_clock
