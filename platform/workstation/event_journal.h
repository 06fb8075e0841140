// The journal of events: JSON Lines, numbered without a gap, every line on disk before it counts.
//
// {"seq": 7, "time": "2026-03-01T12:00:31.500Z", "t": 1772366431.5, "kind": "changed", "event": "Fall Detected",
//  "topic": "tnsaxis:CameraApplicationPlatform/VelmorQuilnApplication/FallDetected", "active": true}
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/workstation/durable_file.h"

namespace workstation {

/// What a line says, its number aside.
struct EventRecord {
  TimeStamp time;
  std::string kind;   ///< "declared", "changed" or "undeclared"
  std::string event;  ///< the name people read
  std::string topic;  ///< the name that tells events apart
  bool active = false;
  bool closed_at_start = false;  ///< ends a state that an earlier run left active
};

/// Seconds on the process's clock, to the millisecond, as the journal and the standard output show them.
double secondsOf(TimeStamp time);

/// "2026-03-01T12:00:31.500Z"
std::string utcText(TimeStamp time);

/// One journal file, held exclusively. Memory does not grow with the file.
class EventJournal {
 public:
  /// Opens or creates events.jsonl in the directory and ends, as of `now`, every state that is still active in it. A
  /// torn last line is cut off: it never counted. A file that is damaged before its end is put aside as
  /// events.jsonl.damaged-N and the numbers go on from the highest that can be read. Throws std::runtime_error with
  /// one line.
  EventJournal(const std::filesystem::path& directory, TimeStamp now);

  /// On disk on return. Throws std::runtime_error with one line; the number is then not used up.
  void append(const EventRecord& record);
  /// The last number given; 0 for none.
  std::uint64_t last() const { return m_last; }

  /// One line on a file that was put aside, else empty.
  const std::string& damage() const { return m_damage; }
  /// The states that opening the journal ended.
  const std::vector<EventRecord>& closedAtStart() const { return m_closed; }

 private:
  void open();
  void putAside(const std::string& reason);

  std::filesystem::path m_path;
  FileDescriptor m_file;
  std::int64_t m_size = 0;   ///< bytes of whole lines
  bool m_torn = false;       ///< more than that stands in the file
  std::uint64_t m_last = 0;  ///< the last number given
  std::string m_damage;
  std::vector<EventRecord> m_closed;
};

}  // namespace workstation
