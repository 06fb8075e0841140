// Server-sent events of the journal: who watches a page learns at once what begins and ends, and on connecting what is
// active and what has been.
//
// event: state
// data: {"time": "2026-03-01T12:00:31.500Z", "seq": 7, "events": [{"name": "Fall Detected", "active": true,
//        "since": "2026-03-01T12:00:30.000Z" or null, "seq": 7}], "history": [{"seq": 7, "name": "Fall Detected",
//        "active": true, "time": "2026-03-01T12:00:30.000Z"}]}           (in one line)
//
// id: 8
// event: change
// data: {"seq": 8, "name": "Fall Detected", "active": false, "time": "2026-03-01T12:00:40.000Z"}
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>

#include "platform/workstation/event_journal.h"
#include "platform/workstation/http_server.h"

namespace workstation {

/// A journal begins: nothing is declared yet, and `last` is the last number in it.
void resetEvents(std::uint64_t last);

/// A record is in the journal under this number: the feed, if there is one, passes it on. From any thread, in the
/// order of the numbers.
void publishEvent(std::uint64_t number, const EventRecord& record);

struct EventFeedLimits {
  size_t changes = 2000;          ///< of the last 12 hours, in the history
  size_t viewers = 16;            ///< at once
  size_t unsent_bytes = 1 << 20;  ///< for one viewer; who leaves more unread is dropped. A whole state takes less
};

/// The feed of the process's events as the address /platform/events; one at a time.
class EventFeed {
 public:
  /// Adds the address; before the server listens. `journal` is the file, which need not exist.
  EventFeed(HttpServer& server, std::filesystem::path journal, const EventFeedLimits& limits = {});
  /// After the server has stopped.
  ~EventFeed();
  EventFeed(const EventFeed&) = delete;
  EventFeed& operator=(const EventFeed&) = delete;

  class Implementation;

 private:
  std::unique_ptr<Implementation> m_implementation;
};

}  // namespace workstation
