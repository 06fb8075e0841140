#include "platform/workstation/camera/cycle_frames.h"

namespace workstation {

void CycleFrames::begin(std::uint64_t cycle) {
  if (cycle == m_cycle) return;
  m_has_failed = m_has_failed || !m_is_drawn;
  m_cycle = cycle;
  m_is_drawn = false;
  m_frame.reset();
}

CycleFrames::Frame CycleFrames::take(std::uint64_t cycle, const std::function<Frame()>& newest) {
  if (cycle == 0) return newest();
  begin(cycle);
  if (!m_frame) m_frame = newest();
  return m_frame;
}

CycleFrames::Frame CycleFrames::draw(std::uint64_t cycle) {
  if (cycle == 0 || cycle != m_cycle || !m_frame) return nullptr;
  m_is_drawn = true;
  m_has_failed = false;
  return m_frame;
}

}  // namespace workstation
