// One picture for viewers, from the decoded frame to JPEG with the overlay on it, and GStreamer doing the same: the
// same I420 frame, the same premultiplied overlay, JPEG of the same quality.
#include <benchmark/benchmark.h>
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/workstation/decoding/video_camera.h"
#include "platform/workstation/views/anonymised_view.h"
#include "platform/workstation/views/view_picture.h"

namespace {

using workstation::BgraPicture;
using workstation::GstPtr;
using workstation::I420View;

StreamSize sizeOf(const benchmark::State& state) {
  return {static_cast<std::uint32_t>(state.range(0)), static_cast<std::uint32_t>(state.range(1))};
}

/// A picture with as much detail as a room: slopes, edges and a little noise.
std::vector<std::uint8_t> roomOf(StreamSize size) {
  const std::size_t luma = std::size_t{size.width} * size.height;
  std::vector<std::uint8_t> bytes(luma * 3 / 2, 128);
  std::uint32_t noise = 1;
  for (std::size_t i = 0; i < luma; ++i) {
    noise = noise * 1664525U + 1013904223U;
    const std::size_t x = i % size.width;
    const std::size_t y = i / size.width;
    bytes[i] = static_cast<std::uint8_t>(60 + x * 60 / size.width + ((x / 40 + y / 40) % 3) * 25 + (noise >> 30));
  }
  for (std::size_t i = luma; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(110 + (i / 900) % 40);
  return bytes;
}

I420View viewOf(const std::vector<std::uint8_t>& bytes, StreamSize size) {
  const auto width = static_cast<int>(size.width);
  const auto height = static_cast<int>(size.height);
  const std::size_t luma = std::size_t{size.width} * size.height;
  return {bytes.data(), bytes.data() + luma, bytes.data() + luma * 5 / 4, width, width / 2, width / 2, width, height,
          false};
}

/// Lines and a filled box, as an overlay of findings has them.
BgraPicture overlayOf(StreamSize size) {
  BgraPicture overlay(static_cast<int>(size.width), static_cast<int>(size.height));
  for (int y = overlay.height / 4; y < overlay.height / 2; ++y) {
    for (int x = overlay.width / 4; x < overlay.width / 3; ++x) {
      auto* pixel = overlay.bytes.data() + std::ptrdiff_t{y} * overlay.stride() + std::ptrdiff_t{x} * 4;
      std::fill(pixel, pixel + 4, std::uint8_t{255});
    }
  }
  return overlay;
}

void ours(benchmark::State& state) {
  const StreamSize size = sizeOf(state);
  const auto room = roomOf(size);
  const BgraPicture overlay = overlayOf(size);
  std::size_t bytes = 0;
  while (state.KeepRunning()) {
    BgraPicture picture = workstation::roomPicture(viewOf(room, size), size, {});
    workstation::layOver(picture, overlay);
    bytes = workstation::toJpeg(picture).size();
  }
  state.counters["KiB"] = static_cast<double>(bytes) / 1024;
}

void anonymised(benchmark::State& state) {
  const StreamSize size = sizeOf(state);
  const auto room = roomOf(size);
  const BgraPicture overlay = overlayOf(size);
  std::size_t bytes = 0;
  while (state.KeepRunning()) {
    bytes = workstation::toJpeg(workstation::anonymisedPicture(viewOf(room, size), overlay, size, {})).size();
  }
  state.counters["KiB"] = static_cast<double>(bytes) / 1024;
}

/// The pipeline's overlay, set once: it is the same for every picture.
GstVideoOverlayComposition* compositionOf(StreamSize size) {
  const BgraPicture overlay = overlayOf(size);
  GstBuffer* pixels = gst_buffer_new_memdup(overlay.bytes.data(), overlay.bytes.size());
  gst_buffer_add_video_meta(pixels, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_OVERLAY_COMPOSITION_FORMAT_RGB, size.width,
                            size.height);
  GstVideoOverlayRectangle* rectangle = gst_video_overlay_rectangle_new_raw(
      pixels, 0, 0, size.width, size.height, GST_VIDEO_OVERLAY_FORMAT_FLAG_PREMULTIPLIED_ALPHA);
  GstVideoOverlayComposition* composition = gst_video_overlay_composition_new(rectangle);
  gst_video_overlay_rectangle_unref(rectangle);
  gst_buffer_unref(pixels);
  return composition;
}

GstVideoOverlayComposition* drawOverlay(GstElement* /*element*/, GstSample* /*sample*/, gpointer composition) {
  return gst_video_overlay_composition_ref(static_cast<GstVideoOverlayComposition*>(composition));
}

void gstreamer(benchmark::State& state) {
  gst_init(nullptr, nullptr);
  const StreamSize size = sizeOf(state);
  const auto room = roomOf(size);
  const std::string caps = "video/x-raw,format=I420,framerate=10/1,width=" + std::to_string(size.width) +
                           ",height=" + std::to_string(size.height);
  const GstPtr<GstElement> pipeline(gst_parse_launch(("appsrc name=source format=time caps=" + caps +
                                                      " ! overlaycomposition name=overlay ! jpegenc quality=80 ! "
                                                      "appsink name=sink sync=false")
                                                         .c_str(),
                                                     nullptr));
  const GstPtr<GstElement> source(gst_bin_get_by_name(GST_BIN(pipeline.get()), "source"));
  const GstPtr<GstElement> overlay(gst_bin_get_by_name(GST_BIN(pipeline.get()), "overlay"));
  const GstPtr<GstElement> sink(gst_bin_get_by_name(GST_BIN(pipeline.get()), "sink"));
  GstVideoOverlayComposition* composition = compositionOf(size);
  g_signal_connect(overlay.get(), "draw", G_CALLBACK(drawOverlay), composition);
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  GstClockTime time = 0;
  std::size_t bytes = 0;
  while (state.KeepRunning()) {
    GstBuffer* frame = gst_buffer_new_memdup(room.data(), room.size());
    GST_BUFFER_PTS(frame) = time += 100 * GST_MSECOND;
    gst_app_src_push_buffer(GST_APP_SRC(source.get()), frame);
    const GstPtr<GstSample> jpeg(gst_app_sink_pull_sample(GST_APP_SINK(sink.get())));
    bytes = gst_buffer_get_size(gst_sample_get_buffer(jpeg.get()));
  }
  state.counters["KiB"] = static_cast<double>(bytes) / 1024;
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
  gst_video_overlay_composition_unref(composition);
}

BENCHMARK(ours)
    ->Args({1280, 720})
    ->Args({1920, 1080})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(gstreamer)
    ->Args({1280, 720})
    ->Args({1920, 1080})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(anonymised)
    ->Args({1280, 720})
    ->Args({1920, 1080})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

}  // namespace
