// The one decoder behind all streams of the camera.
#pragma once

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/clock/clock.h"
#include "platform/workstation/camera_description.h"
#include "platform/workstation/nv12_picture.h"
#include "platform/workstation/replay_progress.h"

namespace workstation {

/// A reference to a GStreamer object, given back at the end.
template <typename T>
struct GstRelease {
  void operator()(T* object) const { gst_object_unref(object); }
};
template <>
struct GstRelease<GstSample> {
  void operator()(GstSample* sample) const { gst_sample_unref(sample); }
};
template <typename T>
using GstPtr = std::unique_ptr<T, GstRelease<T>>;

/// A decoded frame, mapped for reading as long as the object lives.
class DecodedFrame {
 public:
  /// Takes the sample over. Throws std::runtime_error when it holds no readable I420 frame.
  explicit DecodedFrame(GstPtr<GstSample> sample);
  ~DecodedFrame();
  DecodedFrame(const DecodedFrame&) = delete;
  DecodedFrame& operator=(const DecodedFrame&) = delete;

  [[nodiscard]] I420View view() const;
  /// When it reached this machine.
  [[nodiscard]] std::chrono::steady_clock::time_point taken() const { return m_taken; }
  /// Time since the pipeline's start; nothing for a frame without a time stamp.
  [[nodiscard]] std::optional<std::chrono::nanoseconds> runningTime() const;
  [[nodiscard]] std::optional<std::chrono::nanoseconds> duration() const;
  /// Frames a second, rounded; 0 when the source doesn't say.
  [[nodiscard]] std::uint32_t framerate() const;

 private:
  GstPtr<GstSample> m_sample;
  GstVideoFrame m_frame{};
  std::chrono::steady_clock::time_point m_taken = std::chrono::steady_clock::now();
};

/// Plays the camera's source. Live: at the speed of the clock on the wall, from the moment it is opened. Replay: frame
/// by frame as the camera's clock asks for them; the source's end becomes the end of the clock. Frames may be asked for
/// on any thread.
class VideoCamera {
 public:
  /// Opens the source and waits for its first frame. Throws std::runtime_error: "cannot play FILE: why".
  explicit VideoCamera(const CameraDescription& description);
  ~VideoCamera();
  VideoCamera(const VideoCamera&) = delete;
  VideoCamera& operator=(const VideoCamera&) = delete;

  /// The newest frame at time `now`; the same frame for the same time. Never empty. After the end of a source that does
  /// not loop it stays the last one, and the process is sent SIGTERM once.
  std::shared_ptr<const DecodedFrame> frameAt(TimeStamp now);

  [[nodiscard]] std::uint32_t framerate() const;

 private:
  using Nanoseconds = std::chrono::nanoseconds;

  void buildPipeline(const std::string& uri);
  void openFirstFrame();
  void findEnd();
  void setEnd(Nanoseconds end);

  std::shared_ptr<const DecodedFrame> recordedFrameAt(Nanoseconds position);
  std::shared_ptr<const DecodedFrame> nextRecordedFrame();
  [[nodiscard]] Nanoseconds positionOf(const DecodedFrame& frame) const;
  std::shared_ptr<const DecodedFrame> newestFrame();
  void beginAgainOrEnd();

  std::shared_ptr<const DecodedFrame> pull(Nanoseconds wait);
  std::shared_ptr<const DecodedFrame> pullWithin(Nanoseconds after_error);
  void readMessages();

  const CameraDescription& m_description;
  const bool m_replay;
  mutable std::mutex m_mutex;  ///< everything below, once the object is built
  GstPtr<GstElement> m_pipeline;
  GstPtr<GstElement> m_sink;
  std::string m_error;  ///< what the pipeline complained about; empty while all is well
  bool m_at_end = false;

  TimeStamp m_served_at;
  std::shared_ptr<const DecodedFrame> m_served;
  std::shared_ptr<const DecodedFrame> m_current;

  // Replay. Positions are times since the first frame.
  Nanoseconds m_first{};  ///< running time of the first frame
  Nanoseconds m_current_position{};
  Nanoseconds m_frame_duration{};
  Nanoseconds m_end = Nanoseconds::max();
  std::shared_ptr<const DecodedFrame> m_next;
  bool m_exhausted = false;
  ReplayProgress m_progress;

  // Live.
  bool m_played_since_begin = true;
  bool m_end_is_signalled = false;
};

}  // namespace workstation
