#include "platform/workstation/sight/look.h"

#include <libyuv.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace workstation {
namespace {

constexpr StreamSize kFineSize{640, 360};
constexpr int kFinePerCell = 4;
constexpr int kMiddlePerCell = 2;

/// An edge weaker than that, in grey levels from pixel to pixel but one, may be what compression left.
constexpr int kFaintest = 6;
/// Of noise that much remains in an edge's strength (standard deviations).
constexpr double kNoiseMargin = 3;
/// The mean of a cell's pixels from which on the cell has an edge.
constexpr int kHasEdge = 10;
/// The same for the difference of its neighbours, in which little noise is left: for the edges of a dark room.
constexpr int kHasStep = 10;
/// Sharpness is measured where neighbouring cells differ so much, in grey levels.
constexpr int kStrong = 16;
/// Bars beside a picture of another shape are black, and their inner ends what scaling made of black and picture.
constexpr int kBarBlack = 1;
constexpr int kBarBlur = 2;  ///< lines
constexpr double kVideoRange = 219;
constexpr double kVideoBlack = 16;

/// Grey levels, rows without padding.
struct Plane {
  Plane(int columns, int rows)
      : width(columns), height(rows), bytes(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows)) {}

  [[nodiscard]] std::uint8_t* row(int y) { return bytes.data() + std::ptrdiff_t{y} * width; }
  [[nodiscard]] const std::uint8_t* row(int y) const { return bytes.data() + std::ptrdiff_t{y} * width; }

  int width;
  int height;
  std::vector<std::uint8_t> bytes;
};

Plane halved(const Plane& from) {
  Plane to(from.width / 2, from.height / 2);
  libyuv::ScalePlane(from.bytes.data(), from.width, from.width, from.height, to.bytes.data(), to.width, to.width,
                     to.height, libyuv::kFilterBox);
  return to;
}

bool isBlackRow(const Plane& fine, int y) {
  return std::all_of(fine.row(y), fine.row(y) + fine.width, [](std::uint8_t level) { return level <= kBarBlack; });
}

bool isBlackColumn(const Plane& fine, int x) {
  for (int y = 0; y < fine.height; ++y) {
    if (fine.row(y)[x] > kBarBlack) return false;
  }
  return true;
}

/// How many lines at each end are a bar: as many at the one as at the other, and not the whole picture.
template <typename IsBlack>
int barOf(int lines, IsBlack isBlack) {
  int bar = 0;
  while (bar < lines * 9 / 20 && isBlack(bar) && isBlack(lines - 1 - bar)) ++bar;
  if (bar == 0 || bar == lines * 9 / 20) return 0;
  return bar + kBarBlur;
}

/// A camera of another shape comes with black bars, whose edges stay where they are and whose black stays dark,
/// whatever happens to the lens: the picture's outermost lines take their place.
void fillBars(Plane& fine) {
  const int high = barOf(fine.height, [&fine](int y) { return isBlackRow(fine, y); });
  const auto width = static_cast<std::size_t>(fine.width);
  for (int y = 0; y < high; ++y) {
    std::memcpy(fine.row(y), fine.row(high), width);
    std::memcpy(fine.row(fine.height - 1 - y), fine.row(fine.height - 1 - high), width);
  }
  const int wide = barOf(fine.width, [&fine](int x) { return isBlackColumn(fine, x); });
  for (int y = 0; y < fine.height && wide > 0; ++y) {
    std::uint8_t* const row = fine.row(y);
    std::memset(row, row[wide], static_cast<std::size_t>(wide));
    std::memset(row + fine.width - wide, row[fine.width - 1 - wide], static_cast<std::size_t>(wide));
  }
}

