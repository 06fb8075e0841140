#include "platform/scripted/video.h"

#include <vdostream.h>

namespace scripted {

Camera& camera() {
  static Camera the_camera;
  return the_camera;
}

namespace {

bool fails(const char* call, GError** error) {
  if (!strikes(camera().faults, call)) return false;
  g_set_error_literal(error, g_quark_from_static_string("camera"), 1, "camera is gone");
  return true;
}

void onStreamReleased(gpointer, GObject*) { --camera().live_streams; }

}  // namespace
}  // namespace scripted

using scripted::camera;
using scripted::fails;

extern "C" {
VdoMap* vdo_map_new() { return static_cast<VdoMap*>(g_object_new(G_TYPE_OBJECT, nullptr)); }
void vdo_map_set_uint32(VdoMap* self, const gchar* name, guint32 value) {
  g_object_set_data(G_OBJECT(self), name, GUINT_TO_POINTER(value));
}
guint32 vdo_map_get_uint32(const VdoMap* self, const gchar* name, guint32 fallback) {
  gpointer value = g_object_get_data(G_OBJECT(const_cast<VdoMap*>(self)), name);
  return value != nullptr ? GPOINTER_TO_UINT(value) : fallback;
}
VdoStream* vdo_stream_new(VdoMap* settings, VdoBufferFinalizer, GError** error) {
  for (const char* name : {"channel", "format", "width", "height", "rotation"}) {
    camera().settings[name] = vdo_map_get_uint32(settings, name, 0);
  }
  if (fails("vdo_stream_new", error)) return nullptr;
  auto* const stream = G_OBJECT(g_object_new(G_TYPE_OBJECT, nullptr));
  g_object_weak_ref(stream, scripted::onStreamReleased, nullptr);
  ++camera().live_streams;
  return reinterpret_cast<VdoStream*>(stream);
}
gboolean vdo_stream_attach(VdoStream*, VdoMap*, GError** error) { return !fails("vdo_stream_attach", error); }
VdoMap* vdo_stream_get_settings(VdoStream*, GError** error) {
  if (fails("vdo_stream_get_settings", error)) return nullptr;
  VdoMap* const actual = vdo_map_new();
  vdo_map_set_uint32(actual, "width", camera().settings["width"]);
  vdo_map_set_uint32(actual, "framerate", 25);
  return actual;
}
gboolean vdo_stream_start(VdoStream*, GError** error) { return !fails("vdo_stream_start", error); }
VdoBuffer* vdo_stream_get_buffer(VdoStream*, GError** error) {
  if (fails("vdo_stream_get_buffer", error)) return nullptr;
  ++camera().buffers_taken;
  return reinterpret_cast<VdoBuffer*>(&camera());
}
GList* vdo_channel_get_all(GError** error) {
  GList* channels = nullptr;
  if (fails("vdo_channel_get_all", error)) return channels;
  for (auto& sizes : camera().channels) {
    auto* const channel = G_OBJECT(g_object_new(G_TYPE_OBJECT, nullptr));
    g_object_set_data(channel, "sizes", &sizes);
    channels = g_list_append(channels, channel);
  }
  return channels;
}
VdoResolutionSet* vdo_channel_get_resolutions(VdoChannel* self, VdoMap*, GError** error) {
  if (fails("vdo_channel_get_resolutions", error)) return nullptr;
  const auto& sizes =
      *static_cast<std::vector<std::pair<unsigned, unsigned>>*>(g_object_get_data(G_OBJECT(self), "sizes"));
  auto* const set =
      static_cast<VdoResolutionSet*>(g_malloc(sizeof(VdoResolutionSet) + sizes.size() * sizeof(VdoResolution)));
  set->count = 0;
  for (const auto& [width, height] : sizes) set->resolutions[set->count++] = {width, height};
  return set;
}
gpointer vdo_buffer_get_data(VdoBuffer*) { return camera().frame.data(); }
gboolean vdo_stream_buffer_unref(VdoStream*, VdoBuffer** buffer, GError** error) {
  *buffer = nullptr;
  if (fails("vdo_stream_buffer_unref", error)) return FALSE;
  ++camera().buffers_returned;
  return TRUE;
}
}
