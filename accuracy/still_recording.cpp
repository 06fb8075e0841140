#include "accuracy/still_recording.h"

#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "platform/support/owners.h"
#include "platform/workstation/decoding/video_pipeline.h"

namespace {

using workstation::GstPtr;

constexpr guint64 kMostAhead_bytes = 16U << 20U;  // waiting to be written
constexpr GstClockTime kPatience = 60 * GST_SECOND;
constexpr GstClockTime kPause = 20 * GST_MSECOND;

GstElement* makePipeline(const std::filesystem::path& file, const cv::Mat& first) {
  const std::string text =
      "appsrc name=source format=time caps=video/x-raw,format=RGB,width=" + std::to_string(first.cols) +
      ",height=" + std::to_string(first.rows) + ",framerate=1/" + std::to_string(kStillLength.count()) +
      " ! videoconvert ! video/x-raw,format=I420,colorimetry=bt601 ! matroskamux ! "
      "filesink name=sink";
  CaughtError error;
  GstPtr<GstElement> pipeline(gst_parse_launch(text.c_str(), error.out()));
  if (error || !pipeline) throw std::runtime_error("pictures cannot be written: " + error.text());
  const GstPtr<GstElement> sink(gst_bin_get_by_name(GST_BIN(pipeline.get()), "sink"));
  g_object_set(sink.get(), "location", file.c_str(), nullptr);
  return pipeline.release();
}

/// Ends the wait for the pipeline's end or failure after `patience`; true at its end.
bool isAtEnd(GstElement* pipeline, GstClockTime patience) {
  const GstPtr<GstBus> bus(gst_element_get_bus(pipeline));
  constexpr auto kEnds = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR);
  const GstPtr<GstMessage> message(gst_bus_timed_pop_filtered(bus.get(), patience, kEnds));
  if (!message) return false;
  if (GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_EOS) return true;
  CaughtError error;
  gst_message_parse_error(message.get(), error.out(), nullptr);
  throw std::runtime_error("pictures cannot be written: " + error.text());
}

void push(GstElement* pipeline, GstElement* source, const cv::Mat& picture, int index) {
  for (GstClockTime waited = 0; gst_app_src_get_current_level_bytes(GST_APP_SRC(source)) > kMostAhead_bytes;
       waited += kPause) {
    isAtEnd(pipeline, kPause);
    if (waited > kPatience) throw std::runtime_error("pictures cannot be written: the disk does not answer");
  }
  GstBuffer* buffer = gst_buffer_new_memdup(picture.data, picture.total() * picture.elemSize());
  const GstClockTime length = static_cast<GstClockTime>(kStillLength.count()) * GST_SECOND;
  GST_BUFFER_PTS(buffer) = static_cast<GstClockTime>(index) * length;
  GST_BUFFER_DURATION(buffer) = length;
  gst_app_src_push_buffer(GST_APP_SRC(source), buffer);
}

/// A pipeline that is stopped when nobody needs it any more.
struct Stop {
  void operator()(GstElement* pipeline) const {
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
  }
};

}  // namespace

void writeStills(const std::filesystem::path& file, int count, const std::function<cv::Mat(int index)>& picture) {
  workstation::startGStreamer();
  std::unique_ptr<GstElement, Stop> pipeline;
  GstPtr<GstElement> source;
  for (int i = 0; i < count; ++i) {
    const cv::Mat rgb = picture(i);
    if (!pipeline) {
      pipeline.reset(makePipeline(file, rgb));
      source.reset(gst_bin_get_by_name(GST_BIN(pipeline.get()), "source"));
      gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    }
    push(pipeline.get(), source.get(), rgb, i);
  }
  if (!pipeline) throw std::runtime_error("there is no picture");
  gst_app_src_end_of_stream(GST_APP_SRC(source.get()));
  if (!isAtEnd(pipeline.get(), kPatience)) throw std::runtime_error("pictures cannot be written: no end comes");
}
