// Cameras on the page: an installer tries an address, sees what it shows, and takes it over while the program watches;
// and says which lens and sensor it has.
#pragma once

#include <chrono>
#include <filesystem>

#include "platform/workstation/web/http_server.h"

namespace workstation {

struct CameraServiceSettings {
  std::filesystem::path checker;      ///< the program velmor_camera
  std::chrono::seconds patience{25};  ///< for it; then it is killed
  std::chrono::minutes good{10};      ///< a check is taken over for so long
};

/// Adds the addresses /platform/camera and /platform/camera/picture (docs/http.md); before the server listens. Sources
/// are tried by a process of its own, so that neither alarms nor pictures wait for them.
void addCamera(HttpServer& server, const CameraServiceSettings& settings);

}  // namespace workstation
