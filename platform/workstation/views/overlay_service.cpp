// The camera's overlay service on a workstation: overlays are drawn on the program's main loop, as pictures of their
// own that other threads lay over the streams.
#include "platform/workstation/views/overlay_service.h"

#include <axoverlay.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/workstation/camera/video_service.h"
#include "platform/workstation/system/health.h"
#include "platform/workstation/views/cairo_owners.h"
#include "platform/workstation/views/own_view.h"
#include "platform/workstation/views/stream_choice.h"

namespace workstation {
namespace {

constexpr gint kCamera = 1;
constexpr gint kLongestSide = 8192;

using OverlayPtr = std::shared_ptr<const BgraPicture>;

struct SizeOrder {
  bool operator()(StreamSize a, StreamSize b) const {
    return std::pair(a.width, a.height) < std::pair(b.width, b.height);
  }
};

struct Overlay {
  axoverlay_overlay_data data;
  gpointer user_data;
};

/// The main loop's thread alone.
struct Service {
  std::optional<axoverlay_settings> settings;
  std::map<gint, Overlay> overlays;
  gint last_id = 0;
};

Service& service() {
  static auto& the_service = *new Service;  // never destroyed: overlays may be released after main
  return the_service;
}

/// Shared with the threads that show the streams.
struct Watched {
  struct Stream {
    int watchers = 0;
    OverlayPtr newest;
  };
  std::mutex mutex;
  std::map<StreamSize, Stream, SizeOrder> streams;
};

Watched& watched() {
  static auto& the_watched = *new Watched;  // never destroyed: see above
  return the_watched;
}

axoverlay_stream_data describe(const CameraDescription& camera, StreamSize size) {
  const auto place = std::find(camera.stream_sizes.begin(), camera.stream_sizes.end(), size);
  return {static_cast<gint>(place - camera.stream_sizes.begin()) + 1,
          kCamera,
          static_cast<gint>(size.width),
          static_cast<gint>(size.height),
          static_cast<gint>(camera.rotation),
          camera.mirrored ? TRUE : FALSE,
          AXOVERLAY_STREAM_JPEG};
}

/// The place of an overlay's left or top edge: from -1 to 1 across the stream, and moved inside where it fits.
gint edgeOf(gfloat position, gint length, gint of, bool centred) {
  const double wanted = std::floor((static_cast<double>(position) + 1) / 2 * of) - (centred ? length / 2.0 : 0.0);
  return static_cast<gint>(std::clamp(wanted, 0.0, static_cast<double>(std::max(of - length, 0))));
}

void drawOverlay(cairo_surface_t* surface, const BgraPicture& picture, gint id, const Overlay& overlay,
                 axoverlay_stream_data stream) {
  const axoverlay_settings& settings = *service().settings;
  axoverlay_overlay_data data = overlay.data;
  if (settings.adjustment_callback != nullptr) {
    settings.adjustment_callback(id, &stream, &data.postype, &data.x, &data.y, &data.width, &data.height,
                                 overlay.user_data);
  }
  if (data.width < 1 || data.height < 1 || data.width > kLongestSide || data.height > kLongestSide) {
    throw std::runtime_error("an overlay of " + std::to_string(data.width) + "x" + std::to_string(data.height) +
                             " cannot be drawn; allowed are sides from 1 to " + std::to_string(kLongestSide));
  }
  const bool centred = data.anchor_point == AXOVERLAY_ANCHOR_CENTER;
  const CairoContext cairo(cairo_create(surface));
  cairo_translate(cairo.get(), edgeOf(data.x, data.width, picture.width, centred),
                  edgeOf(data.y, data.height, picture.height, centred));
  cairo_rectangle(cairo.get(), 0, 0, data.width, data.height);
  cairo_clip(cairo.get());
  settings.render_callback(cairo.get(), id, &stream, data.postype, data.x, data.y, data.width, data.height,
                           overlay.user_data);
  if (const cairo_status_t status = cairo_status(cairo.get()); status != CAIRO_STATUS_SUCCESS) {
    throw std::runtime_error(std::string("an overlay could not be drawn: ") + cairo_status_to_string(status));
  }
}

/// All overlays of a stream on a transparent picture; nothing when none of them is for it.
OverlayPtr drawStream(const CameraDescription& camera, StreamSize size) {
  const StreamSize shown = shownSize(size, camera.rotation);
  const auto picture = std::make_shared<BgraPicture>(static_cast<int>(shown.width), static_cast<int>(shown.height));
  const CairoSurface surface(cairo_image_surface_create_for_data(picture->bytes.data(), CAIRO_FORMAT_ARGB32,
                                                                 picture->width, picture->height, picture->stride()));
  const axoverlay_settings& settings = *service().settings;
  bool drawn = false;
  for (const auto& [id, overlay] : service().overlays) {
    const axoverlay_stream_data stream = describe(camera, size);
    if (settings.select_callback != nullptr &&
        settings.select_callback(stream.camera, stream.width, stream.height, stream.rotation, stream.mirrored,
                                 stream.type) == FALSE) {
      continue;
    }
    drawOverlay(surface.get(), *picture, id, overlay, stream);
    drawn = true;
  }
  cairo_surface_flush(surface.get());
  return drawn ? picture : nullptr;
}

bool isOffered(const CameraDescription& camera, StreamSize size) {
  return std::find(camera.stream_sizes.begin(), camera.stream_sizes.end(), size) != camera.stream_sizes.end();
}

std::vector<StreamSize> watchedSizes() {
  const std::scoped_lock lock(watched().mutex);
  std::vector<StreamSize> sizes;
  for (const auto& [size, stream] : watched().streams) sizes.push_back(size);
  return sizes;
}

void publish(StreamSize size, OverlayPtr overlay) {
  const std::scoped_lock lock(watched().mutex);
  const auto stream = watched().streams.find(size);
  if (stream != watched().streams.end()) stream->second.newest = std::move(overlay);
}

/// The anonymised stream's overlay never leaves the picture that it belongs to.
void drawWatched(const CameraDescription& camera, StreamSize size) {
  const bool anonymised = size == currentStreamChoice().anonymised;
  publish(size, anonymised ? nullptr : drawStream(camera, size));
}

void drawAnonymised(const CameraDescription& camera, const CycleFrames::Frame& frame) {
  const StreamChoice choice = currentStreamChoice();
  if (!choice.anonymised || !isOffered(camera, *choice.anonymised)) return;
  anonymisedView().show({frame, drawStream(camera, *choice.anonymised)}, choice, AnonymisedView::Clock::now());
}

/// The program's own stream has findings on it whatever is chosen.
void drawOwn(const CameraDescription& camera, const CycleFrames::Frame& frame) {
  if (!ownView().isWatched()) return;
  ownView().draw(frame, drawStream(camera, kApplicationStream), ticker_clock::currentTick());
}

void drawCycle(const CameraDescription& camera) {
  const CycleFrames::Frame frame = drawnFrame();
  if (!frame) return;  // between cycles
  noteCompleteCycle(ticker_clock::currentTick(), frame->captured().time, frame->captured().is_known);
  drawAnonymised(camera, frame);
  drawOwn(camera, frame);
}

void drawAll() {
  if (!service().settings) throw std::runtime_error("the overlays have not been initialised");
  const CameraDescription& camera = startedCamera();
  try {
    drawCycle(camera);
  } catch (...) {
    anonymisedView().drop();
    ownView().drop();
    throw;
  }
  for (const StreamSize size : watchedSizes()) drawWatched(camera, size);
}

/// For a viewer who has just come: what the last cycle found, on the main loop.
gboolean drawForNewcomer(gpointer data) {
  const std::unique_ptr<StreamSize> size(static_cast<StreamSize*>(data));
  if (!service().settings) return G_SOURCE_REMOVE;
  try {
    drawWatched(startedCamera(), *size);
  } catch (const std::exception&) {
    publish(*size, nullptr);  // the next redraw tells the program
  }
  return G_SOURCE_REMOVE;
}

void setError(GError** error, const char* message) {
  g_set_error_literal(error, g_quark_from_static_string("axoverlay-error"), 0, message);
}

gint largestSide(gint camera, std::uint32_t StreamSize::*side, GError** error) try {
  if (camera != kCamera) throw std::runtime_error("the only camera is 1");
  const auto& sizes = startedCamera().stream_sizes;
  const auto less = [side](StreamSize a, StreamSize b) { return a.*side < b.*side; };
  return static_cast<gint>(*std::max_element(sizes.begin(), sizes.end(), less).*side);
} catch (const std::exception& problem) {
  setError(error, problem.what());
  return 0;
}

}  // namespace

WatchedOverlay::WatchedOverlay(StreamSize size) : m_size(size) {
  bool is_first = false;
  {
    const std::scoped_lock lock(watched().mutex);
    is_first = watched().streams[size].watchers++ == 0;
  }
  if (is_first) g_idle_add(drawForNewcomer, std::make_unique<StreamSize>(size).release());
}

WatchedOverlay::~WatchedOverlay() {
  const std::scoped_lock lock(watched().mutex);
  const auto stream = watched().streams.find(m_size);
  if (--stream->second.watchers == 0) watched().streams.erase(stream);
}

OverlayPtr WatchedOverlay::newest() const {
  const std::scoped_lock lock(watched().mutex);
  return watched().streams.at(m_size).newest;
}

AnonymisedView& anonymisedView() {
  static auto& view = *new AnonymisedView;  // never destroyed: threads may ask until the process ends
  return view;
}

}  // namespace workstation

