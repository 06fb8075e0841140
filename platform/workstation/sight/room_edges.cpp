#include "platform/workstation/sight/room_edges.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace workstation {
namespace {

constexpr std::size_t kFewestEdges = 20;  // of a window that can tell
constexpr float kSelfSimilar = 0.8F;      // a window that is so like itself two cells off cannot tell
constexpr float kFound = 0.55F;           // likeness of a window that is found again
constexpr float kStays = 0.95F;           // of the best likeness: a window that is so like its place is in it
constexpr std::uint8_t kEdge = 5;         // strength of an edge that counts
constexpr double kLasting = 0.75;         // share of the pictures in which an edge must be

/// Where between its neighbours a peak lies, from -0.5 to 0.5.
float peakBetween(float before, float at, float after) {
  const float bend = before - 2 * at + after;
  return bend >= 0 ? 0 : std::clamp((before - after) / (2 * bend), -0.5F, 0.5F);
}

/// Four cells become one.
EdgeMap halved(const EdgeMap& map) {
  EdgeMap half{map.columns / 2, map.rows / 2, {}};
  half.cells.reserve(static_cast<std::size_t>(half.columns) * static_cast<std::size_t>(half.rows));
  for (int y = 0; y < half.rows; ++y) {
    for (int x = 0; x < half.columns; ++x) {
      CellEdges sum{};
      for (std::size_t direction = 0; direction < kDirections; ++direction) {
        const int strength = map.at(2 * x, 2 * y)[direction] + map.at(2 * x + 1, 2 * y)[direction] +
                             map.at(2 * x, 2 * y + 1)[direction] + map.at(2 * x + 1, 2 * y + 1)[direction];
        sum[direction] = static_cast<std::uint8_t>(strength / 2);
      }
      half.cells.push_back(sum);
    }
  }
  return half;
}

}  // namespace

/// A window that was found again.
struct RoomMatcher::Place {
  float x, y;    ///< of the window's middle, in cells from the picture's
  float dx, dy;  ///< displacement in cells
  bool stayed;   ///< in its place, as far as it can tell
};

/// A picture shifted, turned by a little, and enlarged: the displacement of the place (x, y).
struct RoomMatcher::Similarity {
  float dx = 0, dy = 0;      ///< of the picture's middle, in cells
  float turn = 0, grow = 0;  ///< cells for each cell from the middle

  static Similarity through(const Place& one, const Place& two) {
    const float x = two.x - one.x;
    const float y = two.y - one.y;
    const float squared = x * x + y * y;
    Similarity result;
    result.turn = (x * (two.dy - one.dy) - y * (two.dx - one.dx)) / squared;
    result.grow = (x * (two.dx - one.dx) + y * (two.dy - one.dy)) / squared;
    result.dx = one.dx - result.grow * one.x + result.turn * one.y;
    result.dy = one.dy - result.turn * one.x - result.grow * one.y;
    return result;
  }

  /// With the least sum of squares. At least two places.
  static Similarity nearest(const std::vector<Place>& places) {
    const auto count = static_cast<float>(places.size());
    Place mean{};
    for (const Place& place : places) {
      mean.x += place.x / count;
      mean.y += place.y / count;
      mean.dx += place.dx / count;
      mean.dy += place.dy / count;
    }
    Similarity result;
    float squared = 0;
    for (const Place& place : places) {
      const float x = place.x - mean.x;
      const float y = place.y - mean.y;
      squared += x * x + y * y;
      result.turn += x * (place.dy - mean.dy) - y * (place.dx - mean.dx);
      result.grow += x * (place.dx - mean.dx) + y * (place.dy - mean.dy);
    }
    result.turn /= squared;
    result.grow /= squared;
    result.dx = mean.dx - result.grow * mean.x + result.turn * mean.y;
    result.dy = mean.dy - result.turn * mean.x - result.grow * mean.y;
    return result;
  }

  /// How far the place is displaced, and by how much it differs from where it was found.
  [[nodiscard]] float lengthAt(const Place& place) const { return std::hypot(dxAt(place), dyAt(place)); }
  [[nodiscard]] bool fits(const Place& place) const {
    constexpr float kOff = 0.6F;        // cells
    constexpr float kOffShare = 0.25F;  // of the displacement: what is near moves more than what is far
    return std::hypot(place.dx - dxAt(place), place.dy - dyAt(place)) < kOff + kOffShare * lengthAt(place);
  }

