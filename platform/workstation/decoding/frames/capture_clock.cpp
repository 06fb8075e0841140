#include "platform/workstation/decoding/frames/capture_clock.h"

#include <algorithm>

namespace workstation {
namespace {

using std::chrono::nanoseconds;
using namespace std::chrono_literals;

constexpr nanoseconds kInaccuracy = 200ms;  // of clocks that are kept right
constexpr int kDrift = 2000;                // a clock goes wrong by less than one part of so many

}  // namespace

CaptureTime CaptureClock::at(std::optional<Stated> stated, Steady arrived, Stated wall) {
  if (!stated) {
    m_stated.reset();
    return {arrived, false};
  }
  const nanoseconds way = wall - *stated;
  if (!m_stated || *stated < *m_stated) {
    m_quickest = way;
  } else {
    m_quickest = std::min(way, m_quickest + std::max(arrived - m_arrived, 0ns) / kDrift);
  }
  m_stated = stated;
  m_arrived = arrived;
  const bool is_known = m_quickest >= -kInaccuracy && m_quickest <= kLongestWay;
  const nanoseconds late = way - m_quickest;
  return {arrived - late - (is_known ? std::max(m_quickest, 0ns) : 0ns), is_known};
}

}  // namespace workstation
