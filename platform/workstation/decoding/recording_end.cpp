#include "platform/workstation/decoding/recording_end.h"

#include <memory>
#include <string_view>

#include "platform/workstation/decoding/video_pipeline.h"

namespace workstation {
namespace {

constexpr GstClockTime kScanLimit = 60 * GST_SECOND;

/// Written by the pipeline's threads, read after the pipeline has stopped.
struct Scan {
  GstElement* pipeline = nullptr;
  bool has_video = false;
  GstClockTime last = GST_CLOCK_TIME_NONE;      // the highest running time of a frame
  GstClockTime previous = GST_CLOCK_TIME_NONE;  // the highest below it
  GstClockTime duration = GST_CLOCK_TIME_NONE;  // of the frame at last
};

/// Frames come in coding order: the last to be shown is not the last to come.
void note(Scan& scan, GstClockTime time, GstClockTime duration) {
  if (!GST_CLOCK_TIME_IS_VALID(scan.last) || time > scan.last) {
    scan.previous = scan.last;
    scan.last = time;
    scan.duration = duration;
  } else if (time < scan.last && (!GST_CLOCK_TIME_IS_VALID(scan.previous) || time > scan.previous)) {
    scan.previous = time;
  }
}

GstPadProbeReturn onFrame(GstPad* pad, GstPadProbeInfo* info, gpointer data) {
  const GstBuffer* buffer = gst_pad_probe_info_get_buffer(info);
  const GstPtr<GstEvent> event(gst_pad_get_sticky_event(pad, GST_EVENT_SEGMENT, 0));
  if (!event) return GST_PAD_PROBE_OK;
  const GstSegment* segment = nullptr;
  gst_event_parse_segment(event.get(), &segment);
  const GstClockTime time = gst_segment_to_running_time(segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer));
  if (GST_CLOCK_TIME_IS_VALID(time)) note(*static_cast<Scan*>(data), time, GST_BUFFER_DURATION(buffer));
  return GST_PAD_PROBE_OK;
}

bool isVideo(GstPad* pad) {
  const GstPtr<GstCaps> caps(gst_pad_get_current_caps(pad));
  if (!caps) return false;
  const std::string_view name = gst_structure_get_name(gst_caps_get_structure(caps.get(), 0));
  return name.starts_with("video/") || name.starts_with("image/");
}

/// Every track runs into a sink of its own, so that none holds the others up; the first one with pictures is measured.
void onTrack(GstElement* /*parser*/, GstPad* pad, gpointer data) {
  auto& scan = *static_cast<Scan*>(data);
  GstElement* sink = gst_element_factory_make("fakesink", nullptr);
  if (sink == nullptr) return;
  g_object_set(sink, "sync", FALSE, "async", FALSE, nullptr);
  gst_bin_add(GST_BIN(scan.pipeline), sink);
  gst_element_sync_state_with_parent(sink);
  const GstPtr<GstPad> sink_pad(gst_element_get_static_pad(sink, "sink"));
  if (!scan.has_video && isVideo(pad)) {
    scan.has_video = true;
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, onFrame, &scan, nullptr);
  }
  gst_pad_link(pad, sink_pad.get());
}

bool runToEnd(GstElement* pipeline) {
  const GstPtr<GstBus> bus(gst_element_get_bus(pipeline));
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  constexpr auto kEnds = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR);
  const GstPtr<GstMessage> message(gst_bus_timed_pop_filtered(bus.get(), kScanLimit, kEnds));
  gst_element_set_state(pipeline, GST_STATE_NULL);
  return message && GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_EOS;
}

}  // namespace

std::optional<RecordingEnd> findRecordingEnd(const std::string& uri) {
  const GstPtr<GstElement> pipeline(gst_parse_launch("urisourcebin name=source ! parsebin name=parser", nullptr));
  if (!pipeline) return std::nullopt;
  Scan scan;
  scan.pipeline = pipeline.get();
  const GstPtr<GstElement> source(gst_bin_get_by_name(GST_BIN(pipeline.get()), "source"));
  const GstPtr<GstElement> parser(gst_bin_get_by_name(GST_BIN(pipeline.get()), "parser"));
  g_object_set(source.get(), "uri", uri.c_str(), nullptr);
  g_signal_connect(parser.get(), "pad-added", G_CALLBACK(onTrack), &scan);
  if (!runToEnd(pipeline.get()) || !GST_CLOCK_TIME_IS_VALID(scan.last)) return std::nullopt;

  GstClockTime duration = scan.duration;
  if (!GST_CLOCK_TIME_IS_VALID(duration)) {
    duration = GST_CLOCK_TIME_IS_VALID(scan.previous) ? scan.last - scan.previous : 0;
  }
  return RecordingEnd{std::chrono::nanoseconds(scan.last), std::chrono::nanoseconds(duration)};
}

}  // namespace workstation
