#include "platform/workstation/inference/tensor_quantizer.h"

#include <algorithm>
#include <vector>

namespace workstation {
namespace {

/// Cells turned at a time: all channels of a block stay in the first-level cache.
constexpr size_t kBlockCells = 64;

/// One contiguous run, without a branch: the compiler makes vector code of it.
void quantize(const float* values, size_t count, Quantization code, std::uint8_t* bytes) {
  const float inverse = 1.0F / code.scale;
  const float offset = static_cast<float>(code.zero_point) + 0.5F;
  for (size_t i = 0; i < count; ++i) {
    const float shifted = values[i] * inverse + offset;
    const float from_zero = shifted > 0.0F ? shifted : 0.0F;  // also when it is not a number
    const float limited = from_zero < 255.0F ? from_zero : 255.0F;
    bytes[i] = static_cast<std::uint8_t>(static_cast<int>(limited));
  }
}

}  // namespace

void quantizeChannelsLast(std::span<const float> maps, size_t channels, Quantization code,
                          std::span<std::uint8_t> bytes) {
  const size_t cells = maps.size() / channels;
  std::vector<std::uint8_t> scratch(channels * kBlockCells);
  for (size_t begin = 0; begin < cells; begin += kBlockCells) {
    const size_t count = std::min(kBlockCells, cells - begin);
    for (size_t channel = 0; channel < channels; ++channel) {
      quantize(&maps[channel * cells + begin], count, code, &scratch[channel * kBlockCells]);
    }
    std::uint8_t* target = &bytes[begin * channels];
    for (size_t cell = 0; cell < count; ++cell) {
      for (size_t channel = 0; channel < channels; ++channel) {
        *target++ = scratch[channel * kBlockCells + cell];
      }
    }
  }
}

}  // namespace workstation
