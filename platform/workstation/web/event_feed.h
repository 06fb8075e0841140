// Server-sent events: who watches a page learns at once what begins and ends, on connecting what is active and what has
// been, and every second that the program lives and how well. Numbers belong to the run.
//
// event: state
// data: {"time": "2026-03-01T12:00:31.500Z", "run": "9f2c41d07b3e5a18", "seq": 7,
//        "events": [{"name": "Fall Detected", "active": true, "since": "2026-03-01T12:00:30.000Z" or null, "seq": 7}],
//        "history": [{"seq": 7, "run": "9f2c41d07b3e5a18", "name": "Fall Detected", "active": true,
//                     "time": "2026-03-01T12:00:30.000Z"}],          an end by a restart has "closed_at_start": true
//        "watching": [{"active": true, "time": "2026-03-01T11:58:00.000Z"}]}                          (in one line)
//                                                                      an end by a trouble has its name as "why"
//
// id: 8
// event: change
// data: {"seq": 8, "run": "9f2c41d07b3e5a18", "name": "Fall Detected", "active": false, "time": "..."}
//
// event: watching                                                  (as a change, without a name)
// event: heartbeat                                                 (docs/http.md)
#pragma once

#include <cstddef>
#include <memory>

#include "platform/workstation/web/http_server.h"

namespace workstation {

struct EventFeedLimits {
  size_t changes = 2000;          ///< of the last 12 hours, in the history
  size_t viewers = kMostPages;    ///< at once
  size_t unsent_bytes = 1 << 20;  ///< for one viewer; who leaves more unread is dropped. A whole state takes less
};

/// The feed of the process's events as the address /platform/events; one at a time.
class EventFeed {
 public:
  /// Adds the address; before the server listens.
  explicit EventFeed(HttpServer& server, const EventFeedLimits& limits = {});
  /// After the server has stopped.
  ~EventFeed();
  EventFeed(const EventFeed&) = delete;
  EventFeed& operator=(const EventFeed&) = delete;

  class Implementation;

 private:
  std::unique_ptr<Implementation> m_implementation;
};

}  // namespace workstation
