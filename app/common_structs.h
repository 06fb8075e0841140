// Small value types shared by tracker, findings and overlays.
#pragma once

#include <utility>

/// A position in whole pixels: first = x to the right, second = y down.
using t_one_centroid = std::pair<int, int>;

/// An upright rectangle in whole pixels.
struct rectangle {
  int X = 0;  ///< left edge
  int Y = 0;  ///< top edge
  int W = 0;  ///< width
  int H = 0;  ///< height

  /// Left edge plus half the width, top edge plus half the height; halves truncate toward zero.
  t_one_centroid get_centroid() const { return {X + W / 2, Y + H / 2}; }
};
