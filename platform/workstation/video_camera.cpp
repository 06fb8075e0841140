#include "platform/workstation/video_camera.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/workstation/recording_end.h"
#include "platform/workstation/signal_mask.h"

namespace workstation {
namespace {

using std::chrono::nanoseconds;
using namespace std::chrono_literals;

constexpr nanoseconds kLongestWait = 20s;    // for a frame that the pipeline owes us
constexpr nanoseconds kWaitAfterError = 3s;  // for the frames that were under way when something broke
constexpr nanoseconds kPatience = 50ms;      // between two looks at the pipeline's complaints
// Containers round times to the millisecond, so the last frame may seem to end a little before it does.
constexpr nanoseconds kContainerRounding = 2ms;
constexpr guint kFramesAhead = 3;  // decoded while the analysis is at work; bounds the memory

/// Throws the reason why a path holds no video, where it can be told without decoding.
void checkFile(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (status.type() == fs::file_type::not_found) throw std::runtime_error("there is no such file");
  if (error) throw std::runtime_error(error.message());
  if (fs::is_directory(status)) throw std::runtime_error("it is a directory");
  if (fs::is_regular_file(status) && fs::file_size(path, error) == 0) throw std::runtime_error("the file is empty");
}

/// All tracks are known: without pictures among them nothing would ever reach the converter.
void refuseWithoutVideo(GstElement* decoder, gpointer converter) {
  GstPad* input = gst_element_get_static_pad(GST_ELEMENT(converter), "sink");
  if (gst_pad_is_linked(input) == FALSE) {
    GST_ELEMENT_ERROR(decoder, STREAM, WRONG_TYPE, ("it holds no picture"), (nullptr));
  }
  gst_object_unref(input);
}

std::string takeMessage(GError* error, const char* otherwise) {
  if (error == nullptr) return otherwise;
  std::string message = error->message;
  g_error_free(error);
  return message;
}

/// GStreamer's own words, save where they would blame its installation: "Missing decoder: NAME (...)" then stands in
/// the details only.
std::string complaintOf(GstMessage* message) {
  constexpr std::string_view kMissing = "Missing decoder: ";
  GError* error = nullptr;
  gchar* details = nullptr;
  gst_message_parse_error(message, &error, &details);
  const bool missing = g_error_matches(error, GST_CORE_ERROR, GST_CORE_ERROR_MISSING_PLUGIN) == TRUE;
  std::string text = takeMessage(error, "GStreamer does not say why");
  const std::string_view view = details == nullptr ? "" : details;
  if (const auto found = view.find(kMissing); missing && found != std::string_view::npos) {
    const auto name = view.substr(found + kMissing.size());
    text = "it holds no picture that can be decoded here, but " + std::string(name.substr(0, name.find(" (")));
  }
  g_free(details);
  return text;
}

std::string toUri(const std::string& source) {
  if (source.find("://") != std::string::npos) return source;
  checkFile(source);
  GError* error = nullptr;
  gchar* uri = gst_filename_to_uri(source.c_str(), &error);
  if (uri == nullptr) throw std::runtime_error(takeMessage(error, "its name cannot be used"));
  std::string result = uri;
  g_free(uri);
  return result;
}

/// The decoder offers its tracks one by one; the first with pictures is the camera's.
void linkVideo(GstElement* /*decoder*/, GstPad* pad, gpointer converter) {
  GstPad* input = gst_element_get_static_pad(GST_ELEMENT(converter), "sink");
  if (gst_pad_is_linked(input) == FALSE) gst_pad_link(pad, input);
  gst_object_unref(input);
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

VideoCamera::VideoCamera(const CameraDescription& description)
    : m_description(description), m_replay(ticker_clock::isReplay()) {
  const ScopedSigtermBlock block;
  try {
    GError* error = nullptr;
    if (gst_init_check(nullptr, nullptr, &error) == FALSE) {
      throw std::runtime_error(takeMessage(error, "GStreamer cannot be initialised"));
    }
    const std::string uri = toUri(description.source);
    buildPipeline(uri);
    openFirstFrame();
    if (m_replay) findEnd();
  } catch (const std::exception& error) {
    if (m_pipeline) gst_element_set_state(m_pipeline.get(), GST_STATE_NULL);
    throw std::runtime_error("cannot play " + description.source + ": " + error.what());
  }
}

VideoCamera::~VideoCamera() {
  const ScopedSigtermBlock block;
  m_next.reset();
  gst_element_set_state(m_pipeline.get(), GST_STATE_NULL);
}

/// The decoder converts nothing that it needn't: most deliver I420 as it is, and only pictures that a telephone marks
/// as turned are turned.
void VideoCamera::buildPipeline(const std::string& uri) {
  GError* error = nullptr;
  m_pipeline.reset(
      gst_parse_launch("uridecodebin name=decoder videoconvert name=converter ! videoflip video-direction=auto ! "
                       "appsink name=sink caps=video/x-raw,format=I420",
                       &error));
  if (error != nullptr) throw std::runtime_error(takeMessage(error, ""));
  m_sink.reset(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "sink"));
  const GstPtr<GstElement> decoder(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "decoder"));
  const GstPtr<GstElement> converter(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "converter"));
  g_object_set(decoder.get(), "uri", uri.c_str(), nullptr);
  g_signal_connect(decoder.get(), "pad-added", G_CALLBACK(linkVideo), converter.get());
  g_signal_connect(decoder.get(), "no-more-pads", G_CALLBACK(refuseWithoutVideo), converter.get());
  const gboolean live = m_replay ? FALSE : TRUE;
  const guint frames_kept = m_replay ? kFramesAhead : 1;
  g_object_set(m_sink.get(), "sync", live, "drop", live, "max-buffers", frames_kept, nullptr);
}

