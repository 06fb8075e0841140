// What it costs to look whether a cycle's frame shows the room, and whether the room is where it was.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "platform/workstation/sight/sight.h"

namespace {

using namespace workstation;
using namespace std::chrono_literals;

/// Luma with the edges of much furniture, and a sensor's noise.
class Frame {
 public:
  Frame(int width, int height, int right) : m_width(width), m_height(height) {
    std::mt19937 random(3);
    const auto any = [&random](int most) { return std::uniform_int_distribution<int>(0, most)(random); };
    m_grey.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 150);
    for (int i = 0; i < 80; ++i) {
      const int left = any(width) - right;
      const int top = any(height);
      const auto grey = static_cast<std::uint8_t>(any(200) + 20);
      for (int y = top; y < std::min(height, top + height / 8); ++y) {
        for (int x = std::max(0, left); x < std::min(width, left + width / 8); ++x) at(x, y) = grey;
      }
    }
    for (std::uint8_t& level : m_grey) level = static_cast<std::uint8_t>(level + any(6));
  }
  [[nodiscard]] I420View view() const {
    return {m_grey.data(), m_chroma.data(), m_chroma.data(), m_width, m_width / 2, m_width / 2, m_width, m_height};
  }

 private:
  std::uint8_t& at(int x, int y) {
    return m_grey[static_cast<std::size_t>(y) * static_cast<std::size_t>(m_width) + static_cast<std::size_t>(x)];
  }
  int m_width, m_height;
  std::vector<std::uint8_t> m_grey;
  std::vector<std::uint8_t> m_chroma = std::vector<std::uint8_t>(std::size_t{1} << 22, 128);
};

/// Cycles of a camera that hangs as it should, or has been moved so far that the room is looked for far away too.
void cycles(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0));
  const Frame room(width, width * 9 / 16, 0);
  const Frame seen(width, width * 9 / 16, static_cast<int>(state.range(1)) * width / 1280);
  Sight sight;
  sight.setReference(std::nullopt);
  Sight::Time time{1h};
  for (; !sight.reference(); time += 500ms) sight.take(lookAt(room.view()), {time, {}});
  for (auto unused : state) {
    static_cast<void>(unused);
    sight.take(lookAt(seen.view()), {time, {}});
    time += 500ms;
  }
  state.counters["windows"] = sight.displacement().windows;
}

}  // namespace

BENCHMARK(cycles)
    ->ArgNames({"width", "moved"})
    ->ArgsProduct({{1280, 1920, 3840}, {0, 160}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(200);
