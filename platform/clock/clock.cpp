#include "platform/clock/clock.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string_view>

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
  return g_timeout_add_full(G_PRIORITY_DEFAULT, interval_ms, Numbered::call, numbered.release(), Numbered::destroy);
}

std::uint64_t currentTick() { return tick_under_way; }

void setEnd(TimeStamp last) { state().end.store(last.time_since_epoch().count()); }

void setReplayTime(TimeStamp time) {
  state().now.store(time.time_since_epoch().count());
  state().replay.store(true);
}

}  // namespace ticker_clock
