#include "evaluate/running/progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace evaluate {

Progress::Progress(bool on_terminal, std::size_t count, std::string what)
    : m_on_terminal(on_terminal), m_count(count), m_what(std::move(what)) {
  show();
}

void Progress::did(double work_s) {
  m_done_s += work_s;
  show();
}

void Progress::finished(const std::string& name) {
  ++m_finished;
  if (m_on_terminal) return show();
  tell(name + ": done, " + std::to_string(m_finished) + " of " + std::to_string(m_count));
}

void Progress::tell(const std::string& line) {
  hide();
  std::fprintf(stderr, "%s\n", line.c_str());
  show();
}

void Progress::hide() const {
  if (m_on_terminal) std::fputs("\r\x1B[K", stderr);
}

void Progress::show() const {
  if (!m_on_terminal) return;
  constexpr std::size_t kBar = 30;
  const double share = m_work_s > 0 ? std::clamp(m_done_s / m_work_s, 0.0, 1.0) : 0;
  const auto full = static_cast<std::size_t>(share * kBar);
  const std::string bar = std::string(full, '#') + std::string(kBar - full, '-');
  std::fprintf(stderr, "\r[%s]  %zu of %zu %s%s\x1B[K", bar.c_str(), m_finished, m_count, m_what.c_str(),
               leftText(share).c_str());
}

std::string Progress::leftText(double share) const {
  if (share <= 0 || share >= 1) return "";
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - m_begin;
  constexpr double kMinute_s = 60;
  const long minutes = std::lround(elapsed.count() * (1 - share) / share / kMinute_s);
  return minutes < 1 ? ", less than a minute left" : ", about " + std::to_string(minutes) + " min left";
}

}  // namespace evaluate
