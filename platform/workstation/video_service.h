// What the camera's video service knows beyond its C interface, for whoever shows the streams.
#pragma once

#include <memory>

#include "platform/workstation/cycle_frames.h"
#include "platform/workstation/video_camera.h"

namespace workstation {

/// The newest frame of the camera that the program has opened; nothing while it has opened none, or the camera gives no
/// pictures. From any thread.
std::shared_ptr<const DecodedFrame> newestFrame();

/// The overlays are drawn now: the frame that this cycle of the program is about; nothing between cycles. On the main
/// loop's thread.
CycleFrames::Frame drawnFrame();

}  // namespace workstation
