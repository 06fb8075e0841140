// What the camera's video service knows beyond its C interface, for whoever shows the streams.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/workstation/camera/cycle_frames.h"
#include "platform/workstation/camera/takeover.h"
#include "platform/workstation/decoding/video_camera.h"

namespace workstation {

/// The camera that the program has opened; nothing while it has opened none. From any thread.
std::shared_ptr<WatchedCamera> openedCamera();

/// The newest frame of the camera that the program has opened; nothing while it has opened none, or the camera gives no
/// pictures. From any thread.
std::shared_ptr<const DecodedFrame> newestFrame();

/// Cycles of the program that have ended without a picture, or have got none.
struct CycleFailures {
  std::uint64_t count = 0;  ///< rises with each
  std::string last;         ///< why, for everybody's eyes; empty while there was none
};
/// From any thread.
CycleFailures cycleFailures();

/// The overlays are drawn now: the frame that this cycle of the program is about; nothing between cycles. On the main
/// loop's thread.
CycleFrames::Frame drawnFrame();

}  // namespace workstation
