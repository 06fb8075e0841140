#include "platform/workstation/system/health.h"

#include <gtest/gtest.h>

#include <iostream>
#include <vector>

#include "platform/support/owners.h"
#include "tests/platform/conditions.h"

namespace {

using namespace workstation;
using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;

TEST(HealthTest, ATroubleKeepsItsTimeWhateverIsSaidOfIt) {
  ticker_clock::setReplayTime(TimeStamp(1s));
  reportTrouble(Trouble::kCameraAway, "connection refused");
  ticker_clock::setReplayTime(TimeStamp(2s));
  reportTrouble(Trouble::kCameraAway, "no route to host");
  for (const Health::Wrong& wrong : currentHealth().wrong) {
    EXPECT_TRUE(wrong.what != Trouble::kCameraAway || wrong.since == TimeStamp(1s));
  }
  EXPECT_EQ(textOf(Trouble::kCameraAway), "no route to host");
  endTrouble(Trouble::kCameraAway);
  EXPECT_EQ(textOf(Trouble::kCameraAway), "");
}

/// A loop with a ticker whose first call lasts two and a half periods, and a request that comes meanwhile.
struct SlowCycle {
  static constexpr guint kPeriod_ms = 40;
  static constexpr std::chrono::milliseconds kPeriod{kPeriod_ms};
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  std::vector<Steady::time_point> starts = {Steady::now()}, noted;
  bool is_served = false, is_served_between = false;

  static gboolean cycle(gpointer data) {
    auto* self = static_cast<SlowCycle*>(data);
    self->starts.push_back(Steady::now());
    noteCompleteCycle(self->starts.size() - 1, self->starts.back());
    self->noted.push_back(Steady::now());
    if (self->noted.size() == 1) {
      g_timeout_add(
          0, [](gpointer slow) -> gboolean { return !(static_cast<SlowCycle*>(slow)->is_served = true); }, data);
      std::this_thread::sleep_for(kPeriod * 5 / 2);
    }
    self->is_served_between = self->is_served_between || (self->noted.size() == 2 && self->is_served);
    if (self->noted.size() == 3) g_main_loop_quit(self->loop);
    return G_SOURCE_CONTINUE;
  }
};

/// What is not as it should be, on standard error.
void runSlowCycles() {
  const auto expect = [](bool is_so, const char* what) { std::cerr << (is_so ? "" : what); };
  const Health none = currentHealth();
  expect(!none.cycle_age && !none.picture_age && !none.isWatching() && none.wrong.empty(), "nothing at first, ");
  SlowCycle slow;
  ticker_clock::addTicker(SlowCycle::kPeriod_ms, SlowCycle::cycle, &slow);
  g_main_loop_run(slow.loop);
  // Due after 1, 2, 3, 4 ... periods: the second and third pass during the first call.
  const auto begun = slow.starts[0], first = slow.starts[1], second = slow.starts[2], third = slow.starts[3];
  expect(second - begun >= 4 * SlowCycle::kPeriod && third - begun >= 5 * SlowCycle::kPeriod, "in time, ");
  expect(slow.is_served_between, "the loop gets to serve, ");
  const Health health = currentHealth();
  const ticker_clock::Beat& beat = health.beat;
  expect(beat.left_out >= 2 && beat.left_out_last_minute == beat.left_out, "counted, ");
  expect(beat.period == SlowCycle::kPeriod && beat.last_call < 100s, "beat, ");
  const auto periods = [](Steady::duration two) { return std::chrono::duration<double>(two) / 2 / SlowCycle::kPeriod; };
  expect(health.slowdown >= periods(third - slow.noted[0]) && health.slowdown <= periods(slow.noted[2] - first),
         "mean, ");
  expect(health.isWatching() && health.cycle == 3, "watching, ");
  const GLibPtr<gchar> text(g_strdup_printf("left out in the last minute: %d; alarms take %.1f times as long.",
                                            static_cast<int>(beat.left_out), health.slowdown));
  expect(textOf(Trouble::kTicksLeftOut).ends_with(text.get()), "text, ");
  std::cerr << "end";
  std::_Exit(0);
}

TEST(ClockDeathTest, ATickThatPassesDuringACallIsLeftOutAndLeavesRoom) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT((unsetenv("VELMOR_CLOCK"), runSlowCycles()), testing::ExitedWithCode(0), "^end$");
}

}  // namespace
