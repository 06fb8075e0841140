// The room's edges as they were when the floor was calibrated, and how far they have moved since.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/workstation/sight/look.h"

namespace workstation {

/// How strong edges are in each cell of a picture, row by row.
struct EdgeMap {
  int columns = 0;
  int rows = 0;
  std::vector<CellEdges> cells;

  [[nodiscard]] const CellEdges& at(int x, int y) const {
    return cells[static_cast<std::size_t>(y) * static_cast<std::size_t>(columns) + static_cast<std::size_t>(x)];
  }
};

/// How a picture's edges lie beside those of the reference, as its windows tell that can: those with edges in more than
/// one direction.
struct Displacement {
  int windows = 0;    ///< that can tell
  int found = 0;      ///< of these, whose edges are in the picture, not too far from where they were
  int agreeing = 0;   ///< of those found, where one shifted, turned and enlarged picture would have them
  int against = 0;    ///< of those found, not agreeing and in their place
  double pixels = 0;  ///< mean displacement of those agreeing, in pixels of a picture of 1280
  double nearby = 0;  ///< share of the windows that agree on a displacement of less than 64 pixels
};

/// Finds again what a reference shows.
class RoomMatcher {
 public:
  explicit RoomMatcher(const EdgeMap& reference);
  [[nodiscard]] Displacement compare(const EdgeMap& now) const;
  /// Windows that can tell.
  [[nodiscard]] int windows() const { return static_cast<int>(m_near.windows.size()); }

 private:
  struct Edge {
    int x, y;  ///< cell
    std::size_t direction;
    float strength;
  };
  struct Window {
    int left, top, side;  ///< cells
    std::vector<Edge> edges = {};
    float norm = 0;  ///< root of the sum of the squares of their strengths
  };
  /// How a map is cut into windows, and how far they are looked for.
  struct Scale {
    int side;                ///< of a window, in cells
    int reach;               ///< in cells
    double pixels_per_cell;  ///< of a picture of 1280
    std::vector<Window> windows = {};
  };
  struct Place;
  struct Similarity;
  class Squares;

  static void cut(const EdgeMap& reference, Scale& scale);
  static Window windowAt(const EdgeMap& reference, int left, int top, int side);
  static bool canTell(const Window& window, const EdgeMap& reference, const Squares& squares);
  static float likeness(const Window& window, const EdgeMap& now, const Squares& squares, int dx, int dy);
  static std::optional<Place> find(const Scale& scale, const Window& window, const EdgeMap& now,
                                   const Squares& squares);
  static void fit(const std::vector<Place>& places, Displacement& displacement);
  static Displacement compare(const Scale& scale, const EdgeMap& now);

  Scale m_near{18, 8, 8};   ///< up to 64 pixels, to a pixel or two
  Scale m_far{11, 14, 16};  ///< up to 224 pixels
};

/// Gathers a reference: edges that were there in most pictures of a time, so that whoever moves leaves none.
class RoomGatherer {
 public:
  void add(const EdgeMap& edges);
  [[nodiscard]] int pictures() const { return m_pictures; }
  /// In steps of kStrengthStep. Cells of `hidden` (one for each cell, or none at all) stay empty.
  [[nodiscard]] EdgeMap edges(const std::vector<bool>& hidden) const;

 private:
  struct Sum {
    std::uint32_t strength = 0;
    std::uint32_t count = 0;
  };
  std::vector<std::array<Sum, kDirections>> m_sums = std::vector<std::array<Sum, kDirections>>(kCells);
  int m_pictures = 0;
};

}  // namespace workstation
