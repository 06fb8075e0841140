// Drawing the overlay of one stream with ten people in it.
#include <benchmark/benchmark.h>
#include <cairo.h>

#include <array>
#include <cstdint>
#include <memory>

#include "analysis/FindingsHistory.h"
#include "app/process_state.h"
#include "overlay/overlay_manager.h"
#include "platform/scripted/overlays.h"

namespace {

constexpr int kPeople = 10;
constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

/// Upright, 300 pixels of the analysis picture high, the head at (x, y).
Skeleton standing(int x, int y) {
  constexpr std::array<std::array<int, 2>, 17> at = {{{0, 0},
                                                      {4, -4},
                                                      {-4, -4},
                                                      {10, 0},
                                                      {-10, 0},
                                                      {35, 40},
                                                      {-35, 40},
                                                      {50, 90},
                                                      {-50, 90},
                                                      {55, 140},
                                                      {-55, 140},
                                                      {25, 140},
                                                      {-25, 140},
                                                      {25, 220},
                                                      {-25, 220},
                                                      {25, 300},
                                                      {-25, 300}}};
  Keypoints keypoints;
  for (std::size_t i = 0; i < at.size(); ++i) {
    keypoints[BodyParts[i]] = {{x + at[i][0], y + at[i][1]}, BodyParts[i], 1.0F};
  }
  return {keypoints, 0, 0.9F};
}

/// Everything that may be drawn of somebody.
Finding findingOf(int id) {
  const Skeleton skeleton = standing(70 + 125 * id, 100 + 30 * id);
  Finding finding(id, {skeleton.superior.x, skeleton.superior.y}, skeleton, Footings::floor);
  finding.averageSuperior = finding.expectedSuperior = skeleton.superior;
  finding.averageInferior = finding.expectedInferior = skeleton.inferior;
  finding.averageHipMedian = skeleton.superior;  // below half of the ratio, so that the hips are marked
  finding.averageNormalFactorVelocity = {20.0F, 10.0F};
  finding.hasValidAverageNormalFactorVelocity = finding.hasValidAverageHipMedian = finding.hasValidAverageInferior =
      finding.hasValidAverageSuperior = finding.hasValidExpectedInferior = finding.hasValidExpectedSuperior = true;
  return finding;
}

enum Kind : std::int64_t { kFindings, kDeveloper, kMasks };

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Context = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

void drawTenPeople(benchmark::State& state) {
  const OverlayManager manager;
  const auto kind = static_cast<Kind>(state.range(0));
  g_StreamWidth = 1280;
  g_StreamHeight = 720;
  g_StatusCode = 200;
  g_IsDevMode = kind == kDeveloper;
  OverlayManager::SetOverlayStreamResolution(kind == kMasks ? 0 : kWidth, kHeight);
  OverlayManager::SetAnonymizedStreamResolution(kind == kMasks ? kWidth : 0, kHeight);
  g_findingsHistory = FindingsHistory(12);
  for (int id = 0; id < kPeople; ++id) {
    Finding finding = findingOf(id);
    g_findingsHistory.add(finding);
  }
  const Surface surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kWidth, kHeight), cairo_surface_destroy);
  while (state.KeepRunning()) {
    const Context cairo(cairo_create(surface.get()), cairo_destroy);
    scripted::overlays().render(cairo.get(), {1, 1, kWidth, kHeight, 0, FALSE, AXOVERLAY_STREAM_JPEG});
    cairo_surface_flush(surface.get());
  }
}
// The first picture of a process also looks the font up.
BENCHMARK(drawTenPeople)->Name("first_picture")->Arg(kFindings)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(drawTenPeople)->Name("findings")->Arg(kFindings)->Unit(benchmark::kMillisecond);
BENCHMARK(drawTenPeople)->Name("developer_mode")->Arg(kDeveloper)->Unit(benchmark::kMillisecond);
BENCHMARK(drawTenPeople)->Name("masks")->Arg(kMasks)->Unit(benchmark::kMillisecond);

}  // namespace
