// The journal of events: JSON Lines. What a line says has happened already: the journal documents, and may be late.
//
// {"seq": 7, "run": "9f2c41d07b3e5a18", "time": "2026-03-01T12:00:31.500Z", "t": 1772366431.5, "kind": "changed",
//  "event": "Fall Detected", "topic": "tnsaxis:CameraApplicationPlatform/VelmorQuilnApplication/FallDetected",
//  "active": true}
// {"seq": 8, "run": "9f2c41d07b3e5a18", "time": ..., "t": ..., "kind": "watching", "active": false, "why": "too-dark"}
// {"seq": 12, "run": "9f2c41d07b3e5a18", "time": ..., "t": ..., "kind": "missing", "from": 9, "to": 12}
//
// Numbers rise by one within a run; a new run may begin above. A "missing" line stands for the numbers that a run has
// given and that nobody has written down. Lines of older programs have no "run".
#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {

/// What a line says.
struct EventRecord {
  TimeStamp time;
  std::string kind;        ///< "declared", "changed", "undeclared", "watching" or "missing"
  std::string event = {};  ///< the name people read; of "watching" and "missing" empty, as the topic
  std::string topic = {};  ///< the name that tells events apart
  bool active = false;
  bool closed_at_start = false;  ///< ends a state that an earlier run left active
  std::uint64_t number = 0;
  std::string run = {};    ///< whose number it is; empty in old lines
  std::uint64_t from = 0;  ///< of "missing": the first number that is; `number` is the last
  std::string why = {};    ///< of an end of watching: the trouble's name (health.h); empty when the program ended
};

/// Whether a declaration and the changes of its event fit into a line.
bool fitsIntoJournal(const EventRecord& record);

/// What a journal says about the time before.
struct JournalPast {
  std::uint64_t last = 0;                     ///< the highest number; 0 for none
  std::map<std::string, std::string> active;  ///< topic -> event of every state that has begun and not ended
  std::deque<EventRecord> changes;            ///< the newest, oldest first
  std::deque<EventRecord> watching;           ///< the same
  TimeStamp last_time;                        ///< of the last line
};

/// One journal file, held exclusively. Memory does not grow with the file.
class EventJournal {
 public:
  /// Opens or creates events.jsonl in the directory. A file that is damaged before its end is put aside as
  /// events.jsonl.damaged-N and the numbers go on from the highest that can be read. Throws std::runtime_error with
  /// one line.
  explicit EventJournal(const std::filesystem::path& directory);

  /// All of them on disk on return. Throws std::runtime_error with one line; none of them is then in the file. A torn
  /// last line, of a run that was ended or of a full disk, goes first. Where somebody has removed the file, or put
  /// another in its place, which is put aside, a new one begins, and damage() says so.
  void append(const std::vector<EventRecord>& records);

  /// As it was when the file was opened.
  const JournalPast& past() const { return m_past; }
  /// One line on a file that was put aside or removed, at the opening or by the last append; else empty.
  const std::string& damage() const { return m_damage; }
  /// Puts the file aside, for this reason, and begins a new one. Throws std::runtime_error with one line.
  void putAside(const std::string& reason);

 private:
  void open();
  void beginAnew();

  std::filesystem::path m_path;
  FileDescriptor m_file;
  std::int64_t m_size = 0;  ///< bytes of whole lines
  bool m_torn = false;      ///< more than that may stand in the file
  bool m_named = false;     ///< the file's name is on disk too
  JournalPast m_past;
  std::string m_damage;
};

}  // namespace workstation
