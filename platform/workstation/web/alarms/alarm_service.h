// Alarms on the page: what calls, who has answered, and what is set for calls.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "platform/workstation/alarms/alarm_desk.h"
#include "platform/workstation/outside/post_office.h"
#include "platform/workstation/web/feed_viewers.h"
#include "platform/workstation/web/http_server.h"

namespace workstation {

struct AlarmServiceSettings {
  FeedLimits feed{kMostPages, 16 << 20};     ///< all of a thousand alarms with many answers
  std::chrono::milliseconds patience{2000};  ///< for the disk; then the request is answered without it
  /// Who has changed what is set for calls, from what to what; without secrets.
  std::function<void(const std::string& by, const std::string& from, const std::string& to)> note = {};
};

/// The addresses /platform/alarms, /platform/alarms/feed and /platform/calls (docs/http.md).
class AlarmService {
 public:
  /// Adds the addresses; before the server listens. All three outlive the service.
  AlarmService(HttpServer& server, AlarmDesk& desk, const PostOffice& post, AlarmServiceSettings settings = {});
  /// After the server has stopped.
  ~AlarmService();
  AlarmService(const AlarmService&) = delete;
  AlarmService& operator=(const AlarmService&) = delete;

  class Implementation;

 private:
  std::unique_ptr<Implementation> m_implementation;
};

}  // namespace workstation
