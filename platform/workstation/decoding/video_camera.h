// The one camera behind all streams.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/clock/clock.h"
#include "platform/workstation/decoding/video_pipeline.h"

namespace workstation {

/// Plays a camera's source. Frames may be asked for on any thread.
class VideoCamera {
 public:
  VideoCamera() = default;
  virtual ~VideoCamera() = default;
  VideoCamera(const VideoCamera&) = delete;
  VideoCamera& operator=(const VideoCamera&) = delete;

  /// The newest frame at time `now`. Replay: the same frame for the same time, never empty. Live: empty while there is
  /// none that is fresh (LiveTimes::fresh).
  virtual std::shared_ptr<const DecodedFrame> frameAt(TimeStamp now) = 0;

  /// Frames a second of the newest frame there was; 0 when it is not known.
  [[nodiscard]] virtual std::uint32_t framerate() const = 0;
};

/// Opens the camera's source. Replay: frame by frame as the clock asks for them; the source's end becomes the end of
/// the clock. Live: see LiveCamera; `loop` lets a file begin again at its end. Throws std::runtime_error: "cannot play
/// FILE: why".
std::shared_ptr<VideoCamera> openCamera(const CameraSource& source, bool loop);

}  // namespace workstation
