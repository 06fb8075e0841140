#include "platform/workstation/decoding/video_pipeline.h"

#include <fcntl.h>
#include <gst/base/gstbasetransform.h>
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

constexpr const char* kDeviceUri = "v4l2://";
constexpr guint kFramesAhead = 3;   // decoded while a replay is at work; bounds the memory
constexpr guint kLatency_ms = 200;  // for a network's packets that come late; GStreamer itself would take 2 s
constexpr guint kAnswer_s = 10;     // a camera takes no longer for an answer

/// All tracks are known: without pictures among them nothing would ever reach the converter.
void refuseWithoutVideo(GstElement* decoder, gpointer converter) {
  const GstPtr<GstPad> input(gst_element_get_static_pad(GST_ELEMENT(converter), "sink"));
  if (gst_pad_is_linked(input.get()) == FALSE) {
    GST_ELEMENT_ERROR(decoder, STREAM, WRONG_TYPE, ("it holds no picture"), (nullptr));
  }
}

/// GStreamer's own words, save where they would blame its installation: "Missing decoder: NAME (...)" then stands in
/// the details only.
std::string complaintOf(const CaughtError& error, std::string_view details) {
  constexpr std::string_view kMissing = "Missing decoder: ";
  const bool missing = g_error_matches(error.get(), GST_CORE_ERROR, GST_CORE_ERROR_MISSING_PLUGIN) == TRUE;
  if (const auto found = details.find(kMissing); missing && found != std::string_view::npos) {
    const auto name = details.substr(found + kMissing.size());
    return "it holds no picture that can be decoded here, but " + std::string(name.substr(0, name.find(" (")));
  }
  return error.text("GStreamer does not say why");
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
      return withoutUser(source);
    case SourceKind::kDevice:
      return kDeviceUri + localPath(source);
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

bool has(GstElement* element, const char* property) {
  return g_object_class_find_property(G_OBJECT_GET_CLASS(element), property) != nullptr;
}

}  // namespace

void startGStreamer() {
  CaughtError error;
  if (gst_init_check(nullptr, nullptr, error.out()) == FALSE) {
    throw std::runtime_error(error.text("GStreamer cannot be initialised"));
  }
}

VideoPipeline::VideoPipeline(const CameraSource& source, Mode mode, Transport transport)
    : m_certificate(source.certificate), m_transport(transport) {
  startGStreamer();
  if (kindOf(source.uri) == SourceKind::kPipe) m_fifo = openFifo(localPath(source.uri));
  m_uri = toUri(source.uri, m_fifo);
  m_login = loginOf(source);
  build(mode);
}

VideoPipeline::~VideoPipeline() {
  const ScopedSigtermBlock block;
  if (m_pipeline) gst_element_set_state(m_pipeline.get(), GST_STATE_NULL);
}

/// Of what an RTSP camera offers, sound and descriptions are not even asked for.
gboolean VideoPipeline::choose(GstElement* /*source*/, guint /*number*/, GstCaps* offered, gpointer self) {
  const char* kind = gst_structure_get_string(gst_caps_get_structure(offered, 0), "media");
  const bool is_video = kind != nullptr && std::strcmp(kind, "video") == 0;
  auto& pipeline = *static_cast<VideoPipeline*>(self);
  (is_video ? pipeline.m_offers_video : pipeline.m_offers_more) = true;
  return is_video ? TRUE : FALSE;
}

/// What is watched should be shown at once. Who is sent elsewhere doesn't sign in there.
void VideoPipeline::setUp(GstElement* /*decoder*/, GstElement* source, gpointer self) {
  const auto& pipeline = *static_cast<VideoPipeline*>(self);
  if (has(source, "protocols")) {
    const bool is_tcp = pipeline.m_transport == Transport::kTcp;
    g_object_set(source, "latency", kLatency_ms, "add-reference-timestamp-meta", TRUE, "tcp-timeout",
                 guint64{kAnswer_s} * G_USEC_PER_SEC, "timeout", guint64{kAnswer_s} * G_USEC_PER_SEC, nullptr);
    gst_util_set_object_arg(G_OBJECT(source), "protocols", is_tcp ? "tcp" : "udp");
    g_signal_connect(source, "select-stream", G_CALLBACK(choose), self);
  } else if (has(source, "retries")) {
    g_object_set(source, "timeout", kAnswer_s, "retries", 0, nullptr);
  }
  if (has(source, "tls-database")) g_object_set(source, "tls-database", pipeline.m_certificate.database(), nullptr);
  if (pipeline.m_login.user.empty() || !has(source, "user-id")) return;
  g_object_set(source, "user-id", pipeline.m_login.user.c_str(), "user-pw", pipeline.m_login.password.c_str(), nullptr);
  if (has(source, "automatic-redirect")) g_object_set(source, "automatic-redirect", FALSE, nullptr);
}

