#include "platform/workstation/launcher/launch_media.h"

#include <gst/pbutils/pbutils.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <system_error>

#include "platform/support/owners.h"
#include "platform/workstation/decoding/video_source.h"

namespace workstation {
namespace {

constexpr GstClockTime kPatience = 10 * GST_SECOND;

std::string uriOf(const std::string& source) {
  if (isUri(source)) {
    return source;
  }
  const GLibPtr<gchar> uri(gst_filename_to_uri(source.c_str(), nullptr));
  return uri ? uri.get() : "";
}

bool hasMovingPicture(GstDiscovererInfo* info) {
  GList* streams = gst_discoverer_info_get_video_streams(info);
  bool found = false;
  for (GList* stream = streams; stream != nullptr; stream = stream->next) {
    found = found || gst_discoverer_video_info_is_image(GST_DISCOVERER_VIDEO_INFO(stream->data)) == FALSE;
  }
  gst_discoverer_stream_info_list_free(streams);
  return found;
}

/// GStreamer's words in one line.
std::string reasonOf(const CaughtError& error) {
  std::string reason = error.text();
  std::replace(reason.begin(), reason.end(), '\n', ' ');
  return withoutSecrets(reason);
}

/// Whether there is anything here that speaks the URI's language.
bool isSpoken(const std::string& uri) {
  const GLibPtr<gchar> protocol(gst_uri_get_protocol(uri.c_str()));
  return protocol && gst_uri_protocol_is_supported(GST_URI_SRC, protocol.get()) != FALSE;
}

/// Plays a moment of the source.
std::string playProblem(const std::string& source) {
  const std::string name = withoutSecrets(source);
  CaughtError error;
  const GLibPtr<GstDiscoverer> discoverer(gst_discoverer_new(kPatience, error.out()));
  const GLibPtr<GstDiscovererInfo> info(
      discoverer ? gst_discoverer_discover_uri(discoverer.get(), uriOf(source).c_str(), error.out()) : nullptr);
  if (!info) {
    return name + ": cannot be played: " + reasonOf(error);
  }
  switch (gst_discoverer_info_get_result(info.get())) {
    case GST_DISCOVERER_OK:
      return hasMovingPicture(info.get()) ? "" : name + ": holds no video";
    case GST_DISCOVERER_MISSING_PLUGINS:
      return name + ": cannot be played: a decoder for it is not installed";
    case GST_DISCOVERER_TIMEOUT:
      return name + ": cannot be played: no picture within 10 seconds";
    default:
      return name + ": is not a video that can be played: " + reasonOf(error);
  }
}

}  // namespace

std::string videoProblem(const std::string& source, bool replay) {
  gst_init(nullptr, nullptr);
  const SourceKind kind = kindOf(source);
  if (kind == SourceKind::kStream && !isSpoken(source)) {
    return withoutSecrets(source) + ": this kind of address cannot be played; one that can is rtsp://HOST/PATH";
  }
  if (kind == SourceKind::kFile) {
    if (const std::string problem = fileProblem(localPath(source)); !problem.empty()) {
      return source + ": " + problem;
    }
  }
  if (kind == SourceKind::kPipe && replay) {
    return source + ": is a FIFO; a replay needs a file";
  }
  return replay || kind == SourceKind::kFile ? playProblem(source) : "";
}

}  // namespace workstation
