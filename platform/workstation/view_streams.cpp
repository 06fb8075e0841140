#include "platform/workstation/view_streams.h"

#include <string>

#include "platform/workstation/camera_description.h"

namespace workstation {
namespace {

constexpr const char* kAppearanceGroup = "root.Image.I0.Appearance";

std::string valueOf(const HttpQuery& query, std::string_view key) {
  const auto found = query.find(key);
  return found == query.end() ? "" : found->second;
}

/// How the viewers' streams are turned, as lines "name=value".
void listAppearance(SoupServerMessage* message, const HttpQuery& query) {
  if (valueOf(query, "action") != "list" || valueOf(query, "group") != kAppearanceGroup) {
    return answerLine(message, SOUP_STATUS_BAD_REQUEST,
                      std::string("offered is action=list&group=") + kAppearanceGroup + " only");
  }
  const CameraDescription& camera = startedCamera();
  const std::string group = kAppearanceGroup;
  answerLine(message, SOUP_STATUS_OK,
             group + ".Rotation=" + std::to_string(camera.rotation) + "\n" + group +
                 ".MirrorEnabled=" + (camera.mirrored ? "yes" : "no"));
}

}  // namespace

class ViewStreams::Implementation {};

ViewStreams::ViewStreams(HttpServer& server) { server.addEndpoint("/axis-cgi/param.cgi", listAppearance); }

ViewStreams::~ViewStreams() = default;

}  // namespace workstation