/// Nothing is converted here that needn't be: what decoders deliver goes through as it is, and only pictures that a
/// telephone marks as turned are turned.
void VideoPipeline::build(Mode mode) {
  CaughtError error;
  m_pipeline.reset(
      gst_parse_launch("uridecodebin name=decoder force-sw-decoders=true videoconvert name=converter ! "
                       "videoflip name=turner video-direction=auto ! appsink name=sink caps=video/x-raw",
                       error.out()));
  if (error) throw std::runtime_error(error.text());
  m_sink.reset(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "sink"));
  m_watch = std::make_unique<StreamWatch>(m_pipeline.get(), m_sink.get(), mode == Mode::kLive);
  const GstPtr<GstElement> decoder(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "decoder"));
  const GstPtr<GstElement> converter(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "converter"));
  g_object_set(decoder.get(), "uri", m_uri.c_str(), nullptr);
  g_signal_connect(decoder.get(), "source-setup", G_CALLBACK(setUp), this);
  g_signal_connect(decoder.get(), "pad-added", G_CALLBACK(linkVideo), converter.get());
  g_signal_connect(decoder.get(), "no-more-pads", G_CALLBACK(refuseWithoutVideo), converter.get());
  // It would copy what it does not turn; once a mark says so, it turns all the same. A device has few buffers of its
  // own and gets them back at once.
  const GstPtr<GstElement> turner(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "turner"));
  const bool is_device = m_uri.starts_with(kDeviceUri);
  gst_base_transform_set_passthrough(GST_BASE_TRANSFORM(turner.get()), is_device ? FALSE : TRUE);
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
    const GstBuffer* buffer = gst_sample_get_buffer(sample.get());
    const auto taken = m_watch->arrivalOf(buffer == nullptr ? GST_CLOCK_TIME_NONE : GST_BUFFER_PTS(buffer));
    auto frame = std::make_shared<DecodedFrame>(std::move(sample), taken);
    const auto age = std::chrono::steady_clock::now() - taken;
    frame->setCaptured(m_capture_clock.at(frame->statedTime(), taken, std::chrono::system_clock::now() - age));
    return frame;
  } catch (const std::exception& error) {
    if (m_error.empty()) m_error = error.what();
    return nullptr;
  }
}

/// At its end the sink answers at once, a moment before the message of it arrives.
bool VideoPipeline::isAtEnd() {
  constexpr auto kKinds = static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_EOS | GST_MESSAGE_ELEMENT);
  const GstPtr<GstBus> bus(gst_element_get_bus(m_pipeline.get()));
  m_at_end = m_at_end || gst_app_sink_is_eos(GST_APP_SINK(m_sink.get())) != FALSE;
  while (const GstPtr<GstMessage> message{gst_bus_pop_filtered(bus.get(), kKinds)}) {
    if (GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_EOS) {
      m_at_end = true;
    } else if (GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_ELEMENT) {
      if (m_breakdown.missing.empty()) m_breakdown.missing = missingIn(message.get());
    } else if (m_error.empty()) {
      takeComplaint(message.get());
    }
  }
  return m_at_end;
}

/// What is known better than GStreamer tells it.
void VideoPipeline::takeComplaint(GstMessage* message) {
  CaughtError error;
  gchar* raw_details = nullptr;
  gst_message_parse_error(message, error.out(), &raw_details);
  const GLibPtr<gchar> details(raw_details);
  const std::string_view more = details ? details.get() : "";
  m_breakdown.domain = error.get()->domain;
  m_breakdown.code = error.get()->code;
  m_is_refused = g_error_matches(error.get(), GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_AUTHORIZED) != FALSE;
  m_wants_other_transport = m_offers_video && more.find("gst_rtspsrc_setup_streams") != std::string_view::npos;
  const std::string refusal = m_certificate.refusal();
  if (!refusal.empty()) {
    m_error = refusal;
  } else if (m_is_refused) {
    m_error = m_login.user.empty() ? "it asks for a user and a password, and no login is given"
                                   : "it does not take this user with this password";
  } else if (m_wants_other_transport) {
    m_error = std::string("it does not send its pictures over ") + (m_transport == Transport::kTcp ? "TCP" : "UDP");
  } else if (m_offers_more && !m_offers_video) {
    m_error = "it holds no picture";
  } else {
    m_error = complaintOf(error, more);
  }
}

}  // namespace workstation
