// What deciding about three people costs with nobody listening, and with somebody who traces it.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "analysis/FindingsHistory.h"
#include "analysis/tracker.h"
#include "app/lifecycle/analysis_cycle.h"
#include "app/observer.h"
#include "app/process_state.h"
#include "events/event_manager.h"
#include "events/event_names.h"
#include "platform/clock/clock.h"
#include "platform/scripted/stage/networks.h"
#include "platform/trace/trace_sink.h"
#include "pose/skeleton_fusion.h"
#include "trace/trace_writer.h"

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;

/// Counts what it is given.
class Nowhere : public TraceSink {
 public:
  void take(const std::string& lines) override { bytes += lines.size(); }
  std::size_t bytes = 0;
};

Skeletons threePeople(int rotation) {
  Skeletons skeletons;
  for (int i = 0; i < 3; ++i) {
    Keypoints keypoints;
    const scripted::PersonPixels person = scripted::standingPerson(250.0F + 350.0F * static_cast<float>(i), 200, 400);
    for (const BodyPart part : BodyParts) {
      const auto& at = person[static_cast<std::size_t>(part)];
      keypoints[part] = {{static_cast<int>(at.x) + rotation / 30, static_cast<int>(at.y)}, part, 0.5F};
    }
    skeletons.emplace_back(keypoints, rotation, 0.5F);
  }
  return skeletons;
}

/// The rules of one cycle on what two runs saw, told or not.
void decideAboutThree(const Skeletons& north, const Skeletons& east) {
  if (g_observer != nullptr) {
    g_observer->cycleBegan();
    g_observer->posesDecoded(0, kWidth, kHeight, north, north.size(), 0.15F);
    g_observer->posesDecoded(270, kHeight, kWidth, east, east.size(), 0.15F);
  }
  g_skeletons = combineSkeletons(north, east, {}, {}, 0.38F, kWidth, kHeight);
  decide();
  if (g_observer != nullptr) g_observer->cycleEnded(true);
}

void run(benchmark::State& state, AnalysisObserver* observer) {
  g_StreamWidth = kWidth;
  g_StreamHeight = kHeight;
  static EventManager events;
  g_EventManager = &events;
  g_findingsHistory = FindingsHistory(12);
  g_Tracker = tracker();
  g_Tracker.init(8);
  const Skeletons north = threePeople(0);
  const Skeletons east = threePeople(270);
  g_observer = observer;
  // Fewer findings than are judged: no floor is calibrated here.
  for (long cycle = 0; state.KeepRunning(); ++cycle) {
    if (cycle % 10 == 0) g_findingsHistory = FindingsHistory(12);
    decideAboutThree(north, east);
  }
  g_observer = nullptr;
  g_EventManager = nullptr;
}

void decideUntold(benchmark::State& state) { run(state, nullptr); }
BENCHMARK(decideUntold)->Unit(benchmark::kMicrosecond);

void decideTraced(benchmark::State& state) {
  Nowhere sink;
  TraceWriter writer(sink);
  run(state, &writer);
  state.counters["bytes"] = benchmark::Counter(static_cast<double>(sink.bytes), benchmark::Counter::kAvgIterations);
}
BENCHMARK(decideTraced)->Unit(benchmark::kMicrosecond);

}  // namespace
