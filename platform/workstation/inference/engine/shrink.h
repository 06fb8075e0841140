// The first layer of our networks: the packed picture's bytes as a few small maps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/workstation/inference/engine/plan.h"

namespace workstation {

/// A convolution whose patches tile the picture and whose rows weigh alike: the rows of a patch are added as integers,
/// so that little is left to be weighed. Rows and columns that fill no patch are left out.
class Shrink {
 public:
  /// `target` is the maps' shape with the frame of zeros below and at the right.
  Shrink(const ConvolutionStep& step, const Shape& target, int height, int packed_width);

  /// `maps` holds a target, channel first.
  void run(const std::uint8_t* picture, float* maps);

 private:
  struct Tap {
    size_t column;  ///< of the patch
    float weight;
  };

  void addRows(const std::uint8_t* rows);
  void addColumn(const Tap& tap, float* line) const;

  std::vector<std::vector<Tap>> m_taps;  ///< map -> what is not zero
  std::vector<float> m_bias;
  size_t m_patch_rows, m_patch_columns;
  size_t m_rows, m_columns;        ///< of the maps, without the frame
  size_t m_map_rows, m_map_width;  ///< with it
  size_t m_packed_width;
  std::vector<std::uint16_t> m_sums;  ///< of a row of patches, column by column
};

}  // namespace workstation
