// From a network's float maps to the byte tensors that the program reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace workstation {

/// The affine code of a byte tensor: the byte q stands for (q - zero_point) * scale.
struct Quantization {
  float scale;
  std::uint8_t zero_point;
};

/// Turns `channels` maps of `cells` floats each (channel first) into `cells` groups of `channels` bytes (channel last).
/// Values beyond the range give its end; not-a-number gives 0.
void quantizeChannelsLast(std::span<const float> maps, size_t channels, Quantization code,
                          std::span<std::uint8_t> bytes);

}  // namespace workstation