 private:
  [[nodiscard]] float dxAt(const Place& place) const { return dx + grow * place.x - turn * place.y; }
  [[nodiscard]] float dyAt(const Place& place) const { return dy + turn * place.x + grow * place.y; }
};

/// Sums of squared strengths over rectangles.
class RoomMatcher::Squares {
 public:
  explicit Squares(const EdgeMap& map)
      : m_stride(map.columns + 1), m_sums(static_cast<std::size_t>(m_stride) * static_cast<std::size_t>(map.rows + 1)) {
    for (int y = 0; y < map.rows; ++y) {
      std::uint32_t row = 0;
      for (int x = 0; x < map.columns; ++x) {
        for (const std::uint8_t strength : map.at(x, y)) row += std::uint32_t{strength} * strength;
        m_sums[place(x + 1, y + 1)] = m_sums[place(x + 1, y)] + row;
      }
    }
  }

  [[nodiscard]] float square(int left, int top, int side) const {
    return static_cast<float>(m_sums[place(left + side, top + side)] - m_sums[place(left, top + side)] -
                              m_sums[place(left + side, top)] + m_sums[place(left, top)]);
  }

 private:
  [[nodiscard]] std::size_t place(int x, int y) const {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(m_stride) + static_cast<std::size_t>(x);
  }
  int m_stride;
  std::vector<std::uint32_t> m_sums;
};

RoomMatcher::RoomMatcher(const EdgeMap& reference) {
  cut(reference, m_near);
  cut(halved(reference), m_far);
}

RoomMatcher::Window RoomMatcher::windowAt(const EdgeMap& reference, int left, int top, int side) {
  Window window{left, top, side};
  float squares = 0;
  for (int y = top; y < top + side; ++y) {
    for (int x = left; x < left + side; ++x) {
      for (std::size_t direction = 0; direction < kDirections; ++direction) {
        const std::uint8_t strength = reference.at(x, y)[direction];
        if (strength < kEdge) continue;
        window.edges.push_back({x, y, direction, static_cast<float>(strength)});
        squares += static_cast<float>(strength) * static_cast<float>(strength);
      }
    }
  }
  window.norm = std::sqrt(squares);
  return window;
}

void RoomMatcher::cut(const EdgeMap& reference, Scale& scale) {
  const Squares squares(reference);
  for (int top = 0; top + scale.side <= reference.rows; top += scale.side) {
    for (int left = 0; left + scale.side <= reference.columns; left += scale.side) {
      Window window = windowAt(reference, left, top, scale.side);
      if (canTell(window, reference, squares)) scale.windows.push_back(std::move(window));
    }
  }
}

/// Of the window's edges and what lies so many cells off its place: 1 for the same, 0 for nothing in common and
/// outside.
float RoomMatcher::likeness(const Window& window, const EdgeMap& now, const Squares& squares, int dx, int dy) {
  const int left = window.left + dx;
  const int top = window.top + dy;
  if (left < 0 || top < 0 || left + window.side > now.columns || top + window.side > now.rows) return 0;
  const float square = squares.square(left, top, window.side);
  if (square <= 0) return 0;
  float sum = 0;
  for (const Edge& edge : window.edges) {
    sum += edge.strength * static_cast<float>(now.at(edge.x + dx, edge.y + dy)[edge.direction]);
  }
  return sum / (window.norm * std::sqrt(square));
}

/// A window that is much the same a little to one side, such as one with a single line, cannot tell how far it moved.
bool RoomMatcher::canTell(const Window& window, const EdgeMap& reference, const Squares& squares) {
  if (window.edges.size() < kFewestEdges) return false;
  for (const auto& [dx, dy] : {std::pair(2, 0), {2, 2}, {0, 2}, {-2, 2}}) {
    if (likeness(window, reference, squares, dx, dy) > kSelfSimilar ||
        likeness(window, reference, squares, -dx, -dy) > kSelfSimilar) {
      return false;
    }
  }
  return true;
}

