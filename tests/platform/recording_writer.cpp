#include "tests/platform/recording_writer.h"

#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <cstring>

namespace {

GstBuffer* frameOf(const Recording& recording, int index) {
  const auto even = [](int length) { return (static_cast<std::size_t>(length) + 3) / 4 * 4; };
  const std::size_t stride = even(recording.width);
  const std::size_t rows = (static_cast<std::size_t>(recording.height) + 1) / 2 * 2;
  std::vector<std::uint8_t> bytes(stride * rows + 2 * even((recording.width + 1) / 2) * (rows / 2), 128);
  std::memset(bytes.data(), greyOf(index), stride * rows);
  for (std::size_t row = 0; recording.corners && row < rows / 2; ++row) {
    std::memset(bytes.data() + row * stride, 16, stride / 2);
  }
  GstBuffer* buffer = gst_buffer_new_memdup(bytes.data(), bytes.size());
  const auto fps = static_cast<guint64>(recording.fps);
  GST_BUFFER_PTS(buffer) = static_cast<guint64>(recording.first_ms) * GST_MSECOND +
                           gst_util_uint64_scale(static_cast<guint64>(index), GST_SECOND, fps);
  GST_BUFFER_DURATION(buffer) = GST_SECOND / fps;
  return buffer;
}

}  // namespace

bool writeRecording(const Recording& recording, const std::string& file) {
  gst_init(nullptr, nullptr);
  const std::string size = ",width=" + std::to_string(recording.width) + ",height=" + std::to_string(recording.height);
  const std::string text = "appsrc name=source format=time caps=video/x-raw,format=I420" + size +
                           ",framerate=" + std::to_string(recording.fps) + "/1 ! " + recording.format +
                           " ! filesink location=" + file + " " + recording.more;
  GstElement* pipeline = gst_parse_launch(text.c_str(), nullptr);
  if (pipeline == nullptr) return false;
  GstElement* source = gst_bin_get_by_name(GST_BIN(pipeline), "source");
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  for (int i = 0; i < recording.frames; ++i) gst_app_src_push_buffer(GST_APP_SRC(source), frameOf(recording, i));
  gst_app_src_end_of_stream(GST_APP_SRC(source));
  GstBus* bus = gst_element_get_bus(pipeline);
  constexpr auto kEnds = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR);
  GstMessage* message = gst_bus_timed_pop_filtered(bus, 60 * GST_SECOND, kEnds);
  const bool written = message != nullptr && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS;
  if (message != nullptr) gst_message_unref(message);
  gst_element_set_state(pipeline, GST_STATE_NULL);
  gst_object_unref(bus);
  gst_object_unref(source);
  gst_object_unref(pipeline);
  return written;
}

std::string brokenAtTheEnd(std::string film) {
  const std::size_t cluster = film.rfind("\x1F\x43\xB6\x75");
  film.at(film.find('\xE7', cluster) + 1) = '\x89';
  return film;
}
