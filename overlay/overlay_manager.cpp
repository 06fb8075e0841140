#include "overlay/overlay_manager.h"

#include <syslog.h>
#include <vdostream.h>

#include <utility>

#include "platform/support/owners.h"

namespace {

using Error = GLibPtr<GError>;

/// Calls `function` with the arguments and a place for its error.
template <typename Function, typename... Arguments>
Error errorOf(Function function, Arguments... arguments) {
  GError* error = nullptr;
  function(arguments..., &error);
  return Error(error);
}

/// The largest width or height of a stream; 0 when the camera does not tell.
int largest(gint (*side)(gint, GError**)) {
  constexpr gint kCamera = 1;
  GError* raw = nullptr;
  const gint pixels = side(kCamera, &raw);
  const Error error(raw);
  if (error) {
    syslog(LOG_ERR, "OverlayManager::OverlayManager no maximum resolution: %s", error->message);
  }
  return pixels;
}

void addResolutions(VdoChannel* channel, std::set<Resolution>& resolutions) {
  GError* raw = nullptr;
  const GLibMemory<VdoResolutionSet> set(vdo_channel_get_resolutions(channel, nullptr, &raw));
  const Error error(raw);
  for (gsize i = 0; set && i < set->count; ++i) {
    resolutions.insert({set->resolutions[i].width, set->resolutions[i].height});
  }
}

}  // namespace

OverlayInfo g_OverlayInfo;
int OverlayManager::m_OverlayID = 0;

bool OverlayRenderOptionsDict::setOptions(const Resolution& resolution, const OverlayRenderOptions& options) {
  m_options[resolution] = options;
  return true;
}

bool OverlayRenderOptionsDict::getOptions(const Resolution& resolution, OverlayRenderOptions& options) const {
  const auto found = m_options.find(resolution);
  if (found == m_options.end()) {
    return false;
  }
  options = found->second;
  return true;
}

bool OverlayRenderOptionsDict::getOptions(unsigned int width, unsigned int height,
                                          OverlayRenderOptions& options) const {
  return getOptions({width, height}, options);
}

StreamType OverlayInfo::getStreamType(unsigned int width, unsigned int height) const {
  const Resolution size{width, height};
  if (size == Resolution{appStreamWidth, appStreamHeight}) {
    return StreamType::ApplicationStream;
  }
  if (size == Resolution{overlayStreamWidth, overlayStreamHeight}) {
    return StreamType::OverlayStream;
  }
  if (size == Resolution{anonymizedStreamWidth, anonymizedStreamHeight}) {
    return StreamType::AnonymizedStream;
  }
  return StreamType::OtherStream;
}

OverlayManager::OverlayManager() {
  if (axoverlay_is_backend_supported(AXOVERLAY_CAIRO_IMAGE_BACKEND) == FALSE) {
    syslog(LOG_ERR, "AXOVERLAY_CAIRO_IMAGE_BACKEND is not supported");
  }
  axoverlay_settings settings{};
  axoverlay_init_axoverlay_settings(&settings);
  settings.render_callback = renderCallback;
  settings.adjustment_callback = adjustmentCallback;
  settings.select_callback = selectStreamCallback;
  settings.backend = AXOVERLAY_CAIRO_IMAGE_BACKEND;
  if (const Error error = errorOf(axoverlay_init, &settings)) {
    syslog(LOG_ERR, "OverlayManager::OverlayManager Failed to initialize axoverlay: %s", error->message);
  }
  const int width = largest(axoverlay_get_max_resolution_width);
  const int height = largest(axoverlay_get_max_resolution_height);
  m_OverlayID = createOverlay(width, height);
  if (const Error error = errorOf(axoverlay_redraw)) {
    syslog(LOG_ERR, "OverlayManager::OverlayManager failed to do initial draw of overlays: %s", error->message);
    close();
  }
}

OverlayManager::~OverlayManager() { close(); }

