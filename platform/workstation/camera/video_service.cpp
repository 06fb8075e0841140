// The camera's video service on a workstation: streams, settings and buffers over one shared decoder.
#include "platform/workstation/camera/video_service.h"

#include <syslog.h>
#include <vdostream.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/camera/cycle_frames.h"
#include "platform/workstation/camera/takeover.h"
#include "platform/workstation/decoding/nv12_picture.h"
#include "platform/workstation/decoding/video_camera.h"
#include "platform/workstation/sight/sight_watch.h"

using workstation::CameraDescription;
using workstation::CycleFrames;
using workstation::DecodedFrame;
using workstation::VideoCamera;
using workstation::WatchedCamera;

namespace {

using Picture = PictureBytes;

struct StreamState {
  std::shared_ptr<VideoCamera> camera;
  StreamSize size;
  std::uint32_t rotation = 0;
  VdoBufferFinalizer finalizer = nullptr;
  bool started = false;
  std::shared_ptr<const DecodedFrame> frame;  // the one that `picture` was made of
  std::shared_ptr<Picture> picture;
};

}  // namespace

struct _VdoMap {
  GObject parent_instance;
  std::map<std::string, guint32> values;
};
struct VdoMapClass {
  GObjectClass parent_class;
};
struct _VdoStream {
  GObject parent_instance;
  StreamState state;
};
struct VdoStreamClass {
  GObjectClass parent_class;
};
struct _VdoChannel {
  GObject parent_instance;
};
struct VdoChannelClass {
  GObjectClass parent_class;
};
struct _VdoBuffer {
  GObject parent_instance;
  std::shared_ptr<Picture> picture;
  VdoBufferFinalizer finalizer;
};
struct VdoBufferClass {
  GObjectClass parent_class;
};

G_DEFINE_TYPE(VdoMap, vdo_map, G_TYPE_OBJECT)
G_DEFINE_TYPE(VdoStream, vdo_stream, G_TYPE_OBJECT)
G_DEFINE_TYPE(VdoBuffer, vdo_buffer, G_TYPE_OBJECT)
G_DEFINE_TYPE(VdoChannel, vdo_channel, G_TYPE_OBJECT)

// GObject hands out zeroed memory; the C++ members in it are built and taken down by hand.

static void vdo_map_init(VdoMap* self) { std::construct_at(&self->values); }
static void vdo_map_finalize(GObject* object) {
  std::destroy_at(&reinterpret_cast<VdoMap*>(object)->values);
  G_OBJECT_CLASS(vdo_map_parent_class)->finalize(object);
}
static void vdo_map_class_init(VdoMapClass* klass) { G_OBJECT_CLASS(klass)->finalize = vdo_map_finalize; }

static void vdo_stream_init(VdoStream* self) { std::construct_at(&self->state); }
static void vdo_stream_finalize(GObject* object) {
  std::destroy_at(&reinterpret_cast<VdoStream*>(object)->state);
  G_OBJECT_CLASS(vdo_stream_parent_class)->finalize(object);
}
static void vdo_stream_class_init(VdoStreamClass* klass) { G_OBJECT_CLASS(klass)->finalize = vdo_stream_finalize; }

static void vdo_buffer_init(VdoBuffer* self) { std::construct_at(&self->picture); }
static void vdo_buffer_finalize(GObject* object) {
  auto* self = reinterpret_cast<VdoBuffer*>(object);
  if (self->finalizer != nullptr) self->finalizer(self);
  std::destroy_at(&self->picture);
  G_OBJECT_CLASS(vdo_buffer_parent_class)->finalize(object);
}
static void vdo_buffer_class_init(VdoBufferClass* klass) { G_OBJECT_CLASS(klass)->finalize = vdo_buffer_finalize; }

// A channel needs no state: the camera has one only.
static void vdo_channel_init(VdoChannel* /*self*/) {}
static void vdo_channel_class_init(VdoChannelClass* /*klass*/) {}

