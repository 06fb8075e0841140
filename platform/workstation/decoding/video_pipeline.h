// One decoder: from a source's name to frames.
#pragma once

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include "platform/workstation/decoding/frames/capture_clock.h"
#include "platform/workstation/decoding/frames/decoded_frame.h"
#include "platform/workstation/decoding/source/camera_source.h"
#include "platform/workstation/decoding/source/certificate_check.h"
#include "platform/workstation/decoding/source/stream_codec.h"
#include "platform/workstation/decoding/source/stream_watch.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {

/// What broke a pipeline, for programs.
struct Breakdown {
  GQuark domain = 0;  ///< of GStreamer's error, with its code
  int code = 0;
  std::string missing = {};  ///< see missingIn()
};

/// Decodes a source, within the limits of StreamWatch. Replay: every frame, as they are asked for. Live: only the
/// newest is kept; what comes at the pace of its own clock is shown when it comes, whatever its time stamps say,
/// everything else at the speed of the clock on the wall. Opening, playing and closing may last as long as the source
/// likes, save for a FIFO.
class VideoPipeline {
 public:
  enum class Mode { kReplay, kLive };
  /// How an RTSP camera sends its pictures.
  enum class Transport { kTcp, kUdp };

  /// Opens nothing of other machines yet. Throws std::runtime_error with the reason.
  VideoPipeline(const CameraSource& source, Mode mode, Transport transport = Transport::kTcp);
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
  /// The error is that nobody, or somebody else, has signed in.
  [[nodiscard]] bool isRefused() const { return m_is_refused; }
  /// The error is that the camera does not send its pictures this way, and may by the other.
  [[nodiscard]] bool wantsOtherTransport() const { return m_wants_other_transport; }
  /// Why pictures are left out; empty while none are.
  [[nodiscard]] std::string leftOut() const { return m_watch->leftOut(); }
  [[nodiscard]] const std::string& uri() const { return m_uri; }
  /// The same as error(), for programs.
  [[nodiscard]] const Breakdown& breakdown() const { return m_breakdown; }
  /// See codecIn().
  [[nodiscard]] std::string codec() const { return codecIn(m_pipeline.get()); }

 private:
  void build(Mode mode);
  static void setUp(GstElement* decoder, GstElement* source, gpointer self);
  static gboolean choose(GstElement* source, guint number, GstCaps* offered, gpointer self);
  void takeComplaint(GstMessage* message);

  std::string m_uri;  ///< without user and password
  Login m_login;
  CertificateCheck m_certificate;
  const Transport m_transport;
  FileDescriptor m_fifo;
  GstPtr<GstElement> m_pipeline;
  GstPtr<GstElement> m_sink;
  std::unique_ptr<StreamWatch> m_watch;
  std::atomic<bool> m_offers_video{false};
  std::atomic<bool> m_offers_more{false};  ///< something else
  CaptureClock m_capture_clock;
  std::string m_error;
  Breakdown m_breakdown;
  bool m_is_refused = false;
  bool m_wants_other_transport = false;
  bool m_at_end = false;
};

/// Makes GStreamer usable; once in a process is enough. Throws std::runtime_error.
void startGStreamer();

}  // namespace workstation