std::optional<RoomMatcher::Place> RoomMatcher::find(const Scale& scale, const Window& window, const EdgeMap& now,
                                                    const Squares& squares) {
  const int reach = scale.reach;
  const int columns = 2 * reach + 1;
  std::vector<float> like(static_cast<std::size_t>(columns) * static_cast<std::size_t>(columns));
  const auto at = [&](int dx, int dy) -> float& {
    const int place = (dy + reach) * columns + dx + reach;
    return like[static_cast<std::size_t>(place)];
  };
  int best_x = 0;
  int best_y = 0;
  for (int dy = -reach; dy <= reach; ++dy) {
    for (int dx = -reach; dx <= reach; ++dx) {
      at(dx, dy) = likeness(window, now, squares, dx, dy);
      if (at(dx, dy) > at(best_x, best_y)) {
        best_x = dx;
        best_y = dy;
      }
    }
  }
  const float best = at(best_x, best_y);
  if (best < kFound || std::abs(best_x) == reach || std::abs(best_y) == reach) return std::nullopt;
  const float dx = static_cast<float>(best_x) + peakBetween(at(best_x - 1, best_y), best, at(best_x + 1, best_y));
  const float dy = static_cast<float>(best_y) + peakBetween(at(best_x, best_y - 1), best, at(best_x, best_y + 1));
  const float half = static_cast<float>(window.side) / 2;
  return Place{static_cast<float>(window.left) + half - static_cast<float>(now.columns) / 2,
               static_cast<float>(window.top) + half - static_cast<float>(now.rows) / 2, dx, dy,
               at(0, 0) >= kStays * best};
}

/// Every two windows propose how the picture was shifted, turned and enlarged; the proposal that most agree to counts,
/// as those who agree have it on average.
void RoomMatcher::fit(const std::vector<Place>& places, Displacement& displacement) {
  Similarity best;
  for (std::size_t a = 0; a < places.size(); ++a) {
    for (std::size_t b = a + 1; b < places.size(); ++b) {
      const Similarity proposed = Similarity::through(places[a], places[b]);
      const auto agreeing = static_cast<int>(std::count_if(
          places.begin(), places.end(), [&proposed](const Place& place) { return proposed.fits(place); }));
      if (agreeing <= displacement.agreeing) continue;
      displacement.agreeing = agreeing;
      best = proposed;
    }
  }
  if (displacement.agreeing < 2) return;
  std::vector<Place> agreeing;
  for (const Place& place : places) {
    if (best.fits(place)) {
      agreeing.push_back(place);
    } else if (place.stayed) {
      ++displacement.against;
    }
  }
  best = Similarity::nearest(agreeing);
  for (const Place& place : agreeing) displacement.pixels += static_cast<double>(best.lengthAt(place));
  displacement.pixels /= static_cast<double>(agreeing.size());
}

Displacement RoomMatcher::compare(const Scale& scale, const EdgeMap& now) {
  Displacement displacement;
  displacement.windows = static_cast<int>(scale.windows.size());
  const Squares squares(now);
  std::vector<Place> places;
  for (const Window& window : scale.windows) {
    if (const auto place = find(scale, window, now, squares)) places.push_back(*place);
  }
  displacement.found = static_cast<int>(places.size());
  fit(places, displacement);
  displacement.pixels *= scale.pixels_per_cell;
  return displacement;
}

/// What is not found nearby is looked for farther away, less exactly.
Displacement RoomMatcher::compare(const EdgeMap& now) const {
  Displacement near = compare(m_near, now);
  near.nearby = near.windows == 0 ? 0 : static_cast<double>(near.agreeing) / near.windows;
  if (near.agreeing * 2 >= near.windows) return near;
  Displacement far = compare(m_far, halved(now));
  far.nearby = near.nearby;
  return far.agreeing * near.windows > near.agreeing * far.windows ? far : near;
}

void RoomGatherer::add(const EdgeMap& edges) {
  for (std::size_t cell = 0; cell < kCells; ++cell) {
    for (std::size_t direction = 0; direction < kDirections; ++direction) {
      const std::uint8_t strength = edges.cells[cell][direction];
      if (strength < kEdge) continue;
      m_sums[cell][direction].strength += strength;
      ++m_sums[cell][direction].count;
    }
  }
  ++m_pictures;
}

EdgeMap RoomGatherer::edges(const std::vector<bool>& hidden) const {
  EdgeMap edges{kCellColumns, kCellRows, std::vector<CellEdges>(kCells)};
  const double lasting = kLasting * m_pictures;
  for (std::size_t cell = 0; cell < kCells; ++cell) {
    if (!hidden.empty() && hidden[cell]) continue;
    for (std::size_t direction = 0; direction < kDirections; ++direction) {
      const auto [strength, count] = m_sums[cell][direction];
      if (count == 0 || count < lasting) continue;
      edges.cells[cell][direction] = static_cast<std::uint8_t>(strength / count / kStrengthStep * kStrengthStep);
    }
  }
  return edges;
}

}  // namespace workstation
