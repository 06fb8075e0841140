// A camera that the test's own program analyses: frames of plain colours, overlays and cycles on demand.
#pragma once

#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>

#include "platform/clock/clock.h"
#include "platform/workstation/decoding/video_pipeline.h"
#include "platform/workstation/views/view_picture.h"

struct Yuv {
  std::uint8_t y, u, v;
};

/// A frame of four quarters: left top, right top, left bottom, right bottom. Sides are multiples of 8.
inline std::shared_ptr<const workstation::DecodedFrame> quarters(int width, int height, const std::array<Yuv, 4>& of) {
  gst_init(nullptr, nullptr);
  const auto columns = static_cast<std::size_t>(width);
  const auto rows = static_cast<std::size_t>(height);
  std::vector<std::uint8_t> bytes(columns * rows * 3 / 2);
  const auto fill = [&](std::uint8_t* plane, std::size_t w, std::size_t h, std::uint8_t Yuv::*part) {
    for (std::size_t y = 0; y < h; ++y) {
      for (std::size_t x = 0; x < w; ++x) plane[y * w + x] = of.at((y < h / 2 ? 0U : 2U) + (x < w / 2 ? 0U : 1U)).*part;
    }
  };
  fill(bytes.data(), columns, rows, &Yuv::y);
  fill(bytes.data() + columns * rows, columns / 2, rows / 2, &Yuv::u);
  fill(bytes.data() + columns * rows * 5 / 4, columns / 2, rows / 2, &Yuv::v);
  GstCaps* caps = gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT, width,
                                      "height", G_TYPE_INT, height, "framerate", GST_TYPE_FRACTION, 10, 1, nullptr);
  GstBuffer* buffer = gst_buffer_new_memdup(bytes.data(), bytes.size());
  workstation::GstPtr<GstSample> sample(gst_sample_new(buffer, caps, nullptr, nullptr));
  gst_buffer_unref(buffer);
  gst_caps_unref(caps);
  return std::make_shared<const workstation::DecodedFrame>(std::move(sample));
}

/// 0xRRGGBB.
inline std::uint32_t colourAt(const workstation::BgraPicture& picture, int x, int y) {
  const auto* pixel = picture.bytes.data() + std::ptrdiff_t{y} * picture.stride() + std::ptrdiff_t{x} * 4;
  return static_cast<std::uint32_t>(pixel[2] << 16 | pixel[1] << 8 | pixel[0]);
}

/// Runs one cycle of a program: a call of the clock's ticker, which steps a replay's time by the interval before.
template <typename Function>
void runCycle(Function function, guint interval_ms = 1) {
  struct Cycle {
    Function& function;
    bool over = false;
  } cycle{function};
  ticker_clock::addTicker(
      interval_ms,
      [](gpointer data) -> gboolean {
        static_cast<Cycle*>(data)->function();
        static_cast<Cycle*>(data)->over = true;
        return G_SOURCE_REMOVE;
      },
      &cycle);
  while (!cycle.over) g_main_context_iteration(nullptr, TRUE);
}
