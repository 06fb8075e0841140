#include "platform/workstation/inference/engine/shrink.h"

#include <algorithm>

namespace workstation {

Shrink::Shrink(const ConvolutionStep& step, const Shape& target, int height, int packed_width)
    : m_patch_rows(static_cast<size_t>(step.stride_y)),
      m_patch_columns(static_cast<size_t>(step.stride_x)),
      m_rows(static_cast<size_t>(height / step.stride_y)),
      m_columns(static_cast<size_t>(packed_width / step.stride_x)),
      m_map_rows(static_cast<size_t>(target.height)),
      m_map_width(static_cast<size_t>(target.width)),
      m_packed_width(static_cast<size_t>(packed_width)),
      m_sums(m_packed_width) {
  const auto maps = static_cast<size_t>(target.channels);
  m_bias = step.bias == nullptr ? std::vector<float>(maps, 0.0F) : step.bias->floats;
  m_taps.resize(maps);
  for (size_t map = 0; map < maps; ++map) {
    const float* weights = step.weights->floats.data() + map * m_patch_rows * m_patch_columns;
    for (size_t column = 0; column < m_patch_columns; ++column) {
      if (weights[column] != 0) m_taps[map].push_back({column, weights[column]});
    }
  }
}

void Shrink::addRows(const std::uint8_t* rows) {
  std::copy_n(rows, m_packed_width, m_sums.begin());
  for (size_t row = 1; row < m_patch_rows; ++row) {
    const std::uint8_t* bytes = rows + row * m_packed_width;
    for (size_t i = 0; i < m_packed_width; ++i) m_sums[i] = static_cast<std::uint16_t>(m_sums[i] + bytes[i]);
  }
}

/// Tap by tap instead of value by value: values do not wait for one another.
void Shrink::addColumn(const Tap& tap, float* line) const {
  const std::uint16_t* sums = m_sums.data() + tap.column;
  for (size_t x = 0; x < m_columns; ++x) line[x] += tap.weight * static_cast<float>(sums[x * m_patch_columns]);
}

void Shrink::run(const std::uint8_t* picture, float* maps) {
  for (size_t y = 0; y < m_rows; ++y) {
    addRows(picture + y * m_patch_rows * m_packed_width);
    for (size_t map = 0; map < m_taps.size(); ++map) {
      float* line = maps + (map * m_map_rows + y) * m_map_width;
      std::fill(line, line + m_columns, m_bias[map]);
      for (const Tap& tap : m_taps[map]) addColumn(tap, line);
      std::fill(line + m_columns, line + m_map_width, 0.0F);
    }
  }
  for (size_t map = 0; map < m_taps.size(); ++map) {
    float* first = maps + (map * m_map_rows + m_rows) * m_map_width;
    std::fill(first, first + (m_map_rows - m_rows) * m_map_width, 0.0F);
  }
}

}  // namespace workstation
