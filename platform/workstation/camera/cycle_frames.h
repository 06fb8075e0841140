// Which frame of the camera a cycle of the program is about.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform/workstation/decoding/video_pipeline.h"

namespace workstation {

/// A cycle sees one moment: its streams all show the frame that was the newest when the first of them was asked. A
/// cycle that has taken a frame ends well when the overlays are drawn in it, else it has failed. Cycles have numbers
/// above 0; what happens between cycles has the number 0. For one thread.
class CycleFrames {
 public:
  using Frame = std::shared_ptr<const DecodedFrame>;

  /// The frame for a stream that is asked now. `newest` may throw; the cycle then has no frame yet.
  Frame take(std::uint64_t cycle, const std::function<Frame()>& newest);

  /// The overlays are drawn: the frame that they belong to; nothing between cycles or where no frame was taken.
  Frame draw(std::uint64_t cycle);

  /// True from the moment a cycle begins after one that was never drawn, until one is drawn.
  [[nodiscard]] bool hasFailed() const { return m_has_failed; }

 private:
  void begin(std::uint64_t cycle);

  std::uint64_t m_cycle = 0;
  Frame m_frame;  ///< of this cycle
  bool m_is_drawn = true;
  bool m_has_failed = false;
};

}  // namespace workstation
