#include "platform/workstation/decoding/replay_progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace workstation {
namespace {

std::string minutesAndSeconds(std::chrono::nanoseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
  const std::string rest = std::to_string(seconds % 60);
  return std::to_string(seconds / 60) + (rest.size() < 2 ? ":0" : ":") + rest;
}

bool progressIsWanted() {
  const char* progress = std::getenv("VELMOR_PROGRESS");
  return progress != nullptr && std::string_view(progress) == "1" && isatty(STDERR_FILENO) == 1;
}

}  // namespace

std::string progressLine(std::chrono::nanoseconds position, std::chrono::nanoseconds length) {
  constexpr std::size_t kBar = 40;
  const double share =
      length.count() <= 0
          ? 1.0
          : std::clamp(static_cast<double>(position.count()) / static_cast<double>(length.count()), 0.0, 1.0);
  const auto full = static_cast<std::size_t>(share * static_cast<double>(kBar));
  const std::string percent = std::to_string(static_cast<int>(share * 100));
  std::string line(1, '[');
  line.append(full, '#').append(kBar - full, '-').append("] ").append(3 - percent.size(), ' ').append(percent);
  return line + " %  " + minutesAndSeconds(position) + " of " + minutesAndSeconds(length);
}

ReplayProgress::ReplayProgress() : m_wanted(progressIsWanted()) {}

ReplayProgress::~ReplayProgress() {
  if (!m_shown.empty()) std::fputc('\n', stderr);
}

void ReplayProgress::show(std::chrono::nanoseconds position, std::chrono::nanoseconds length) {
  if (!m_wanted) return;
  const std::string line = progressLine(std::min(position, length), length);
  if (line == m_shown) return;
  std::fprintf(stderr, "\r%s", line.c_str());
  m_shown = line;
}

}  // namespace workstation