/// Full range, so that grey levels mean the same for every camera.
Plane finePlane(const I420View& frame) {
  Plane fine(kFineSize.width, kFineSize.height);
  withStreamPicture(frame, kFineSize, 0, [&](const I420View& picture) {
    libyuv::CopyPlane(picture.y, picture.y_stride, fine.bytes.data(), fine.width, fine.width, fine.height);
  });
  if (frame.full_range) {
    fillBars(fine);
    return fine;
  }
  static const auto expanded = [] {
    std::array<std::uint8_t, 256> table{};
    for (std::size_t i = 0; i < table.size(); ++i) {
      const double level = (static_cast<double>(i) - kVideoBlack) * 255 / kVideoRange;
      table.at(i) = static_cast<std::uint8_t>(std::lround(std::clamp(level, 0.0, 255.0)));
    }
    return table;
  }();
  for (std::uint8_t& level : fine.bytes) level = expanded[level];
  fillBars(fine);
  return fine;
}

/// From the median of a second difference, which edges do not reach as long as most of the picture is plain.
double noiseOf(const Plane& fine) {
  constexpr int kRowStep = 4;
  constexpr double kMedianToDeviation = 1 / (0.6745 * 2.4495);  // of a sum with the weights 1, -2, 1
  std::array<int, 511> counts{};
  int total = 0;
  for (int y = 0; y < fine.height; y += kRowStep) {
    const std::uint8_t* const row = fine.row(y);
    for (int x = 1; x + 1 < fine.width; ++x)
      ++counts[static_cast<std::size_t>(std::abs(row[x - 1] - 2 * row[x] + row[x + 1]))];
    total += fine.width - 2;
  }
  int below = 0;
  std::size_t median = 0;
  while (below + counts.at(median) < total / 2) below += counts.at(median++);
  // Levels are whole numbers: where in the median's step half of them is reached.
  const double within = (total / 2.0 - below) / counts.at(median);
  return median == 0 ? 0 : (static_cast<double>(median) - 0.5 + within) * kMedianToDeviation;
}

void takeBrightness(const Plane& cells, Look& look) {
  std::array<int, 256> counts{};
  double sum = 0;
  for (const std::uint8_t level : cells.bytes) {
    ++counts[level];
    sum += level;
  }
  look.mean = sum / static_cast<double>(kCells);
  const auto levelOf = [&counts](int rank) {
    std::size_t level = 0;
    for (int below = counts[0]; below <= rank && level < 255; below += counts.at(level)) ++level;
    return static_cast<double>(level);
  };
  look.dark = levelOf(static_cast<int>(kCells / 100));
  look.bright = levelOf(static_cast<int>(kCells - kCells / 100 - 1));
}

/// The mean grey levels of parts of `side` cells.
template <std::size_t count>
void takeMeans(const Plane& cells, int side, std::array<std::uint8_t, count>& means) {
  const int columns = kCellColumns / side;
  for (std::size_t part = 0; part < count; ++part) {
    const int left = static_cast<int>(part) % columns * side;
    const int top = static_cast<int>(part) / columns * side;
    int sum = 0;
    for (int y = top; y < top + side; ++y) {
      for (int x = left; x < left + side; ++x) sum += cells.row(y)[x];
    }
    means.at(part) = static_cast<std::uint8_t>(sum / (side * side));
  }
}

/// Which quarter of half a turn a slope belongs to.
std::size_t directionOf(int dx, int dy) {
  constexpr int kTangent = 106;  // of an eighth of half a turn, in 256ths
  const int across = std::abs(dx);
  const int down = std::abs(dy);
  if (down * 256 < across * kTangent) return 0;
  if (across * 256 < down * kTangent) return 2;
  return (dx < 0) == (dy < 0) ? 1 : 3;
}

