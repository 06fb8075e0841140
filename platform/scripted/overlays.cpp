#include "platform/scripted/overlays.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace scripted {

Canvas::Canvas(int width, int height)
    : m_surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height)),
      m_cairo(cairo_create(m_surface.get())) {}

int Canvas::width() const { return cairo_image_surface_get_width(m_surface.get()); }

int Canvas::height() const { return cairo_image_surface_get_height(m_surface.get()); }

std::uint32_t Canvas::at(int x, int y) const {
  if (x < 0 || y < 0 || x >= width() || y >= height()) return 0;
  cairo_surface_flush(m_surface.get());
  const unsigned char* row = cairo_image_surface_get_data(m_surface.get()) +
                             std::ptrdiff_t{y} * cairo_image_surface_get_stride(m_surface.get());
  return reinterpret_cast<const std::uint32_t*>(row)[x];
}

Canvas::Part Canvas::find(std::uint32_t color) const {
  Part part{width(), height(), -1, -1, 0};
  for (int y = 0; y < height(); ++y) {
    for (int x = 0; x < width(); ++x) {
      if (at(x, y) != color) continue;
      part = {std::min(part.left, x), std::min(part.top, y), std::max(part.right, x), y, part.pixels + 1};
    }
  }
  return part;
}

int Canvas::countNear(std::uint32_t color, int left, int top, int right, int bottom) const {
  constexpr int kNear = 100;  // of 255, for each part of a colour
  int pixels = 0;
  for (int y = top; y < bottom; ++y) {
    for (int x = left; x < right; ++x) {
      const auto is_near = [color, pixel = at(x, y)](unsigned shift) {
        return std::abs(static_cast<int>(pixel >> shift & 255U) - static_cast<int>(color >> shift & 255U)) < kNear;
      };
      pixels += is_near(0) && is_near(8) && is_near(16) && is_near(24) ? 1 : 0;
    }
  }
  return pixels;
}

void Overlays::render(cairo_t* cairo, axoverlay_stream_data stream, int id) const {
  settings.render_callback(cairo, id, &stream, AXOVERLAY_CUSTOM_NORMALIZED, 0, 0, 0, 0, user_data);
}

Canvas Overlays::drawn(axoverlay_stream_data stream, int id) const {
  gint width = 0;
  gint height = 0;
  settings.adjustment_callback(id, &stream, nullptr, nullptr, nullptr, &width, &height, user_data);
  Canvas canvas(width, height);
  render(canvas.cairo(), stream, id);
  return canvas;
}

Overlays& overlays() {
  static Overlays service;
  return service;
}

namespace {

bool fails(const char* call, GError** error) {
  if (!strikes(overlays().faults, call)) return false;
  g_set_error(error, g_quark_from_static_string("overlay"), 4, "no %s", call);
  return true;
}

}  // namespace
}  // namespace scripted

using scripted::fails;
using scripted::overlays;

extern "C" {
gboolean axoverlay_is_backend_supported(axoverlay_backend_type backend) {
  return backend == AXOVERLAY_CAIRO_IMAGE_BACKEND && !fails("axoverlay_is_backend_supported", nullptr);
}
void axoverlay_init_axoverlay_settings(axoverlay_settings* settings) { *settings = {}; }
void axoverlay_init_overlay_data(axoverlay_overlay_data* data) { *data = {}; }
void axoverlay_init(axoverlay_settings* settings, GError** error) {
  if (fails("axoverlay_init", error)) return;
  overlays().settings = *settings;
  ++overlays().live_sessions;
}
void axoverlay_cleanup() { --overlays().live_sessions; }
gint axoverlay_get_max_resolution_width(gint camera, GError** error) {
  return fails("axoverlay_get_max_resolution_width", error) ? 0 : 1920 * camera;
}
gint axoverlay_get_max_resolution_height(gint camera, GError** error) {
  return fails("axoverlay_get_max_resolution_height", error) ? 0 : 1080 * camera;
}
gint axoverlay_create_overlay(axoverlay_overlay_data* data, gpointer user_data, GError** error) {
  if (fails("axoverlay_create_overlay", error)) return -1;
  overlays().overlay = *data;
  overlays().user_data = user_data;
  ++overlays().live_overlays;
  return scripted::Overlays::kOverlay;
}
void axoverlay_destroy_overlay(gint id, GError**) {
  overlays().live_overlays -= id == scripted::Overlays::kOverlay ? 1 : 0;
}
void axoverlay_redraw(GError** error) {
  if (!fails("axoverlay_redraw", error)) ++overlays().redraws;
}
}
