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

TEST(ClockDeathTest, TheEnvironmentChoosesTheClock) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto isReplay = [] { return ticker_clock::isReplay() && ticker_clock::now() == TimeStamp(); };
  EXPECT_EXIT((unsetenv("VELMOR_CLOCK"), std::_Exit(timeIsOfTheSystem())), testing::ExitedWithCode(0), "");
  EXPECT_EXIT((setenv("VELMOR_CLOCK", "replay", 1), std::_Exit(isReplay() ? 0 : 1)), testing::ExitedWithCode(0), "");
}

}  // namespace
