// One frame as it comes out of a decoder.
#pragma once

#include <gst/gst.h>
#include <gst/video/video.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>

#include "platform/workstation/decoding/frames/capture_clock.h"
#include "platform/workstation/decoding/nv12_picture.h"

namespace workstation {

/// A reference to a GStreamer object, given back at the end.
template <typename T>
struct GstRelease {
  void operator()(T* object) const { gst_object_unref(object); }
};
template <typename T>
requires std::is_same_v<T, GstSample> || std::is_same_v<T, GstCaps> || std::is_same_v<T, GstEvent> ||
    std::is_same_v<T, GstMessage> || std::is_same_v<T, GstBuffer>
struct GstRelease<T> {
  void operator()(T* object) const { gst_mini_object_unref(GST_MINI_OBJECT_CAST(object)); }
};
template <typename T>
using GstPtr = std::unique_ptr<T, GstRelease<T>>;

/// A decoded frame of whatever format its decoder delivers; it is converted when somebody looks at it. May be looked at
/// from any thread.
class DecodedFrame {
 public:
  /// Takes the sample over; it reached this machine at `taken`. Throws std::runtime_error when it holds no frame that
  /// can be read.
  explicit DecodedFrame(GstPtr<GstSample> sample,
                        std::chrono::steady_clock::time_point taken = std::chrono::steady_clock::now());
  ~DecodedFrame();
  DecodedFrame(const DecodedFrame&) = delete;
  DecodedFrame& operator=(const DecodedFrame&) = delete;

  /// Lives as long as the frame. Throws std::runtime_error when the frame cannot be converted.
  [[nodiscard]] I420View view() const;
  /// When it reached this machine.
  [[nodiscard]] std::chrono::steady_clock::time_point taken() const { return m_taken; }
  /// When it was taken: never after taken(), which it is where nothing better is known.
  [[nodiscard]] const CaptureTime& captured() const { return m_captured; }
  void setCaptured(const CaptureTime& captured) { m_captured = captured; }
  /// When it was taken by the camera's own clock on the wall, which may say anything; nothing where the stream doesn't
  /// tell. Frames of a camera that stands still repeat it.
  [[nodiscard]] std::optional<std::chrono::system_clock::time_point> statedTime() const;
  /// Time since the pipeline's start; nothing for a frame without a time stamp.
  [[nodiscard]] std::optional<std::chrono::nanoseconds> runningTime() const;
  [[nodiscard]] std::optional<std::chrono::nanoseconds> duration() const;
  /// Frames a second, rounded; 0 when the source doesn't say.
  [[nodiscard]] std::uint32_t framerate() const;

 private:
  void convert() const;

  GstPtr<GstSample> m_sample;
  GstVideoInfo m_info{};
  std::chrono::steady_clock::time_point m_taken;
  CaptureTime m_captured;
  mutable std::once_flag m_is_converted;
  mutable GstPtr<GstBuffer> m_converted;  ///< none where the decoder delivers I420
  mutable GstVideoFrame m_frame{};        ///< I420
};

}  // namespace workstation
