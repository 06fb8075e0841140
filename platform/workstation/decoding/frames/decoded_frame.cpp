#include "platform/workstation/decoding/frames/decoded_frame.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace workstation {
namespace {

using std::chrono::nanoseconds;

constexpr double kMostAspect = 4.0;  // of a pixel; what states more is mistaken

/// Between the beginnings of NTP's time and of Unix's.
constexpr GstClockTime kNtpBegin = G_GUINT64_CONSTANT(2208988800) * GST_SECOND;

nanoseconds toDuration(GstClockTime time) { return nanoseconds(static_cast<nanoseconds::rep>(time)); }

double pixelAspectOf(const GstVideoInfo& info) {
  const double aspect = static_cast<double>(info.par_n) / std::max(info.par_d, 1);
  return aspect >= 1 / kMostAspect && aspect <= kMostAspect ? aspect : 1.0;
}

/// What the frame is as I420; its colours stay what they are.
GstVideoInfo asI420(const GstVideoInfo& from) {
  GstVideoInfo to;
  gst_video_info_set_interlaced_format(&to, GST_VIDEO_FORMAT_I420, GST_VIDEO_INFO_INTERLACE_MODE(&from),
                                       static_cast<guint>(GST_VIDEO_INFO_WIDTH(&from)),
                                       static_cast<guint>(GST_VIDEO_INFO_HEIGHT(&from)));
  to.fps_n = from.fps_n;  // the converter changes no rate, and refuses to
  to.fps_d = from.fps_d;
  if (GST_VIDEO_INFO_IS_YUV(&from)) {
    to.colorimetry = from.colorimetry;
    to.chroma_site = from.chroma_site;
  }
  return to;
}

GstPtr<GstBuffer> converted(GstBuffer* buffer, GstVideoInfo from, GstVideoInfo to) {
  GstPtr<GstBuffer> result(gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&to), nullptr));
  GstVideoConverter* converter = gst_video_converter_new(&from, &to, nullptr);
  GstVideoFrame source;
  GstVideoFrame target;
  const bool can_be_read =
      converter != nullptr && result && gst_video_frame_map(&source, &from, buffer, GST_MAP_READ) != FALSE;
  const bool works = can_be_read && gst_video_frame_map(&target, &to, result.get(), GST_MAP_WRITE) != FALSE;
  if (works) {
    gst_video_converter_frame(converter, &source, &target);
    gst_video_frame_unmap(&target);
  }
  if (can_be_read) gst_video_frame_unmap(&source);
  if (converter != nullptr) gst_video_converter_free(converter);
  if (!works) throw std::runtime_error("a decoded frame cannot be converted");
  return result;
}

}  // namespace

DecodedFrame::DecodedFrame(GstPtr<GstSample> sample, std::chrono::steady_clock::time_point taken)
    : m_sample(std::move(sample)), m_taken(taken), m_captured{taken} {
  GstCaps* caps = gst_sample_get_caps(m_sample.get());
  if (caps == nullptr || gst_sample_get_buffer(m_sample.get()) == nullptr ||
      gst_video_info_from_caps(&m_info, caps) == FALSE || GST_VIDEO_INFO_WIDTH(&m_info) < 1 ||
      GST_VIDEO_INFO_HEIGHT(&m_info) < 1) {
    throw std::runtime_error("a decoded frame cannot be read");
  }
}

DecodedFrame::~DecodedFrame() {
  if (m_frame.buffer != nullptr) gst_video_frame_unmap(&m_frame);
}

void DecodedFrame::convert() const {
  GstVideoInfo info = m_info;
  GstBuffer* buffer = gst_sample_get_buffer(m_sample.get());
  if (GST_VIDEO_INFO_FORMAT(&m_info) != GST_VIDEO_FORMAT_I420) {
    info = asI420(m_info);
    m_converted = converted(buffer, m_info, info);
    buffer = m_converted.get();
  }
  if (gst_video_frame_map(&m_frame, &info, buffer, GST_MAP_READ) == FALSE) {
    m_frame = {};
    throw std::runtime_error("a decoded frame cannot be read");
  }
}

I420View DecodedFrame::view() const {
  std::call_once(m_is_converted, [this] { convert(); });
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
          m_frame.info.colorimetry.range == GST_VIDEO_COLOR_RANGE_0_255,
          pixelAspectOf(m_info)};
}

std::optional<std::chrono::system_clock::time_point> DecodedFrame::statedTime() const {
  static GstCaps* const ntp = gst_caps_new_empty_simple("timestamp/x-ntp");  // GStreamer's until the process ends
  const auto* meta = gst_buffer_get_reference_timestamp_meta(gst_sample_get_buffer(m_sample.get()), ntp);
  if (meta == nullptr || !GST_CLOCK_TIME_IS_VALID(meta->timestamp)) return std::nullopt;
  const auto since_unix = static_cast<nanoseconds::rep>(meta->timestamp - kNtpBegin);
  return std::chrono::system_clock::time_point(nanoseconds(since_unix));
}

std::optional<nanoseconds> DecodedFrame::runningTime() const {
  const GstClockTime pts = GST_BUFFER_PTS(gst_sample_get_buffer(m_sample.get()));
  const GstClockTime time = gst_segment_to_running_time(gst_sample_get_segment(m_sample.get()), GST_FORMAT_TIME, pts);
  if (!GST_CLOCK_TIME_IS_VALID(time)) return std::nullopt;
  return toDuration(time);
}

std::optional<nanoseconds> DecodedFrame::duration() const {
  const GstClockTime duration = GST_BUFFER_DURATION(gst_sample_get_buffer(m_sample.get()));
  if (!GST_CLOCK_TIME_IS_VALID(duration)) return std::nullopt;
  return toDuration(duration);
}

std::uint32_t DecodedFrame::framerate() const {
  const auto numerator = static_cast<std::uint32_t>(std::max(GST_VIDEO_INFO_FPS_N(&m_info), 0));
  const auto denominator = static_cast<std::uint32_t>(std::max(GST_VIDEO_INFO_FPS_D(&m_info), 1));
  return (numerator + denominator / 2) / denominator;
}

}  // namespace workstation