void OverlayManager::close() {
  if (!std::exchange(m_isOpen, false)) {
    return;
  }
  if (const int id = std::exchange(m_OverlayID, 0); id != 0) {
    errorOf(axoverlay_destroy_overlay, id);
  }
  axoverlay_cleanup();
}

int OverlayManager::createOverlay(int width, int height) {
  axoverlay_overlay_data data{};
  axoverlay_init_overlay_data(&data);
  data.postype = AXOVERLAY_CUSTOM_NORMALIZED;
  data.anchor_point = AXOVERLAY_ANCHOR_TOP_LEFT;
  data.width = width;
  data.height = height;
  data.colorspace = AXOVERLAY_COLORSPACE_ARGB32;
  GError* raw = nullptr;
  const gint id = axoverlay_create_overlay(&data, &g_OverlayInfo, &raw);
  if (const Error error(raw); error) {
    syslog(LOG_ERR, "OverlayManager::createOverlayFindings failed to create overlay: %s", error->message);
    return 0;
  }
  return id;
}

bool OverlayManager::renderFindings() const {
  if (!m_isOpen) {
    return false;
  }
  const Error error = errorOf(axoverlay_redraw);
  if (error) {
    syslog(LOG_ERR, "OverlayManager::renderFindings Failed to redraw overlay (%d): %s", error->code, error->message);
  }
  return !error;
}

void OverlayManager::adjustmentCallback(gint /*id*/, axoverlay_stream_data* stream,
                                        axoverlay_position_type* /*postype*/, gfloat* /*overlay_x*/,
                                        gfloat* /*overlay_y*/, gint* overlay_width, gint* overlay_height,
                                        gpointer /*user_data*/) {
  *overlay_width = stream->width;
  *overlay_height = stream->height;
  if (stream->rotation == 90 || stream->rotation == 270) {
    std::swap(*overlay_width, *overlay_height);
  }
}

gboolean OverlayManager::selectStreamCallback(gint /*camera*/, gint /*width*/, gint /*height*/, gint /*rotation*/,
                                              gboolean /*is_mirrored*/, axoverlay_stream_type /*type*/) {
  return TRUE;  // what is drawn is chosen while rendering
}

std::set<Resolution> OverlayManager::getCameraResolutions() {
  GError* raw = nullptr;
  const GLibPtr<GList> channels(vdo_channel_get_all(&raw));
  const Error error(raw);
  std::set<Resolution> resolutions;
  if (!channels) {
    syslog(LOG_INFO, "getCameraResolutions: Failed to get all channels.");
    return resolutions;
  }
  syslog(LOG_INFO, "getCameraResolutions: Successfully got all channels.");
  for (const GList* item = channels.get(); item != nullptr; item = item->next) {
    addResolutions(static_cast<VdoChannel*>(item->data), resolutions);
  }
  return resolutions;
}

std::string OverlayManager::getCamerasResolutionsAsCsv() {
  std::string csv;
  for (const Resolution& size : getCameraResolutions()) {
    csv += toString(size) + ",";
  }
  return csv;
}

void OverlayManager::SetOverlayStreamResolution(unsigned int width, unsigned int height) {
  g_OverlayInfo.overlayStreamWidth = width;
  g_OverlayInfo.overlayStreamHeight = height;
}

void OverlayManager::SetAnonymizedStreamResolution(unsigned int width, unsigned int height) {
  g_OverlayInfo.anonymizedStreamWidth = width;
  g_OverlayInfo.anonymizedStreamHeight = height;
}

void OverlayManager::SetOverlayStreamResolutionFromString(const std::string& text) {
  const auto [width, height] = streamSizeFrom(text);
  SetOverlayStreamResolution(width, height);
}

void OverlayManager::SetAnonymizedStreamResolutionFromString(const std::string& text) {
  const auto [width, height] = streamSizeFrom(text);
  SetAnonymizedStreamResolution(width, height);
}