namespace {

void setError(GError** error, const char* message) {
  g_set_error_literal(error, g_quark_from_static_string("vdo-error"), 0, message);
}

/// The camera that all streams share; closed with the last of them.
struct Opened {
  std::mutex mutex;
  std::map<const CameraDescription*, std::weak_ptr<WatchedCamera>> cameras;
};

Opened& opened() {
  static auto& the_opened = *new Opened;  // never destroyed: streams may be released after main
  return the_opened;
}

std::shared_ptr<VideoCamera> sharedCamera(const CameraDescription& description) {
  const std::scoped_lock lock(opened().mutex);
  auto& known = opened().cameras[&description];
  auto camera = known.lock();
  if (!camera) {
    camera = std::make_shared<WatchedCamera>(description);
    known = camera;
  }
  return camera;
}

CycleFrames& cycleFrames() {
  static auto& frames = *new CycleFrames;  // never destroyed: see above
  return frames;
}

struct Failures {
  std::mutex mutex;
  workstation::CycleFailures so_far;
};

Failures& failures() {
  static auto& the_failures = *new Failures;  // never destroyed: see above
  return the_failures;
}

void noteFailure(const char* why) {
  const std::scoped_lock lock(failures().mutex);
  ++failures().so_far.count;
  failures().so_far.last = why;
}

/// Of a cycle's frame it is found out on the side whether it shows the room.
void lookWhetherItSees(const std::shared_ptr<const DecodedFrame>& frame) try {
  workstation::SightWatch* const sight = workstation::sightWatch();
  if (sight == nullptr) return;
  std::optional<std::chrono::nanoseconds> captured;
  if (const auto stated = frame->statedTime()) captured = stated->time_since_epoch();
  sight->look({frame, workstation::startedCamera().rotation, {frame->taken(), captured}});
} catch (const std::exception& error) {
  syslog(LOG_ERR, "whether the camera sees is not known: %s", error.what());  // the cycle goes on
}

/// The frame that the program's streams show now. A cycle that gets none has failed.
std::shared_ptr<const DecodedFrame> programsFrame(VideoCamera& camera) {
  const auto newest = [&camera] {
    auto frame = camera.frameAt(ticker_clock::now());
    if (!frame) throw std::runtime_error("the camera gives no picture");
    return frame;
  };
  const std::uint64_t cycle = ticker_clock::currentTick();
  try {
    bool is_first = false;
    auto frame = cycleFrames().take(cycle, [&] {
      is_first = cycle != 0;
      return newest();
    });
    if (is_first) lookWhetherItSees(frame);
    if (cycleFrames().hasFailed()) noteFailure("The last picture could not be analysed.");
    return frame;
  } catch (const std::exception&) {
    if (cycle != 0) noteFailure("The camera gives no picture.");
    throw;
  }
}

void checkSize(const CameraDescription& description, StreamSize wanted) {
  std::string offered;
  for (const StreamSize size : description.stream_sizes) {
    if (size == wanted) return;
    offered += (offered.empty() ? "" : ", ") + toString(size);
  }
  throw std::runtime_error("the camera offers no stream of " + toString(wanted) + "; it offers " + offered);
}

StreamState openStream(const VdoMap* settings, VdoBufferFinalizer finalizer) {
  if (vdo_map_get_uint32(settings, "channel", 1) != 1) throw std::runtime_error("the camera has channel 1 only");
  if (vdo_map_get_uint32(settings, "format", VDO_FORMAT_YUV) != VDO_FORMAT_YUV) {
    throw std::runtime_error("the camera delivers format 3 (NV12) only");
  }
  const CameraDescription& description = workstation::startedCamera();
  StreamState state;
  state.size = {vdo_map_get_uint32(settings, "width", 0), vdo_map_get_uint32(settings, "height", 0)};
  state.rotation = vdo_map_get_uint32(settings, "rotation", 0);
  state.finalizer = finalizer;
  checkSize(description, state.size);
  if (state.rotation % 90 != 0 || state.rotation > 270) {
    throw std::runtime_error("the rotation of a stream is 0, 90, 180 or 270");
  }
  state.camera = sharedCamera(description);
  return state;
}

/// The stream's picture of the camera's frame; made once however often it is asked for.
std::shared_ptr<Picture> currentPicture(StreamState& state) {
  auto frame = programsFrame(*state.camera);
  if (frame != state.frame) {
    state.frame.reset();
    state.picture.reset();  // first: the new one takes its memory
    state.picture = std::make_shared<Picture>(toNv12(frame->view(), state.size, state.rotation));
    state.frame = std::move(frame);
  }
  return state.picture;
}

}  // namespace

