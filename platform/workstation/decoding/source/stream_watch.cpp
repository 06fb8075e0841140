#include "platform/workstation/decoding/source/stream_watch.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "platform/workstation/decoding/frames/decoded_frame.h"

namespace workstation {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::size_t kMostArrivals = 2048;
constexpr GstClockTime kStampTolerance = 40 * GST_MSECOND;
constexpr std::size_t kMostBytes = std::size_t{32} << 20;        // of one picture; the largest JPEG has fewer
constexpr double kMostCredit = 10.0 * StreamWatch::kMostFrames;  // what a network has held up comes at once
constexpr auto kLately = 10s;
constexpr auto kLongestWait = 1s;  // for the decoder

bool isDecoder(GstElement* element) {
  const char* kind = gst_element_get_metadata(element, GST_ELEMENT_METADATA_KLASS);
  return kind != nullptr && std::strstr(kind, "Decoder") != nullptr &&
         (std::strstr(kind, "Video") != nullptr || std::strstr(kind, "Image") != nullptr);
}

bool isMadeBy(GstElement* element, const char* factory) {
  const GstElementFactory* made_by = gst_element_get_factory(element);
  return made_by != nullptr && std::strcmp(GST_OBJECT_NAME(made_by), factory) == 0;
}

struct Size {
  int width;
  int height;
};

/// What a JPEG's frame header states; nothing where there is none (ITU-T T.81, B.2.2).
std::optional<Size> jpegSize(const guint8* data, gsize size) {
  for (gsize at = 2; at + 9 <= size && data[at] == 0xFF;) {
    const int marker = data[at + 1];
    const auto word = [&](gsize offset) { return data[at + offset] << 8 | data[at + offset + 1]; };
    const bool is_frame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (is_frame) return Size{word(7), word(5)};
    at += marker == 0xFF ? 1 : 2 + static_cast<gsize>(word(2));
  }
  return std::nullopt;
}

std::optional<Size> jpegSizeOf(GstPad* pad, GstBuffer* buffer) {
  const GstPtr<GstCaps> caps(gst_pad_get_current_caps(pad));
  if (!caps || gst_structure_has_name(gst_caps_get_structure(caps.get(), 0), "image/jpeg") == FALSE)
    return std::nullopt;
  GstMapInfo map;
  if (gst_buffer_map(buffer, &map, GST_MAP_READ) == FALSE) return std::nullopt;
  const auto size = jpegSize(map.data, map.size);
  gst_buffer_unmap(buffer, &map);
  return size;
}

/// Of the settings, which nothing else complains of, and on behalf of the whole pipeline: what a decoder complains of
/// while it is being chosen is kept from everybody.
void breakOff(GstElement* pipeline, const std::string& why) {
  GST_ELEMENT_ERROR(pipeline, LIBRARY, SETTINGS, ("%s", why.c_str()), (nullptr));
}

void addProbe(GstPad* pad, int kinds, GstPadProbeCallback probe, gpointer self) {
  gst_pad_add_probe(pad, static_cast<GstPadProbeType>(kinds), probe, self, nullptr);
}

}  // namespace

StreamWatch::StreamWatch(GstElement* pipeline, GstElement* sink, bool is_live)
    : m_pipeline(pipeline),
      m_sink(sink),
      m_is_live(is_live),
      m_handler(g_signal_connect(pipeline, "deep-element-added", G_CALLBACK(onElement), this)),
      m_credit(kMostCredit) {
  const GstPtr<GstPad> pad(gst_element_get_static_pad(sink, "sink"));
  addProbe(pad.get(), GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, onDecoder, this);  // what needs no decoder
}

StreamWatch::~StreamWatch() { g_signal_handler_disconnect(m_pipeline, m_handler); }

/// The parts of a multipart stream are taken for one track of pictures: else the decoder would wait for others.
void StreamWatch::onElement(GstBin* /*bin*/, GstBin* /*parent*/, GstElement* element, gpointer self) {
  constexpr int kInput = GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM;
  auto& watch = *static_cast<StreamWatch*>(self);
  const bool is_multipart = isMadeBy(element, "multipartdemux");
  const GstPtr<GstPad> input(gst_element_get_static_pad(element, "sink"));
  if (is_multipart) {
    g_object_set(element, "single-stream", TRUE, nullptr);
    if (watch.m_is_live) g_object_set(watch.m_sink, "sync", FALSE, nullptr);
    addProbe(input.get(), GST_PAD_PROBE_TYPE_BUFFER, onBytes, self);
  }
  if (is_multipart || isMadeBy(element, "rtspsrc")) g_signal_connect(element, "pad-added", G_CALLBACK(onPad), self);
  if (input && isDecoder(element)) addProbe(input.get(), kInput, onDecoder, self);
}

void StreamWatch::onPad(GstElement* /*source*/, GstPad* pad, gpointer self) {
  if (GST_PAD_IS_SRC(pad)) addProbe(pad, GST_PAD_PROBE_TYPE_BUFFER, onArrival, self);
}

