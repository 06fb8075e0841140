#include "platform/workstation/web/sight_service.h"

#include <exception>
#include <string>

#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/parameters/changes.h"
#include "platform/workstation/sight/sight_watch.h"
#include "platform/workstation/views/sight_picture.h"
#include "platform/workstation/web/access/visitor.h"

namespace workstation {
namespace {

constexpr const char* kPath = "/platform/sight";

std::string valueOf(const HttpQuery& query, const std::string& key) {
  const auto found = query.find(key);
  return found == query.end() ? "" : found->second;
}

void answerPicture(SoupServerMessage* message, const HttpQuery& query) {
  const auto shown = sightShownFrom(valueOf(query, "show"));
  if (!shown) return answerLine(message, SOUP_STATUS_BAD_REQUEST, "show is one of then, now, both");
  const SightWatch* const sight = sightWatch();
  if (sight == nullptr) return answerLine(message, SOUP_STATUS_SERVICE_UNAVAILABLE, "Nobody looks whether it sees.");
  try {
    const CameraDescription& camera = startedCamera();
    const std::string jpeg = toJpeg(
        sightPicture(sight->pictures(), *shown, query.contains("anonymised"), {camera.rotation, camera.mirrored}));
    soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
    soup_server_message_set_response(message, "image/jpeg", SOUP_MEMORY_COPY, jpeg.data(), jpeg.size());
  } catch (const std::exception& error) {
    answerLine(message, SOUP_STATUS_INTERNAL_SERVER_ERROR, error.what());
  }
}

void accept(SoupServerMessage* message, const ProgramRequest& request) {
  SightWatch* const sight = sightWatch();
  if (!request.parameters || valueOf(*request.parameters, "action") != "accept" || sight == nullptr) {
    return answerLine(message, SOUP_STATUS_BAD_REQUEST, "action is accept");
  }
  sight->accept();
  noteChange(visitorOf(message).name, "camera.view", "", "accepted");
  answerLine(message, SOUP_STATUS_OK, "The room as it is seen now counts from now on.");
}

}  // namespace

void addSight(HttpServer& server) {
  server.addEndpoint(kPath, answerPicture);
  server.addForm(kPath, accept);
}

}  // namespace workstation
