// The camera behind all streams, whose source an installer may exchange while the program watches.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/decoding/video_camera.h"

namespace workstation {

class WatchedCamera : public VideoCamera {
 public:
  /// Opens the source that the description names. Throws like openCamera().
  explicit WatchedCamera(const CameraDescription& description);

  std::shared_ptr<const DecodedFrame> frameAt(TimeStamp now) override { return current()->frameAt(now); }
  [[nodiscard]] std::uint32_t framerate() const override { return current()->framerate(); }

  /// From now on all pictures come from `next`. Returns the one before.
  std::shared_ptr<VideoCamera> exchange(std::shared_ptr<VideoCamera> next);

 private:
  [[nodiscard]] std::shared_ptr<VideoCamera> current() const;

  mutable std::mutex m_mutex;
  std::shared_ptr<VideoCamera> m_current;
};

/// The new source is opened beside the old one, and takes its place when it gives pictures and is kept for the next
/// start; until then, and when it gives none, the old one is watched.
class Takeover {
 public:
  enum class State { kOpening, kDone, kFailed };
  struct Progress {
    State state = State::kOpening;
    std::string reason = {};  ///< why it failed, for everybody's eyes
  };

  /// Goes on in a thread of its own, for half a minute at most. Live runs only, one at a time.
  /// `done` is called there once the source is watched.
  Takeover(
      std::shared_ptr<WatchedCamera> camera, const CameraSource& source, const std::function<void()>& done = [] {});

  /// From any thread.
  [[nodiscard]] Progress progress() const;

 private:
  struct Shared;
  std::shared_ptr<Shared> m_shared;  ///< with its thread, which may outlive the object
};

/// The source that is watched now, as a start would name it: what was taken over, else the description's. From any
/// thread. Throws DescriptionError.
CameraSource watchedSource();

}  // namespace workstation
