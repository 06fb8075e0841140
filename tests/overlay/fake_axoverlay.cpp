#include "tests/overlay/fake_axoverlay.h"

FakeOverlays& fakeOverlays() {
  static FakeOverlays overlays;
  return overlays;
}

namespace {

bool fails(const char* call, GError** error) {
  if (!fakeOverlays().failingCalls.contains(call)) return false;
  g_set_error(error, g_quark_from_static_string("overlay"), 4, "no %s", call);
  return true;
}

}  // namespace

extern "C" {
gboolean axoverlay_is_backend_supported(axoverlay_backend_type backend) {
  return backend == AXOVERLAY_CAIRO_IMAGE_BACKEND && !fails("axoverlay_is_backend_supported", nullptr);
}
void axoverlay_init_axoverlay_settings(axoverlay_settings* settings) { *settings = {}; }
void axoverlay_init_overlay_data(axoverlay_overlay_data* data) { *data = {}; }
void axoverlay_init(axoverlay_settings* settings, GError** error) {
  if (fails("axoverlay_init", error)) return;
  fakeOverlays().settings = *settings;
  ++fakeOverlays().liveSessions;
}
void axoverlay_cleanup() { --fakeOverlays().liveSessions; }
gint axoverlay_get_max_resolution_width(gint camera, GError** error) {
  return fails("axoverlay_get_max_resolution_width", error) ? 0 : 1920 * camera;
}
gint axoverlay_get_max_resolution_height(gint camera, GError** error) {
  return fails("axoverlay_get_max_resolution_height", error) ? 0 : 1080 * camera;
}
gint axoverlay_create_overlay(axoverlay_overlay_data* data, gpointer user_data, GError** error) {
  if (fails("axoverlay_create_overlay", error)) return -1;
  fakeOverlays().overlay = *data;
  fakeOverlays().userData = user_data;
  ++fakeOverlays().liveOverlays;
  return FakeOverlays::kOverlay;
}
void axoverlay_destroy_overlay(gint id, GError**) { fakeOverlays().liveOverlays -= id == FakeOverlays::kOverlay; }
void axoverlay_redraw(GError** error) { fakeOverlays().redraws += !fails("axoverlay_redraw", error); }
}