void takeTexture(const Plane& cells, Look& look) {
  const std::vector<CellEdges> all = edgesOf(look.grey, look.noise / kMiddlePerCell);
  constexpr int kSide = kCellColumns / kTileColumns;
  for (int y = 1; y + 1 < kCellRows; ++y) {
    for (int x = 1; x + 1 < kCellColumns; ++x) {
      const CellEdges& edges = all[static_cast<std::size_t>(y) * kCellColumns + static_cast<std::size_t>(x)];
      const std::uint8_t* const at = cells.row(y) + x;
      const int step = std::max(std::abs(at[1] - at[-1]), std::abs(at[cells.width] - at[-cells.width]));
      if (step < kHasStep && edges[0] + edges[1] + edges[2] + edges[3] < kHasEdge) continue;
      const int tile = y / kSide * kTileColumns + x / kSide;
      look.texture.at(static_cast<std::size_t>(tile)) += 1.0F / (kSide * kSide);
    }
  }
}

int slope2(const std::uint8_t* at, int stride) {
  const int dx = at[1] - at[-1];
  const int dy = at[stride] - at[-stride];
  return dx * dx + dy * dy;
}

void takeSharpness(const Plane& fine, const Plane& cells, Look& look) {
  double fine_sum = 0;
  double coarse_sum = 0;
  for (int y = 1; y + 1 < kCellRows; ++y) {
    for (int x = 1; x + 1 < kCellColumns; ++x) {
      const int coarse = slope2(cells.row(y) + x, cells.width);
      if (coarse < kStrong * kStrong) continue;
      ++look.strong_cells;
      coarse_sum += coarse;
      for (int row = y * kFinePerCell; row < (y + 1) * kFinePerCell; ++row) {
        const std::uint8_t* const begin = fine.row(row) + std::ptrdiff_t{x} * kFinePerCell;
        for (int column = 0; column < kFinePerCell; ++column) fine_sum += slope2(begin + column, fine.width);
      }
    }
  }
  if (look.strong_cells == 0) return;
  constexpr double kPixels = kFinePerCell * kFinePerCell;
  const double noise = 4 * look.noise * look.noise * kPixels * look.strong_cells;  // of two differences
  look.sharpness = std::sqrt(std::max(0.0, fine_sum - noise) / (kPixels * coarse_sum));
}

}  // namespace

std::vector<CellEdges> edgesOf(const std::vector<std::uint8_t>& grey, double noise) {
  constexpr int kPixels = kMiddlePerCell * kMiddlePerCell;
  const int threshold = kFaintest + static_cast<int>(std::lround(kNoiseMargin * noise * std::sqrt(2.0)));
  std::vector<std::array<std::uint16_t, kDirections>> sums(kCells);
  for (int y = 1; y + 1 < kGreyRows; ++y) {
    const std::uint8_t* const row = grey.data() + std::ptrdiff_t{y} * kGreyColumns;
    auto* const cells = &sums[static_cast<std::size_t>(y / kMiddlePerCell) * kCellColumns];
    for (int x = 1; x + 1 < kGreyColumns; ++x) {
      const int dx = row[x + 1] - row[x - 1];
      const int dy = row[x + kGreyColumns] - row[x - kGreyColumns];
      const int strength = std::max(std::abs(dx), std::abs(dy)) - threshold;
      if (strength <= 0) continue;
      auto& sum = cells[x / kMiddlePerCell][directionOf(dx, dy)];
      sum = static_cast<std::uint16_t>(sum + std::min<int>(strength, kStrongest));
    }
  }
  std::vector<CellEdges> edges(kCells);
  for (std::size_t cell = 0; cell < kCells; ++cell) {
    for (std::size_t direction = 0; direction < kDirections; ++direction) {
      edges[cell][direction] = static_cast<std::uint8_t>(sums[cell][direction] / kPixels);
    }
  }
  return edges;
}

Look lookAt(const I420View& frame) {
  const Plane fine = finePlane(frame);
  Plane middle = halved(fine);
  const Plane cells = halved(middle);
  Look look;
  look.noise = noiseOf(fine);
  takeBrightness(cells, look);
  takeMeans(cells, kCellColumns / kTileColumns, look.lit);
  takeMeans(cells, kCellColumns / kBlockColumns, look.shade);
  look.grey = std::move(middle.bytes);
  takeTexture(cells, look);
  takeSharpness(fine, cells, look);
  return look;
}

}  // namespace workstation
