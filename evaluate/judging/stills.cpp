#include "evaluate/judging/stills.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <optional>

#include "platform/support/owners.h"
#include "platform/workstation/decoding/recording_end.h"
#include "platform/workstation/decoding/video_pipeline.h"

namespace evaluate {
namespace {

using workstation::GstPtr;

constexpr GstClockTime kPatience = 20 * GST_SECOND;
constexpr const char* kJpeg = "image/jpeg,width=400,pixel-aspect-ratio=1/1";

std::string uriOf(const std::filesystem::path& video) {
  const GLibPtr<gchar> uri(g_filename_to_uri(std::filesystem::absolute(video).c_str(), nullptr, nullptr));
  return uri ? uri.get() : "";
}

/// Opens a recording and shows any of its pictures.
class Stills {
 public:
  explicit Stills(const std::filesystem::path& video)
      : m_pipeline(
            gst_parse_launch("uridecodebin name=source ! videoconvert ! appsink name=sink sync=false", nullptr)) {
    if (!m_pipeline) return;
    const GstPtr<GstElement> source(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "source"));
    m_sink.reset(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "sink"));
    g_object_set(source.get(), "uri", uriOf(video).c_str(), nullptr);  // a sound without a sink is left out
    gst_element_set_state(m_pipeline.get(), GST_STATE_PAUSED);
    m_is_open = isReady();
  }
  ~Stills() {
    if (m_pipeline) gst_element_set_state(m_pipeline.get(), GST_STATE_NULL);
  }
  Stills(const Stills&) = delete;
  Stills& operator=(const Stills&) = delete;

  std::string at(double time_s) {
    constexpr auto kHow = static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
    const auto time = static_cast<gint64>(std::llround(time_s * GST_SECOND));
    if (!m_is_open || gst_element_seek_simple(m_pipeline.get(), GST_FORMAT_TIME, kHow, time) == FALSE || !isReady()) {
      return "";
    }
    const GstPtr<GstSample> picture(gst_app_sink_try_pull_preroll(GST_APP_SINK(m_sink.get()), kPatience));
    const GstPtr<GstCaps> jpeg(gst_caps_from_string(kJpeg));
    const GstPtr<GstSample> still(picture ? gst_video_convert_sample(picture.get(), jpeg.get(), kPatience, nullptr)
                                          : nullptr);
    return still ? bytesOf(gst_sample_get_buffer(still.get())) : "";
  }

 private:
  bool isReady() {
    return gst_element_get_state(m_pipeline.get(), nullptr, nullptr, kPatience) == GST_STATE_CHANGE_SUCCESS;
  }

  static std::string bytesOf(GstBuffer* buffer) {
    std::string bytes(gst_buffer_get_size(buffer), '\0');
    bytes.resize(gst_buffer_extract(buffer, 0, bytes.data(), bytes.size()));
    return bytes;
  }

  GstPtr<GstElement> m_pipeline;
  GstPtr<GstElement> m_sink;
  bool m_is_open = false;
};

}  // namespace

double lengthOf(const std::filesystem::path& video) {
  workstation::startGStreamer();
  const auto end = workstation::findRecordingEnd(uriOf(video));
  return end ? std::chrono::duration<double>(end->last_frame + end->frame_duration).count() : 0;
}

std::vector<std::string> stillsOf(const std::filesystem::path& video, const std::vector<double>& times) {
  std::vector<std::string> pictures(times.size());
  if (times.empty()) return pictures;
  workstation::startGStreamer();
  Stills stills(video);
  for (std::size_t i = 0; i < times.size(); ++i) pictures[i] = stills.at(times[i]);
  return pictures;
}

}  // namespace evaluate