void VideoCamera::openFirstFrame() {
  gst_element_set_state(m_pipeline.get(), GST_STATE_PLAYING);
  m_current = pullWithin(0s);
  if (!m_current) throw std::runtime_error(m_error.empty() ? "it holds no picture" : m_error);
  m_first = m_current->runningTime().value_or(0ns);
  m_frame_duration = m_current->duration().value_or(0ns);
}

void VideoCamera::findEnd() {
  const GstPtr<GstElement> decoder(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "decoder"));
  gchar* uri = nullptr;
  g_object_get(decoder.get(), "uri", &uri, nullptr);
  const auto end = findRecordingEnd(uri);
  g_free(uri);
  if (!end) return setEnd(nanoseconds::max());  // the decoder will tell when it gets there
  m_frame_duration = end->frame_duration;
  setEnd(end->last_frame - m_first + end->frame_duration + kContainerRounding);
}

void VideoCamera::setEnd(Nanoseconds end) {
  m_end = end;
  ticker_clock::setEnd(TimeStamp(end));
}

std::shared_ptr<const DecodedFrame> VideoCamera::frameAt(TimeStamp now) {
  const std::scoped_lock lock(m_mutex);
  if (!m_served || m_served_at != now) {
    m_served = m_replay ? recordedFrameAt(now.time_since_epoch()) : newestFrame();
    m_served_at = now;
  }
  return m_served;
}

std::uint32_t VideoCamera::framerate() const {
  const std::scoped_lock lock(m_mutex);
  return m_current->framerate();
}

std::shared_ptr<const DecodedFrame> VideoCamera::recordedFrameAt(Nanoseconds position) {
  while (!m_exhausted) {
    if (!m_next) m_next = nextRecordedFrame();
    if (!m_next || positionOf(*m_next) > position) break;
    m_current_position = positionOf(*m_next);
    m_current = std::exchange(m_next, nullptr);
  }
  if (m_end != Nanoseconds::max()) m_progress.show(position, m_end);
  return m_current;
}

