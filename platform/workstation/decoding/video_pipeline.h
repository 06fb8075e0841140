// One decoder: from a source's name to frames.
#pragma once

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

#include "platform/workstation/decoding/nv12_picture.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {

/// A reference to a GStreamer object, given back at the end.
template <typename T>
struct GstRelease {
  void operator()(T* object) const { gst_object_unref(object); }
};
template <typename T>
requires std::is_same_v<T, GstSample> || std::is_same_v<T, GstCaps> || std::is_same_v<T, GstEvent> ||
    std::is_same_v<T, GstMessage>
struct GstRelease<T> {
  void operator()(T* object) const { gst_mini_object_unref(GST_MINI_OBJECT_CAST(object)); }
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

/// Decodes a source. Replay: every frame, as they are asked for. Live: only the newest is kept; what comes at the pace
/// of its own clock is shown when it comes, whatever its time stamps say, everything else at the speed of the clock on
/// the wall. Opening, playing and closing may last as long as the source likes, save for a FIFO.
class VideoPipeline {
 public:
  enum class Mode { kReplay, kLive };

  /// Opens nothing of other machines yet. Throws std::runtime_error with the reason.
  VideoPipeline(const std::string& source, Mode mode);
  ~VideoPipeline();
  VideoPipeline(const VideoPipeline&) = delete;
  VideoPipeline& operator=(const VideoPipeline&) = delete;

  void play();
  /// The next frame, for which it waits so long; else nothing.
  std::shared_ptr<const DecodedFrame> pull(std::chrono::nanoseconds wait);
  /// The source has ended, and all its frames have been pulled or dropped.
  bool isAtEnd();
  /// What broke first, as far as isAtEnd() and pull() have seen; empty while all is well. Frames that were under way
  /// may still come.
  [[nodiscard]] const std::string& error() const { return m_error; }
  [[nodiscard]] const std::string& uri() const { return m_uri; }

 private:
  void build(Mode mode);

  std::string m_uri;
  FileDescriptor m_fifo;
  GstPtr<GstElement> m_pipeline;
  GstPtr<GstElement> m_sink;
  std::string m_error;
  bool m_at_end = false;
};

/// Makes GStreamer usable; once in a process is enough. Throws std::runtime_error.
void startGStreamer();

}  // namespace workstation