/// A picture without a time gets that of its arrival.
GstPadProbeReturn StreamWatch::onArrival(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer self) {
  auto& watch = *static_cast<StreamWatch*>(self);
  GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
  if (!GST_BUFFER_PTS_IS_VALID(buffer)) {
    buffer = gst_buffer_make_writable(buffer);
    GST_BUFFER_PTS(buffer) = gst_element_get_current_running_time(watch.m_pipeline);
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
  }
  watch.noteArrival(GST_BUFFER_PTS(buffer));
  return watch.takesBytes(gst_buffer_get_size(buffer)) ? GST_PAD_PROBE_OK : GST_PAD_PROBE_DROP;
}

GstPadProbeReturn StreamWatch::onBytes(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer self) {
  const gsize bytes = gst_buffer_get_size(GST_PAD_PROBE_INFO_BUFFER(info));
  return static_cast<StreamWatch*>(self)->takesBytes(bytes) ? GST_PAD_PROBE_OK : GST_PAD_PROBE_DROP;
}

GstPadProbeReturn StreamWatch::onDecoder(GstPad* pad, GstPadProbeInfo* info, gpointer self) {
  auto& watch = *static_cast<StreamWatch*>(self);
  bool is_taken = true;
  if ((info->type & GST_PAD_PROBE_TYPE_BUFFER) != 0) {
    is_taken = watch.takesPicture(pad, GST_PAD_PROBE_INFO_BUFFER(info));
  } else if (GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info); GST_EVENT_TYPE(event) == GST_EVENT_CAPS) {
    GstCaps* caps = nullptr;
    gst_event_parse_caps(event, &caps);
    is_taken = watch.takesCaps(caps);
  }
  return is_taken ? GST_PAD_PROBE_OK : GST_PAD_PROBE_DROP;
}

/// Parsers may move a stamp by a little.
StreamWatch::Steady StreamWatch::arrivalOf(GstClockTime stamp) {
  const std::scoped_lock lock(m_mutex);
  const auto known = std::find_if(m_arrivals.rbegin(), m_arrivals.rend(), [stamp](const auto& arrival) {
    return arrival.first <= stamp && stamp - arrival.first < kStampTolerance;
  });
  return known == m_arrivals.rend() ? Clock::now() : known->second;
}

std::string StreamWatch::leftOut() {
  const std::scoped_lock lock(m_mutex);
  return Clock::now() - m_left_out_at < kLately ? m_left_out : "";
}

/// A picture's packets come with one stamp.
void StreamWatch::noteArrival(GstClockTime stamp) {
  const std::scoped_lock lock(m_mutex);
  if (!GST_CLOCK_TIME_IS_VALID(stamp) || (!m_arrivals.empty() && m_arrivals.back().first == stamp)) return;
  m_arrivals.emplace_back(stamp, Clock::now());
  if (m_arrivals.size() > kMostArrivals) m_arrivals.pop_front();
}

bool StreamWatch::takesBytes(std::size_t bytes) {
  {
    const std::scoped_lock lock(m_mutex);
    if (m_is_broken) return false;
    m_bytes += bytes;
    if (m_bytes <= kMostBytes) return true;
    m_is_broken = true;
  }
  breakOff(m_pipeline, "it sends " + std::to_string(kMostBytes >> 20) + " MB and more for one picture");
  return false;
}

bool StreamWatch::takesSize(int width, int height) {
  if (std::int64_t{width} * height <= kMostPixels && std::max(width, height) <= kLongestSide) return true;
  {
    const std::scoped_lock lock(m_mutex);
    if (std::exchange(m_is_broken, true)) return false;
  }
  breakOff(m_pipeline, "its pictures of " + std::to_string(width) + "x" + std::to_string(height) +
                           " are too large: set the camera to 1920x1080 or less");
  return false;
}

bool StreamWatch::takesCaps(GstCaps* caps) {
  const GstStructure* stated = gst_caps_get_structure(caps, 0);
  int width = 0;
  int height = 0;
  gst_structure_get_int(stated, "width", &width);
  gst_structure_get_int(stated, "height", &height);
  return takesSize(width, height);
}

bool StreamWatch::takesPicture(GstPad* pad, GstBuffer* buffer) {
  if (const auto size = jpegSizeOf(pad, buffer); size && !takesSize(size->width, size->height)) return false;
  const Steady arrived = arrivalOf(GST_BUFFER_PTS(buffer));
  const std::scoped_lock lock(m_mutex);
  m_bytes = 0;
  if (m_is_broken) return false;
  if (!m_is_live || m_arrivals.empty()) return true;
  const bool stands_alone = GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT) == FALSE;
  m_is_skipping = isTooMuch(arrived) || (m_is_skipping && !stands_alone);
  if (!m_is_skipping) --m_credit;
  return !m_is_skipping;
}

/// With the lock held.
bool StreamWatch::isTooMuch(Steady arrived) {
  const Steady now = Clock::now();
  m_credit += kMostFrames * std::chrono::duration<double>(now - m_credited).count();
  m_credit = std::min(m_credit, kMostCredit);
  m_credited = now;
  if (m_credit < 1) {
    m_left_out = "it sends more than " + std::to_string(kMostFrames) + " pictures a second: some are left out";
  } else if (now - arrived > kLongestWait) {
    m_left_out =
        "this machine is too slow for its pictures, and leaves some out: set the camera to fewer or smaller ones";
  } else {
    return false;
  }
  m_left_out_at = now;
  return true;
}

}  // namespace workstation
