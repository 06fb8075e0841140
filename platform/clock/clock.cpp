#include "platform/clock/clock.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "platform/clock/beat_keeper.h"

namespace ticker_clock {
namespace {

using Ticks = TimeStamp::rep;  // nanoseconds since the epoch

bool replayIsAskedFor() {
  const char* clock = std::getenv("VELMOR_CLOCK");
  return clock != nullptr && std::string_view(clock) == "replay";
}

/// Atomics, because services read the clock from threads of their own.
struct ReplayState {
  std::atomic<bool> replay{replayIsAskedFor()};
  std::atomic<Ticks> now{0};
  std::atomic<Ticks> end{TimeStamp::max().time_since_epoch().count()};
};

/// Never destroyed: objects that outlive main still ask for the time.
ReplayState& state() {
  static auto& the_state = *new ReplayState;
  return the_state;
}

std::atomic<std::uint64_t> tick_under_way{0};
std::atomic<std::uint64_t> ticks{0};

/// A ticker's callback, its calls numbered.
struct Numbered {
  GSourceFunc callback;
  gpointer data;

  static gboolean call(gpointer numbered) {
    auto* const self = static_cast<Numbered*>(numbered);
    tick_under_way = ++ticks;
    const gboolean more = self->callback(self->data);
    tick_under_way = 0;
    return more;
  }
  static void destroy(gpointer numbered) { delete static_cast<Numbered*>(numbered); }
};

using std::chrono::microseconds;

BeatKeeper& keeper() {
  static auto& the_keeper = *new BeatKeeper;  // never destroyed: see above
  return the_keeper;
}

microseconds monotonicNow() { return microseconds(g_get_monotonic_time()); }

struct LiveSource {
  GSource base;
  microseconds period;
  microseconds due;  ///< of the next tick
};

/// The ticks due by `now` are over; returns their number.
std::uint64_t passOver(LiveSource& ticker, microseconds now) {
  if (now < ticker.due) return 0;
  const auto passed = (now - ticker.due) / ticker.period + 1;
  ticker.due += passed * ticker.period;
  return static_cast<std::uint64_t>(passed);
}

/// One call for the newest tick that is due. The next begins with a later beat, also when this call has outlasted it.
gboolean dispatchLive(GSource* source, GSourceFunc callback, gpointer data) {
  auto& ticker = *reinterpret_cast<LiveSource*>(source);
  const microseconds start = monotonicNow();
  const std::uint64_t due = passOver(ticker, start);
  const gboolean more = callback(data);
  const microseconds end = monotonicNow();
  keeper().note(end, end - start, (due == 0 ? 0 : due - 1) + passOver(ticker, end));
  g_source_set_ready_time(source, ticker.due.count());
  return more;
}

guint addLiveTicker(microseconds period, Numbered* callback) {
  static GSourceFuncs functions{nullptr, nullptr, dispatchLive, nullptr, nullptr, nullptr};
  GSource* source = g_source_new(&functions, sizeof(LiveSource));
  auto& ticker = *reinterpret_cast<LiveSource*>(source);
  const microseconds now = monotonicNow();
  ticker.period = std::max(period, microseconds(1));
  ticker.due = now + ticker.period;
  keeper().begin(ticker.period, now);
  g_source_set_callback(source, Numbered::call, callback, Numbered::destroy);
  g_source_set_ready_time(source, ticker.due.count());
  const guint id = g_source_attach(source, nullptr);
  g_source_unref(source);
  return id;
}

struct ReplaySource {
  GSource base;
  std::chrono::nanoseconds interval;
};

/// One step of the clock and one call; past the end the source falls asleep for good. It stays attached, so that
/// whoever handles the signal can still remove it by its id.
gboolean dispatchReplay(GSource* source, GSourceFunc callback, gpointer data) {
  const Ticks next = state().now.load() + reinterpret_cast<ReplaySource*>(source)->interval.count();
  if (next > state().end.load()) {
    g_source_set_ready_time(source, -1);
    kill(getpid(), SIGTERM);
    return G_SOURCE_CONTINUE;
  }
  state().now.store(next);
  return callback(data);
}

guint addReplayTicker(std::chrono::nanoseconds interval, Numbered* callback) {
  static GSourceFuncs functions{nullptr, nullptr, dispatchReplay, nullptr, nullptr, nullptr};
  GSource* source = g_source_new(&functions, sizeof(ReplaySource));
  reinterpret_cast<ReplaySource*>(source)->interval = interval;
  g_source_set_callback(source, Numbered::call, callback, Numbered::destroy);
  g_source_set_ready_time(source, 0);
  const guint id = g_source_attach(source, nullptr);
  g_source_unref(source);
  return id;
}

}  // namespace

bool isReplay() { return state().replay.load(); }

TimeStamp now() {
  if (isReplay()) return TimeStamp(TimeStamp::duration(state().now.load()));
  return std::chrono::time_point_cast<TimeStamp::duration>(std::chrono::system_clock::now());
}

guint addTicker(guint interval_ms, GSourceFunc callback, gpointer data) {
  auto numbered = std::make_unique<Numbered>(Numbered{callback, data});
  if (isReplay()) return addReplayTicker(std::chrono::milliseconds(interval_ms), numbered.release());
  return addLiveTicker(std::chrono::milliseconds(interval_ms), numbered.release());
}

Beat beat() { return keeper().at(monotonicNow()); }

std::uint64_t currentTick() { return tick_under_way; }

void setEnd(TimeStamp last) { state().end.store(last.time_since_epoch().count()); }

void setReplayTime(TimeStamp time) {
  state().now.store(time.time_since_epoch().count());
  state().replay.store(true);
}

}  // namespace ticker_clock
