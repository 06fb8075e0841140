#include "platform/workstation/decoding/video_pipeline.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/support/owners.h"
#include "platform/workstation/decoding/video_source.h"
#include "platform/workstation/system/signal_mask.h"

namespace workstation {
namespace {

using std::chrono::nanoseconds;

constexpr guint kFramesAhead = 3;   // decoded while a replay is at work; bounds the memory
constexpr guint kLatency_ms = 200;  // for a network's packets that come late; GStreamer itself would take 2 s

/// All tracks are known: without pictures among them nothing would ever reach the converter.
void refuseWithoutVideo(GstElement* decoder, gpointer converter) {
  const GstPtr<GstPad> input(gst_element_get_static_pad(GST_ELEMENT(converter), "sink"));
  if (gst_pad_is_linked(input.get()) == FALSE) {
    GST_ELEMENT_ERROR(decoder, STREAM, WRONG_TYPE, ("it holds no picture"), (nullptr));
  }
}

/// GStreamer's own words, save where they would blame its installation: "Missing decoder: NAME (...)" then stands in
/// the details only.
std::string complaintOf(GstMessage* message) {
  constexpr std::string_view kMissing = "Missing decoder: ";
  CaughtError error;
  gchar* raw_details = nullptr;
  gst_message_parse_error(message, error.out(), &raw_details);
  const GLibPtr<gchar> details(raw_details);
  const bool missing = g_error_matches(error.get(), GST_CORE_ERROR, GST_CORE_ERROR_MISSING_PLUGIN) == TRUE;
  std::string text = error.text("GStreamer does not say why");
  const std::string_view view = details ? details.get() : "";
  if (const auto found = view.find(kMissing); missing && found != std::string_view::npos) {
    const auto name = view.substr(found + kMissing.size());
    text = "it holds no picture that can be decoded here, but " + std::string(name.substr(0, name.find(" (")));
  }
  return text;
}

/// A FIFO without anybody at its other end holds nobody up: GStreamer is given the open file and waits for its bytes,
/// which it can be called back from.
FileDescriptor openFifo(const std::string& path) {
  FileDescriptor fifo(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (fifo.get() < 0) throw std::runtime_error(std::strerror(errno));
  return fifo;
}

std::string fileUri(const std::string& path) {
  CaughtError error;
  const GLibPtr<gchar> uri(gst_filename_to_uri(path.c_str(), error.out()));
  if (!uri) throw std::runtime_error(error.text("its name cannot be used"));
  return uri.get();
}

std::string toUri(const std::string& source, const FileDescriptor& fifo) {
  switch (kindOf(source)) {
    case SourceKind::kStream:
      return source;
    case SourceKind::kDevice:
      return "v4l2://" + localPath(source);
    case SourceKind::kPipe:
      return "fd://" + std::to_string(fifo.get());
    case SourceKind::kFile:
      break;
  }
  if (const std::string problem = fileProblem(localPath(source)); !problem.empty()) throw std::runtime_error(problem);
  return fileUri(localPath(source));
}

/// The decoder offers its tracks one by one; the first with pictures is the camera's.
void linkVideo(GstElement* /*decoder*/, GstPad* pad, gpointer converter) {
  const GstPtr<GstPad> input(gst_element_get_static_pad(GST_ELEMENT(converter), "sink"));
  if (gst_pad_is_linked(input.get()) == FALSE) gst_pad_link(pad, input.get());
}

/// What is watched should be shown at once.
void lowerLatency(GstElement* /*decoder*/, GstElement* source, gpointer /*unused*/) {
  if (g_object_class_find_property(G_OBJECT_GET_CLASS(source), "latency") != nullptr) {
    g_object_set(source, "latency", kLatency_ms, nullptr);
  }
}

nanoseconds toDuration(GstClockTime time) { return nanoseconds(static_cast<nanoseconds::rep>(time)); }

}  // namespace

DecodedFrame::DecodedFrame(GstPtr<GstSample> sample) : m_sample(std::move(sample)) {
  GstVideoInfo info;
  GstCaps* caps = gst_sample_get_caps(m_sample.get());
  GstBuffer* buffer = gst_sample_get_buffer(m_sample.get());
  if (caps == nullptr || buffer == nullptr || gst_video_info_from_caps(&info, caps) == FALSE ||
      GST_VIDEO_INFO_FORMAT(&info) != GST_VIDEO_FORMAT_I420 ||
      gst_video_frame_map(&m_frame, &info, buffer, GST_MAP_READ) == FALSE) {
    throw std::runtime_error("a decoded frame cannot be read");
  }
}

DecodedFrame::~DecodedFrame() { gst_video_frame_unmap(&m_frame); }

I420View DecodedFrame::view() const {
  const auto plane = [this](guint index) {
    return static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&m_frame, index));
  };
  return {plane(0),
          plane(1),
          plane(2),
          GST_VIDEO_FRAME_PLANE_STRIDE(&m_frame, 0),
          GST_VIDEO_FRAME_PLANE_STRIDE(&m_frame, 1),
          GST_VIDEO_FRAME_PLANE_STRIDE(&m_frame, 2),
          GST_VIDEO_FRAME_WIDTH(&m_frame),
          GST_VIDEO_FRAME_HEIGHT(&m_frame),
          m_frame.info.colorimetry.range == GST_VIDEO_COLOR_RANGE_0_255};
}

