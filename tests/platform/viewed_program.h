// A program above the camera whose streams are watched, and what its viewers see of it.
#pragma once

#include <axoverlay.h>
#include <cairo.h>
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "platform/workstation/trace/trace_listener.h"
#include "tests/platform/camera_stream.h"
#include "tests/platform/http_client.h"
#include "tests/platform/viewer_camera.h"

inline constexpr std::uint32_t kFound = 0xFF0000;  // what the test's program draws

/// The program above the camera: it takes frames of one stream, and draws one square.
class Program {
 public:
  Program() {
    axoverlay_settings overlays;
    axoverlay_init_axoverlay_settings(&overlays);
    overlays.render_callback = render;
    overlays.adjustment_callback = adjust;
    overlays.select_callback = [](gint, gint width, gint, gint, gboolean, axoverlay_stream_type) -> gboolean {
      return width != 96;
    };
    axoverlay_init(&overlays, nullptr);
    axoverlay_overlay_data data;
    axoverlay_init_overlay_data(&data);
    m_overlay = axoverlay_create_overlay(&data, this, nullptr);
  }
  ~Program() {
    axoverlay_destroy_overlay(m_overlay, nullptr);
    axoverlay_cleanup();
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// One cycle; it draws if it got a picture and succeeds. Whether it got one.
  bool cycle(bool succeeds = true) {
    bool has_picture = false;
    runCycle([&] {
      has_picture = lumaOf(m_stream) >= 0;
      if (has_picture && succeeds) redraw();
      if (has_picture) workstation::tellTraceListener(trace);
    });
    return has_picture;
  }

  enum class Drawing { kGood, kThrows, kFails };

  gint overlay() const { return m_overlay; }
  Drawing drawing = Drawing::kGood;
  bool is_told_of_failure = false;  ///< by the redraw of the last cycle
  axoverlay_stream_data drawn{};    ///< the stream that was drawn last
  std::string trace;                ///< whole lines that are told at the end of each cycle
  bool shrinks = false;             ///< the overlay is a quarter of the stream, at the right and the bottom

 private:
  void redraw() {
    CaughtError error;
    axoverlay_redraw(error.out());
    is_told_of_failure = static_cast<bool>(error);
  }

  static void adjust(gint /*id*/, axoverlay_stream_data* stream, axoverlay_position_type* /*postype*/, gfloat* x,
                     gfloat* y, gint* width, gint* height, gpointer program) {
    const bool turned = stream->rotation % 180 != 0;
    *width = turned ? stream->height : stream->width;
    *height = turned ? stream->width : stream->height;
    if (!static_cast<Program*>(program)->shrinks) return;
    *width /= 2;
    *height /= 2;
    *x = *y = 1;
  }

  static void render(gpointer context, gint /*id*/, axoverlay_stream_data* stream, axoverlay_position_type /*postype*/,
                     gfloat /*x*/, gfloat /*y*/, gint width, gint height, gpointer program) {
    auto& self = *static_cast<Program*>(program);
    self.drawn = *stream;
    auto* const cairo = static_cast<cairo_t*>(context);
    cairo_set_source_rgb(cairo, 1, 0, 0);
    cairo_rectangle(cairo, 0, 0, width / 2.0, height / 2.0);
    cairo_fill(cairo);
    cairo_rectangle(cairo, width, height, 100, 100);  // outside of the overlay: clipped
    cairo_fill(cairo);
    if (self.drawing == Drawing::kThrows) throw std::runtime_error("half of it is drawn");
    if (self.drawing == Drawing::kFails) cairo_restore(cairo);  // nothing was saved
  }

  StreamPtr m_stream = openStream(128, 72);
  gint m_overlay = 0;
};

inline workstation::BgraPicture decode(const std::string& jpeg) {
  const std::unique_ptr<void, decltype(&tjDestroy)> decoder(tjInitDecompress(), &tjDestroy);
  const auto* bytes = reinterpret_cast<const unsigned char*>(jpeg.data());
  int width = 0;
  int height = 0;
  int sampling = 0;
  int space = 0;
  if (tjDecompressHeader3(decoder.get(), bytes, jpeg.size(), &width, &height, &sampling, &space) != 0) return {};
  workstation::BgraPicture picture(width, height);
  tjDecompress2(decoder.get(), bytes, jpeg.size(), picture.bytes.data(), width, picture.stride(), height, TJPF_BGRX, 0);
  return picture;
}

inline bool isNear(std::uint32_t colour, std::uint32_t expected) {
  for (const unsigned int shift : {0U, 8U, 16U}) {
    if (std::abs(static_cast<int>(colour >> shift & 255U) - static_cast<int>(expected >> shift & 255U)) > 12)
      return false;
  }
  return true;
}

inline constexpr std::uint32_t kCard = 0x404040;
inline const std::string kImage = "/axis-cgi/jpg/image.cgi?resolution=";
inline const std::string kVideo = "/axis-cgi/mjpg/video.cgi?resolution=";

inline std::string watchRequest(std::uint16_t port, const std::string& size) {
  return requestText(port, "GET", kVideo + size);
}

/// The next part of a stream; empty at its end.
inline std::string nextPart(HttpClient& viewer) {
  const std::string text = viewer.receiveUntil("\r\n--velmor-picture\r\n");
  const std::size_t body = text.find("\r\n\r\n");
  if (!text.ends_with("\r\n--velmor-picture\r\n") || body == std::string::npos) return "";
  std::string jpeg = text.substr(body + 4, text.size() - body - 4 - 20);
  EXPECT_EQ(text.substr(0, body), "Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(jpeg.size()));
  return jpeg;
}
