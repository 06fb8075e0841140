// The quantized output of a pose model that sees given people.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include "pose/BodypixPoseEstimator.h"

using PersonPixels = std::array<PosenetDecoder::Point, PosenetDecoder::kNumKeypoints>;

/// A person who stands upright, facing the camera; top of the head at (x, top), all in pixels.
inline PersonPixels standingPerson(float x, float top, float height) {
  // In heights of the body: to the picture's right of the middle, and below the top.
  constexpr std::array<float, 17> kAside = {0,     0.02F,  -0.02F, 0.04F,  -0.04F, 0.11F,  -0.11F, 0.15F, -0.15F,
                                            0.17F, -0.17F, 0.07F,  -0.07F, 0.08F,  -0.08F, 0.07F,  -0.07F};
  constexpr std::array<float, 17> kBelow = {0.08F, 0.06F, 0.06F, 0.07F, 0.07F, 0.2F,  0.2F,  0.36F, 0.36F,
                                            0.5F,  0.5F,  0.52F, 0.52F, 0.75F, 0.75F, 0.97F, 0.97F};
  PersonPixels person;
  for (std::size_t k = 0; k < person.size(); ++k) {
    person[k] = {top + kBelow[k] * height, x + kAside[k] * height};
  }
  return person;
}

/// The place of an upright picture's pixel in the picture that was turned by a run of the given rotation; the sizes are
/// those of the turned picture.
inline PosenetDecoder::Point turnedPixel(const PosenetDecoder::Point& p, int rotation, float height, float width) {
  if (rotation == 90) return {p.x, width - p.y};
  if (rotation == 180) return {height - p.y, width - p.x};
  if (rotation == 270) return {height - p.x, p.y};
  return p;
}

struct SyntheticGrid {
  SyntheticGrid(int gridHeight, int gridWidth) : height(gridHeight), width(gridWidth) {
    const auto cells = static_cast<std::size_t>(height) * static_cast<std::size_t>(width);
    heatmaps.assign(cells * 17, 0);
    shortOffsets.assign(cells * 34, 142);
    midOffsets.assign(cells * 64, 123);
  }

  /// Puts a person in. Peaks have the given logit, the root's is 1 higher.
  void add(const PersonPixels& person, float logit, std::size_t root = 0) {
    for (std::size_t k = 0; k < person.size(); ++k) {
      forCellsAround(person[k], [&](std::size_t cell, float y, float x) {
        const float apart = y * y + x * x;
        put(heatmaps, cell * 17 + k, heatmapDequantizer, logit + (k == root ? 1.0F : 0.0F) - 0.3F * apart);
        put(shortOffsets, cell * 34 + k, shortOffsetDequantizer, -y);
        put(shortOffsets, cell * 34 + 17 + k, shortOffsetDequantizer, -x);
      });
    }
    for (std::size_t e = 0; e < PosenetDecoder::kEdgeList.size(); ++e) {
      const auto from = person[static_cast<std::size_t>(PosenetDecoder::kEdgeList[e].first)];
      const auto to = person[static_cast<std::size_t>(PosenetDecoder::kEdgeList[e].second)];
      const std::size_t channel = e < 16 ? e : e + 16;  // y of forward edges, x of them, y of backward edges, x
      forCellsAround(from, [&](std::size_t cell, float y, float x) {
        put(midOffsets, cell * 64 + channel, midOffsetDequantizer, coarse((to.y - from.y) / 16.0F - y));
        put(midOffsets, cell * 64 + channel + 16, midOffsetDequantizer, coarse((to.x - from.x) / 16.0F - x));
      });
    }
  }

  std::vector<std::vector<uint8_t>> outputs() const { return {heatmaps, shortOffsets, midOffsets}; }

  int height;  ///< cells of 16 pixels
  int width;
  std::vector<uint8_t> heatmaps;
  std::vector<uint8_t> shortOffsets;
  std::vector<uint8_t> midOffsets;

 private:
  /// Long displacements are seen to half a cell only; the short offsets correct them.
  static float coarse(float cells) { return std::round(cells * 2.0F) / 2.0F; }

  static void put(std::vector<uint8_t>& bytes, std::size_t index, const Dequantizer& dequantizer, float value) {
    const float step = dequantizer(1) - dequantizer(0);
    bytes[index] = static_cast<uint8_t>(std::clamp(std::round((value - dequantizer(0)) / step), 0.0F, 255.0F));
  }

  /// Calls visit(cell, y, x) for the cells within 2 cells of a pixel; (y, x) leads from the pixel to the cell, in
  /// cells.
  template <typename Visit>
  void forCellsAround(const PosenetDecoder::Point& pixel, Visit visit) const {
    const float cellY = pixel.y / 16.0F;
    const float cellX = pixel.x / 16.0F;
    for (int y = std::max(0, static_cast<int>(cellY) - 2); y <= std::min(height - 1, static_cast<int>(cellY) + 3);
         ++y) {
      for (int x = std::max(0, static_cast<int>(cellX) - 2); x <= std::min(width - 1, static_cast<int>(cellX) + 3);
           ++x) {
        visit(static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x),
              static_cast<float>(y) - cellY, static_cast<float>(x) - cellX);
      }
    }
  }
};
