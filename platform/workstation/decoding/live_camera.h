// A camera that is watched as it goes: its source may stand still, vanish, come late and come back.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "platform/workstation/decoding/video_camera.h"

namespace workstation {

/// How long a live camera waits for what.
struct LiveTimes {
  std::chrono::milliseconds fresh{2000};           ///< an older frame is none, since it came
  std::chrono::milliseconds late{1000};            ///< it may have been taken so much earlier; what lies beyond counts
  std::chrono::milliseconds start{3000};           ///< the program's start waits this long for a first frame
  std::chrono::milliseconds first_frame{20000};    ///< of a source that has been opened; then it is opened anew
  std::chrono::milliseconds next_frame{5000};      ///< the same while it plays
  std::chrono::milliseconds closing{1000};         ///< then a source that does not let itself be closed is left behind
  std::chrono::milliseconds shortest_pause{1000};  ///< before it is opened again; doubled each time
  std::chrono::milliseconds longest_pause{2000};
  std::chrono::milliseconds refused_pause{30000};  ///< after a login that was refused: cameras lock out who guesses
  std::chrono::milliseconds steady{10000};         ///< after frames for this long the next pause is the shortest again
};

/// The times of cameras that are opened from now on. For tests; before there are threads.
LiveTimes& liveTimes();

/// Keeps its source open in threads of its own, so that nobody ever waits for GStreamer, and reports
/// Trouble::kCameraAway while it has no fresh frame. A pipe, a device or a stream of a network is opened again and
/// again, however it ended. So is a file that loops; one that doesn't ends the process with SIGTERM when it has come to
/// its end, and when it broke before with an exit status of 1.
class LiveCamera : public VideoCamera {
 public:
  /// Whether somebody relies on its frames: only then does it report that it has none.
  enum class Charge { kNow, kLater };

  /// Waits a moment for the first frame. Throws std::runtime_error with the reason when the source is a file that
  /// cannot be played; a source of any other kind may come later.
  LiveCamera(const CameraSource& source, bool loop, Charge charge = Charge::kNow);
  ~LiveCamera() override;
  LiveCamera(const LiveCamera&) = delete;
  LiveCamera& operator=(const LiveCamera&) = delete;

  std::shared_ptr<const DecodedFrame> frameAt(TimeStamp now) override;
  [[nodiscard]] std::uint32_t framerate() const override;

  /// From now on somebody relies on it.
  void takeCharge();
  /// Why it has no fresh frame, while it has none; for everybody's eyes.
  [[nodiscard]] std::string whyAway() const;

 private:
  class Keeper;
  std::shared_ptr<Keeper> m_keeper;
};

}  // namespace workstation
