// What viewers see: MJPEG streams and JPEG snapshots of every size that the camera offers, with the overlays on them.
#pragma once

#include <memory>

#include "platform/workstation/web/http_server.h"

namespace workstation {

/// The streams of the camera that the program has opened, as addresses of a web server. Encodes only what is watched.
class ViewStreams {
 public:
  /// Adds the streams' addresses; before the server listens.
  explicit ViewStreams(HttpServer& server);
  /// After the server's thread has ended.
  ~ViewStreams();
  ViewStreams(const ViewStreams&) = delete;
  ViewStreams& operator=(const ViewStreams&) = delete;

 private:
  class Implementation;
  std::unique_ptr<Implementation> m_implementation;
};

}  // namespace workstation