std::optional<nanoseconds> DecodedFrame::runningTime() const {
  const GstClockTime pts = GST_BUFFER_PTS(m_frame.buffer);
  const GstClockTime time = gst_segment_to_running_time(gst_sample_get_segment(m_sample.get()), GST_FORMAT_TIME, pts);
  if (!GST_CLOCK_TIME_IS_VALID(time)) return std::nullopt;
  return toDuration(time);
}

std::optional<nanoseconds> DecodedFrame::duration() const {
  const GstClockTime duration = GST_BUFFER_DURATION(m_frame.buffer);
  if (!GST_CLOCK_TIME_IS_VALID(duration)) return std::nullopt;
  return toDuration(duration);
}

std::uint32_t DecodedFrame::framerate() const {
  const auto numerator = static_cast<std::uint32_t>(std::max(GST_VIDEO_INFO_FPS_N(&m_frame.info), 0));
  const auto denominator = static_cast<std::uint32_t>(std::max(GST_VIDEO_INFO_FPS_D(&m_frame.info), 1));
  return (numerator + denominator / 2) / denominator;
}

void startGStreamer() {
  CaughtError error;
  if (gst_init_check(nullptr, nullptr, error.out()) == FALSE) {
    throw std::runtime_error(error.text("GStreamer cannot be initialised"));
  }
}

VideoPipeline::VideoPipeline(const std::string& source, Mode mode) {
  startGStreamer();
  if (kindOf(source) == SourceKind::kPipe) m_fifo = openFifo(localPath(source));
  m_uri = toUri(source, m_fifo);
  build(mode);
}

VideoPipeline::~VideoPipeline() {
  const ScopedSigtermBlock block;
  if (m_pipeline) gst_element_set_state(m_pipeline.get(), GST_STATE_NULL);
}

/// The decoder converts nothing that it needn't: most deliver I420 as it is, and only pictures that a telephone marks
/// as turned are turned.
void VideoPipeline::build(Mode mode) {
  CaughtError error;
  m_pipeline.reset(
      gst_parse_launch("uridecodebin name=decoder videoconvert name=converter ! videoflip video-direction=auto ! "
                       "appsink name=sink caps=video/x-raw,format=I420",
                       error.out()));
  if (error) throw std::runtime_error(error.text());
  m_sink.reset(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "sink"));
  const GstPtr<GstElement> decoder(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "decoder"));
  const GstPtr<GstElement> converter(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "converter"));
  g_object_set(decoder.get(), "uri", m_uri.c_str(), nullptr);
  g_signal_connect(decoder.get(), "source-setup", G_CALLBACK(lowerLatency), nullptr);
  g_signal_connect(decoder.get(), "pad-added", G_CALLBACK(linkVideo), converter.get());
  g_signal_connect(decoder.get(), "no-more-pads", G_CALLBACK(refuseWithoutVideo), converter.get());
  const gboolean live = mode == Mode::kLive ? TRUE : FALSE;
  const guint frames_kept = live == FALSE ? kFramesAhead : 1;
  g_object_set(m_sink.get(), "sync", live, "drop", live, "max-buffers", frames_kept, nullptr);
}

/// GStreamer calls a source live that gives nothing while it is paused.
void VideoPipeline::play() {
  const bool has_own_clock = gst_element_set_state(m_pipeline.get(), GST_STATE_PAUSED) == GST_STATE_CHANGE_NO_PREROLL;
  if (has_own_clock) g_object_set(m_sink.get(), "sync", FALSE, nullptr);
  gst_element_set_state(m_pipeline.get(), GST_STATE_PLAYING);
}

std::shared_ptr<const DecodedFrame> VideoPipeline::pull(nanoseconds wait) {
  GstPtr<GstSample> sample(
      gst_app_sink_try_pull_sample(GST_APP_SINK(m_sink.get()), static_cast<GstClockTime>(wait.count())));
  if (!sample) return nullptr;
  try {
    return std::make_shared<const DecodedFrame>(std::move(sample));
  } catch (const std::exception& error) {
    if (m_error.empty()) m_error = error.what();
    return nullptr;
  }
}

/// At its end the sink answers at once, a moment before the message of it arrives.
bool VideoPipeline::isAtEnd() {
  constexpr auto kKinds = static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_EOS);
  const GstPtr<GstBus> bus(gst_element_get_bus(m_pipeline.get()));
  m_at_end = m_at_end || gst_app_sink_is_eos(GST_APP_SINK(m_sink.get())) != FALSE;
  while (const GstPtr<GstMessage> message{gst_bus_pop_filtered(bus.get(), kKinds)}) {
    if (GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_EOS) {
      m_at_end = true;
    } else if (m_error.empty()) {
      m_error = complaintOf(message.get());
    }
  }
  return m_at_end;
}

}  // namespace workstation
