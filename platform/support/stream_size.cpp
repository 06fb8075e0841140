#include "platform/support/stream_size.h"

#include <cstdlib>
#include <limits>

namespace {

std::uint32_t pixelsFrom(const char* text) {
  const long long pixels = std::strtoll(text, nullptr, 10);
  return pixels < 0 || pixels > std::numeric_limits<int>::max() ? 0 : static_cast<std::uint32_t>(pixels);
}

}  // namespace

std::string toString(StreamSize size) { return std::to_string(size.width) + "x" + std::to_string(size.height); }

StreamSize streamSizeFrom(const std::string& text) {
  const std::size_t x = text.find('x');
  return {pixelsFrom(text.c_str()), x == std::string::npos ? 0 : pixelsFrom(text.c_str() + x + 1)};
}