std::shared_ptr<const DecodedFrame> VideoCamera::nextRecordedFrame() {
  auto frame = pullWithin(kWaitAfterError);
  if (!frame) {
    m_exhausted = true;
    if (!m_error.empty())
      syslog(LOG_ERR, "cannot play %s to its end: %s", m_description.source.c_str(), m_error.c_str());
    setEnd(std::min(m_end, m_current_position + m_frame_duration + kContainerRounding));
  }
  return frame;
}

/// A frame without a time of its own follows the one before.
VideoCamera::Nanoseconds VideoCamera::positionOf(const DecodedFrame& frame) const {
  const auto time = frame.runningTime();
  return time ? *time - m_first : m_current_position + m_frame_duration;
}

std::shared_ptr<const DecodedFrame> VideoCamera::newestFrame() {
  readMessages();
  if (auto frame = pull(0ns)) {
    m_played_since_begin = true;
    m_current = std::move(frame);
  } else if (m_at_end || !m_error.empty()) {
    beginAgainOrEnd();
  }
  return m_current;
}

/// A source that fails before its first frame is not tried again: it would fail for ever.
void VideoCamera::beginAgainOrEnd() {
  if (m_end_is_signalled) return;
  const ScopedSigtermBlock block;
  if (!m_error.empty())
    syslog(LOG_ERR, "cannot play %s any further: %s", m_description.source.c_str(), m_error.c_str());
  m_error.clear();
  m_at_end = false;
  if (m_description.loop && std::exchange(m_played_since_begin, false)) {
    gst_element_set_state(m_pipeline.get(), GST_STATE_READY);
    gst_element_set_state(m_pipeline.get(), GST_STATE_PLAYING);
  } else {
    m_end_is_signalled = true;
    kill(getpid(), SIGTERM);
  }
}

std::shared_ptr<const DecodedFrame> VideoCamera::pull(Nanoseconds wait) {
  GstPtr<GstSample> sample(
      gst_app_sink_try_pull_sample(GST_APP_SINK(m_sink.get()), static_cast<GstClockTime>(wait.count())));
  if (!sample) return nullptr;
  try {
    return std::make_shared<const DecodedFrame>(std::move(sample));
  } catch (const std::exception& error) {
    m_error = error.what();
    return nullptr;
  }
}

/// The next frame; nothing at the end, after an error, or when the pipeline owes it for too long. Frames that were
/// decoded before an error still come, so that what is seen doesn't hang on how fast the error was.
std::shared_ptr<const DecodedFrame> VideoCamera::pullWithin(Nanoseconds after_error) {
  for (Nanoseconds waited{}; waited < kLongestWait; waited += kPatience) {
    readMessages();
    // At its end the sink answers at once, a moment before the message of it arrives.
    const bool at_end = m_at_end || gst_app_sink_is_eos(GST_APP_SINK(m_sink.get())) != FALSE;
    const bool over = at_end || (!m_error.empty() && waited >= after_error);
    if (auto frame = pull(over ? 0ns : kPatience)) return frame;
    if (over) return nullptr;
  }
  m_error =
      "no picture for " + std::to_string(std::chrono::duration_cast<std::chrono::seconds>(kLongestWait).count()) + " s";
  return nullptr;
}

/// Notes whether the pipeline has come to its end, and its first complaint. (The sink's own flag for the end stays up
/// when the source begins again, so it serves recordings only.)
void VideoCamera::readMessages() {
  constexpr auto kKinds = static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_EOS);
  const GstPtr<GstBus> bus(gst_element_get_bus(m_pipeline.get()));
  while (GstMessage* message = gst_bus_pop_filtered(bus.get(), kKinds)) {
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
      m_at_end = true;
    } else if (m_error.empty()) {
      m_error = complaintOf(message);
    }
    gst_message_unref(message);
  }
}

}  // namespace workstation
