#include "platform/clock/clock.h"

#include <glib-unix.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/clock/beat_keeper.h"
#include "tests/platform/state_folder.h"

using namespace std::chrono_literals;

namespace {

TEST(ReplayClock, StepsBeforeEachCallAndEndsWithOneSigterm) {
  struct Run {
    std::vector<TimeStamp> times;
    std::vector<std::uint64_t> ticks;
    int ends = 0;
  } run;
  ticker_clock::setReplayTime(TimeStamp(0s));
  ticker_clock::setEnd(TimeStamp(1'500ms));
  const guint ended = g_unix_signal_add(
      SIGTERM, [](gpointer data) -> gboolean { return ++static_cast<Run*>(data)->ends > 0; }, &run);
  const guint ticker = ticker_clock::addTicker(
      500,
      [](gpointer data) -> gboolean {
        static_cast<Run*>(data)->times.push_back(ticker_clock::now());
        static_cast<Run*>(data)->ticks.push_back(ticker_clock::currentTick());
        return TRUE;
      },
      &run);
  while (run.ends == 0) g_main_context_iteration(nullptr, TRUE);
  for (int i = 0; i < 20; ++i) g_main_context_iteration(nullptr, FALSE);
  EXPECT_EQ(run.times, (std::vector{TimeStamp(500ms), TimeStamp(1s), TimeStamp(1'500ms)}));
  EXPECT_EQ(run.ticks, (std::vector<std::uint64_t>{1, 2, 3}));
  EXPECT_EQ(ticker_clock::currentTick(), 0U) << "between two calls";
  EXPECT_EQ(run.ends, 1);
  EXPECT_EQ(ticker_clock::now(), TimeStamp(1'500ms)) << "the clock stops at the last picture";
  EXPECT_TRUE(g_source_remove(ticker)) << "whoever handles the signal removes the ticker by its id";
  g_source_remove(ended);
}

/// In processes of their own, since the clock is chosen once.
int timeIsOfTheSystem() {
  const auto before = std::chrono::system_clock::now();
  const TimeStamp now = ticker_clock::now();
  return !ticker_clock::isReplay() && now >= before && now <= std::chrono::system_clock::now() ? 0 : 1;
}

/// A loop with a ticker whose first call lasts two and a half periods, and a request that comes meanwhile.
struct SlowCycle {
  static constexpr gint64 kPeriod_us = 40'000;
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  gint64 begun = g_get_monotonic_time();
  std::vector<gint64> starts;  ///< after `begun`
  bool is_served = false, is_served_between = false;

  static gboolean cycle(gpointer data) {
    auto* self = static_cast<SlowCycle*>(data);
    self->starts.push_back(g_get_monotonic_time() - self->begun);
    if (self->starts.size() == 1) {
      g_timeout_add(
          0, [](gpointer slow) -> gboolean { return !(static_cast<SlowCycle*>(slow)->is_served = true); }, data);
      g_usleep(kPeriod_us * 5 / 2);
    } else {
      self->is_served_between = self->is_served_between || (self->starts.size() == 2 && self->is_served);
    }
    if (self->starts.size() == 3) g_main_loop_quit(self->loop);
    return G_SOURCE_CONTINUE;
  }
};

int beatIsKept() {
  SlowCycle slow;
  ticker_clock::addTicker(SlowCycle::kPeriod_us / 1000, SlowCycle::cycle, &slow);
  g_main_loop_run(slow.loop);
  const ticker_clock::Beat beat = ticker_clock::beat();
  // Due after 1, 2, 3, 4 ... periods: the second and third pass during the first call.
  const bool is_in_time = slow.starts[1] >= 4 * SlowCycle::kPeriod_us && slow.starts[2] >= 5 * SlowCycle::kPeriod_us;
  const bool is_counted = beat.left_out >= 2 && beat.left_out_last_minute == beat.left_out;
  return is_in_time && is_counted && slow.is_served_between && beat.period == 40ms && beat.last_call < 100s ? 0 : 1;
}

TEST(BeatKeeper, CountsTheLastMinuteAndSaysOnceAMinuteWhatWasLeftOut) {
  const StateFolder state;
  openlog("velmor_care", 0, LOG_USER);
  ticker_clock::BeatKeeper keeper;
  keeper.begin(500ms, 0s);
  // Every other tick of the first minute is left out, and a single one much later.
  for (auto now = 1s; now <= 65s; now += 1s) keeper.note(now, 700ms, 1);
  EXPECT_EQ(keeper.at(65s).left_out_last_minute, 61U);
  for (auto now = 66s; now <= 200s; now += 1s) keeper.note(now, 300ms, 0);
  EXPECT_EQ(keeper.at(200s).left_out_last_minute, 0U);
  EXPECT_EQ(keeper.at(200s).left_out, 65U);
  closelog();
  const std::string log = state.read("system.log");
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2) << log;
  EXPECT_NE(log.find("60 of 120 pictures of the last 60 s were left out, the last cycle took 700 ms instead of at most "
                     "500; alarms take 2.0 times as long"),
            std::string::npos)
      << log;
}

TEST(ClockDeathTest, ATickThatPassesDuringACallIsLeftOutAndLeavesRoom) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT((unsetenv("VELMOR_CLOCK"), std::_Exit(beatIsKept())), testing::ExitedWithCode(0), "");
}

TEST(ClockDeathTest, TheEnvironmentChoosesTheClock) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        unsetenv("VELMOR_CLOCK");
        std::_Exit(timeIsOfTheSystem());
      },
      testing::ExitedWithCode(0), "");
  EXPECT_EXIT(
      {
        setenv("VELMOR_CLOCK", "replay", 1);
        std::_Exit(ticker_clock::isReplay() && ticker_clock::now() == TimeStamp() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
