#include "platform/clock/clock.h"

#include <glib-unix.h>
#include <gtest/gtest.h>

#include <csignal>
#include <vector>

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