using workstation::service;

gboolean axoverlay_is_backend_supported(enum axoverlay_backend_type backend) {
  return backend == AXOVERLAY_CAIRO_IMAGE_BACKEND ? TRUE : FALSE;
}

void axoverlay_init_axoverlay_settings(struct axoverlay_settings* settings) { *settings = {}; }

void axoverlay_init_overlay_data(struct axoverlay_overlay_data* data) { *data = {}; }

void axoverlay_init(struct axoverlay_settings* settings, GError** error) {
  if (settings == nullptr || settings->render_callback == nullptr) {
    return workstation::setError(error, "overlays need settings with a render callback");
  }
  if (axoverlay_is_backend_supported(settings->backend) == FALSE) {
    return workstation::setError(error, "the only backend is the cairo image backend");
  }
  service().settings = *settings;
}

void axoverlay_cleanup(void) {
  service().settings.reset();
  service().overlays.clear();
}

gint axoverlay_get_max_resolution_width(gint camera, GError** error) {
  return workstation::largestSide(camera, &StreamSize::width, error);
}

gint axoverlay_get_max_resolution_height(gint camera, GError** error) {
  return workstation::largestSide(camera, &StreamSize::height, error);
}

gint axoverlay_create_overlay(struct axoverlay_overlay_data* data, gpointer user_data, GError** error) {
  if (!service().settings || data == nullptr) {
    workstation::setError(error, "an overlay needs data, and overlays that have been initialised");
    return 0;
  }
  service().overlays.insert_or_assign(++service().last_id, workstation::Overlay{*data, user_data});
  return service().last_id;
}

void axoverlay_destroy_overlay(gint id, GError** error) {
  if (service().overlays.erase(id) == 0) {
    workstation::setError(error, ("there is no overlay " + std::to_string(id)).c_str());
  }
}

void axoverlay_redraw(GError** error) try { workstation::drawAll(); } catch (const std::exception& problem) {
  workstation::setError(error, problem.what());
}