std::shared_ptr<WatchedCamera> workstation::openedCamera() {
  const CameraDescription& description = startedCamera();
  const std::scoped_lock lock(opened().mutex);
  const auto known = opened().cameras.find(&description);
  return known == opened().cameras.end() ? nullptr : known->second.lock();
}

std::shared_ptr<const DecodedFrame> workstation::newestFrame() {
  const auto camera = openedCamera();
  return camera ? camera->frameAt(ticker_clock::now()) : nullptr;
}

workstation::CycleFailures workstation::cycleFailures() {
  const std::scoped_lock lock(failures().mutex);
  return failures().so_far;
}

CycleFrames::Frame workstation::drawnFrame() { return cycleFrames().draw(ticker_clock::currentTick()); }

VdoMap* vdo_map_new() { return static_cast<VdoMap*>(g_object_new(vdo_map_get_type(), nullptr)); }

void vdo_map_set_uint32(VdoMap* self, const gchar* name, guint32 value) { self->values[name] = value; }

guint32 vdo_map_get_uint32(const VdoMap* self, const gchar* name, guint32 fallback) {
  const auto entry = self->values.find(name);
  return entry == self->values.end() ? fallback : entry->second;
}

GList* vdo_channel_get_all(GError** error) try {
  workstation::startedCamera();
  return g_list_append(nullptr, g_object_new(vdo_channel_get_type(), nullptr));
} catch (const std::exception& problem) {
  setError(error, problem.what());
  return nullptr;
}

VdoResolutionSet* vdo_channel_get_resolutions(VdoChannel* /*self*/, VdoMap* /*filter*/, GError** error) try {
  const auto& sizes = workstation::startedCamera().stream_sizes;
  const std::size_t bytes = sizeof(VdoResolutionSet) + sizes.size() * sizeof(VdoResolution);
  auto* const set = static_cast<VdoResolutionSet*>(g_malloc0(bytes));
  set->count = sizes.size();
  std::transform(sizes.begin(), sizes.end(), set->resolutions, [](StreamSize size) {
    return VdoResolution{size.width, size.height};
  });
  return set;
} catch (const std::exception& problem) {
  setError(error, problem.what());
  return nullptr;
}

VdoStream* vdo_stream_new(VdoMap* settings, VdoBufferFinalizer finalizer, GError** error) try {
  StreamState state = openStream(settings, finalizer);
  auto* self = static_cast<VdoStream*>(g_object_new(vdo_stream_get_type(), nullptr));
  self->state = std::move(state);
  return self;
} catch (const std::exception& problem) {
  setError(error, problem.what());
  return nullptr;
}

gboolean vdo_stream_attach(VdoStream* /*self*/, VdoMap* /*settings*/, GError** /*error*/) { return TRUE; }

VdoMap* vdo_stream_get_settings(VdoStream* self, GError** /*error*/) {
  VdoMap* settings = vdo_map_new();
  vdo_map_set_uint32(settings, "width", self->state.size.width);
  vdo_map_set_uint32(settings, "height", self->state.size.height);
  vdo_map_set_uint32(settings, "rotation", self->state.rotation);
  vdo_map_set_uint32(settings, "framerate", self->state.camera->framerate());
  return settings;
}

gboolean vdo_stream_start(VdoStream* self, GError** /*error*/) {
  self->state.started = true;
  return TRUE;
}

VdoBuffer* vdo_stream_get_buffer(VdoStream* self, GError** error) try {
  if (!self->state.started) throw std::runtime_error("the stream has not been started");
  auto picture = currentPicture(self->state);
  auto* buffer = static_cast<VdoBuffer*>(g_object_new(vdo_buffer_get_type(), nullptr));
  buffer->picture = std::move(picture);
  buffer->finalizer = self->state.finalizer;
  return buffer;
} catch (const std::exception& problem) {
  setError(error, problem.what());
  return nullptr;
}

gpointer vdo_buffer_get_data(VdoBuffer* self) { return self->picture->data(); }

gboolean vdo_stream_buffer_unref(VdoStream* /*self*/, VdoBuffer** buffer, GError** error) {
  if (buffer == nullptr || *buffer == nullptr) {
    setError(error, "there is no buffer to hand back");
    return FALSE;
  }
  g_clear_object(buffer);
  return TRUE;
}
