#include "platform/scripted/stage/networks.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/support/body_tree.h"

namespace scripted {
namespace {

constexpr float kCell = 16.0F;  // pixels
constexpr std::size_t kParts = 17;
constexpr std::size_t kEdges = kBodyTree.size();

/// How the models' outputs become bytes. Offsets are in cells.
struct Quantizer {
  uint8_t zero;
  float step;
  [[nodiscard]] uint8_t operator()(float value) const {
    return static_cast<uint8_t>(std::clamp(std::round(value / step) + static_cast<float>(zero), 0.0F, 255.0F));
  }
};
constexpr Quantizer kHeat{210, 0.08174263F};
constexpr Quantizer kShort{142, 0.7368203F / kCell};
constexpr Quantizer kMid{123, 1.4407082F / kCell};

Pixel turnedPixel(const Pixel& p, int rotation, float height, float width) {
  if (rotation == 90) return {p.x, width - p.y};
  if (rotation == 180) return {height - p.y, width - p.x};
  if (rotation == 270) return {height - p.x, p.y};
  return p;
}

/// Long displacements are seen to half a cell only; the short offsets correct them.
float coarse(float cells) { return std::round(cells * 2.0F) / 2.0F; }

/// Calls visit(cell, y, x) for the cells within 2 cells of a pixel; (y, x) leads from the pixel to the cell, in cells.
template <typename Visit>
void forCellsAround(const Pixel& pixel, int height, int width, Visit visit) {
  const float cell_y = pixel.y / kCell;
  const float cell_x = pixel.x / kCell;
  const auto first = [](float at) { return std::max(0, static_cast<int>(at) - 2); };
  const auto last = [](float at, int size) { return std::min(size - 1, static_cast<int>(at) + 3); };
  for (int y = first(cell_y); y <= last(cell_y, height); ++y) {
    for (int x = first(cell_x); x <= last(cell_x, width); ++x) {
      visit(static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x),
            static_cast<float>(y) - cell_y, static_cast<float>(x) - cell_x);
    }
  }
}

}  // namespace

PersonPixels standingPerson(float x, float top, float height) {
  // In heights of the body: to the picture's right of the middle, and below the top.
  constexpr std::array<float, kParts> kAside = {0,     0.02F,  -0.02F, 0.04F,  -0.04F, 0.11F,  -0.11F, 0.15F, -0.15F,
                                                0.17F, -0.17F, 0.07F,  -0.07F, 0.08F,  -0.08F, 0.07F,  -0.07F};
  constexpr std::array<float, kParts> kBelow = {0.08F, 0.06F, 0.06F, 0.07F, 0.07F, 0.2F,  0.2F,  0.36F, 0.36F,
                                                0.5F,  0.5F,  0.52F, 0.52F, 0.75F, 0.75F, 0.97F, 0.97F};
  PersonPixels person;
  for (std::size_t k = 0; k < kParts; ++k) person[k] = {top + kBelow[k] * height, x + kAside[k] * height};
  return person;
}

PersonPixels turned(const PersonPixels& person, int rotation, float height, float width) {
  PersonPixels result;
  std::transform(person.begin(), person.end(), result.begin(),
                 [&](const Pixel& p) { return turnedPixel(p, rotation, height, width); });
  return result;
}

PoseGrid::PoseGrid(int grid_height, int grid_width) : height(grid_height), width(grid_width) {
  const auto cells = static_cast<std::size_t>(height) * static_cast<std::size_t>(width);
  heatmaps.assign(cells * kParts, 0);
  short_offsets.assign(cells * 2 * kParts, kShort.zero);
  mid_offsets.assign(cells * 4 * kEdges, kMid.zero);
}

void PoseGrid::add(const PersonPixels& person, float logit, std::size_t root) {
  for (std::size_t k = 0; k < kParts; ++k) {
    forCellsAround(person[k], height, width, [&](std::size_t cell, float y, float x) {
      heatmaps[cell * kParts + k] = kHeat(logit + (k == root ? 1.0F : 0.0F) - 0.3F * (y * y + x * x));
      short_offsets[cell * 2 * kParts + k] = kShort(-y);
      short_offsets[cell * 2 * kParts + kParts + k] = kShort(-x);
    });
  }
  for (std::size_t e = 0; e < 2 * kEdges; ++e) {
    const bool backward = e >= kEdges;
    const auto& [parent, child] = kBodyTree[e % kEdges];
    const Pixel& from = person[backward ? child : parent];
    const Pixel& to = person[backward ? parent : child];
    const std::size_t channel = backward ? e + kEdges : e;
    forCellsAround(from, height, width, [&](std::size_t cell, float y, float x) {
      mid_offsets[cell * 4 * kEdges + channel] = kMid(coarse((to.y - from.y) / kCell - y));
      mid_offsets[cell * 4 * kEdges + channel + kEdges] = kMid(coarse((to.x - from.x) / kCell - x));
    });
  }
}

Inference::Outputs detectorOutputs(float kind, float score) {
  constexpr std::size_t kFinds = 20;
  constexpr float kChair = 56.0F;
  std::vector<float> kinds(kFinds, kChair);
  std::vector<float> scores(kFinds, 0.99F);
  kinds.back() = kind;
  scores.back() = score;
  const auto bytes = [](const std::vector<float>& values) {
    std::vector<uint8_t> raw(values.size() * sizeof(float));
    std::memcpy(raw.data(), values.data(), raw.size());
    return raw;
  };
  return {bytes(scores), std::vector<uint8_t>(kFinds * 4 * sizeof(float)), std::vector<uint8_t>(sizeof(float)),
          bytes(kinds)};
}

void describePoseModel(std::size_t height, std::size_t width, std::size_t rows, std::size_t columns) {
  inference().inputs = {{1, height, width, 3}};
  inference().outputs.clear();
  for (const std::size_t channels : {17U, 34U, 64U, 1U, 24U, 34U}) {
    inference().outputs.push_back({1, rows, columns, channels});
  }
}

}  // namespace scripted
