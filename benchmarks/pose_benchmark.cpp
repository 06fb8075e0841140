// What a cycle spends outside the networks: conversion and turning of a 1280 x 720 frame, decoding, fusion.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "app/observer.h"
#include "app/process_state.h"
#include "platform/scripted/stage/networks.h"
#include "platform/scripted/video.h"
#include "pose/BodypixPoseEstimator.h"
#include "pose/skeleton_fusion.h"
#include "video/VideoStreamSource.h"
#include "video/imgconverter.h"

bool g_IsDevMode;
AnalysisObserver* g_observer;

namespace {

using namespace scripted;

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;

PoseGrid threePeople() {
  PoseGrid grid(46, 81);
  grid.add(standingPerson(250.0F, 150.0F, 400.0F), 2.5F);
  grid.add(standingPerson(600.0F, 200.0F, 380.0F), 1.5F);
  grid.add(standingPerson(950.0F, 250.0F, 350.0F), 0.5F);
  return grid;
}

template <std::size_t N>
void dequantize(const std::vector<uint8_t>& bytes, const Dequantizer& dequantizer, std::array<float, N>& values) {
  for (std::size_t i = 0; i < N; ++i) values[i] = dequantizer(bytes[i]);
}

struct Grids {
  std::array<float, 63342> heatmaps;
  std::array<float, 126684> short_offsets;
  std::array<float, 238464> mid_offsets;

  void fill(const PoseGrid& grid) {
    dequantize(grid.heatmaps, heatmapDequantizer, heatmaps);
    dequantize(grid.short_offsets, shortOffsetDequantizer, short_offsets);
    dequantize(grid.mid_offsets, midOffsetDequantizer, mid_offsets);
  }
};

void DecodeThreePeople(benchmark::State& state) {
  const PoseGrid grid = threePeople();
  const auto grids = std::make_unique<Grids>();
  grids->fill(grid);
  std::vector<PosenetDecoder::PoseKeypoints> poses(20);
  std::vector<PosenetDecoder::PoseKeypointScores> keypointScores(20);
  std::vector<float> scores(20);
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(PosenetDecoder::DecodeAllPoses(
        grids->heatmaps.data(), grids->short_offsets.data(), grids->mid_offsets.data(), grid.height, grid.width, 20,
        0.01F, 5, 2.0F, 16, poses.data(), keypointScores.data(), scores.data()));
  }
}
BENCHMARK(DecodeThreePeople)->Unit(benchmark::kMicrosecond);

Skeletons fivePeople(int rotation) {
  Skeletons skeletons;
  for (int i = 0; i < 5; ++i) {
    Keypoints keypoints;
    const PersonPixels person = standingPerson(150.0F + 240.0F * static_cast<float>(i), 200.0F, 400.0F);
    for (const BodyPart part : BodyParts) {
      const auto& at = person[static_cast<std::size_t>(part)];
      keypoints[part] = {{static_cast<int>(at.x) + rotation / 30, static_cast<int>(at.y)}, part, 0.5F};
    }
    skeletons.emplace_back(keypoints, rotation, 0.5F);
  }
  return skeletons;
}

void FuseFourTimesFive(benchmark::State& state) {
  const Skeletons north = fivePeople(0);
  const Skeletons east = fivePeople(270);
  const Skeletons south = fivePeople(180);
  const Skeletons west = fivePeople(90);
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(combineSkeletons(north, east, south, west, 0.4F, kWidth, kHeight));
  }
}
BENCHMARK(FuseFourTimesFive)->Unit(benchmark::kMicrosecond);

void ConvertNv12(benchmark::State& state) {
  std::vector<uint8_t> frame(kPixels * 3 / 2, 90);
  std::vector<uint8_t> rgb(kPixels * 3);
  while (state.KeepRunning()) {
    convertU8yuvToRGBlibYuv(kWidth, kHeight, frame.data(), rgb.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(ConvertNv12)->Unit(benchmark::kMicrosecond);

/// As in a cycle, where a network has run meanwhile: neither picture is in a cache.
template <void (VideoStreamSource::*Turn)(const uint8_t*, uint8_t*) const>
void TurnPicture(benchmark::State& state) {
  constexpr std::size_t kPictures = 40;  // 110 MB, more than any cache
  const VideoStreamSource source(kHeight, kWidth, 0);
  std::vector<std::vector<uint8_t>> pictures(kPictures, std::vector<uint8_t>(kPixels * 3, 90));
  std::size_t at = 0;
  while (state.KeepRunning()) {
    (source.*Turn)(pictures[at].data(), pictures[at + 1].data());
    at = (at + 2) % kPictures;
    benchmark::ClobberMemory();
  }
}
BENCHMARK(TurnPicture<&VideoStreamSource::rotate0>)->Unit(benchmark::kMicrosecond);
BENCHMARK(TurnPicture<&VideoStreamSource::rotate90>)->Unit(benchmark::kMicrosecond);
BENCHMARK(TurnPicture<&VideoStreamSource::rotate180>)->Unit(benchmark::kMicrosecond);
BENCHMARK(TurnPicture<&VideoStreamSource::rotate270>)->Unit(benchmark::kMicrosecond);

}  // namespace
