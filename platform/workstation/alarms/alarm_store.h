// alarms.jsonl on disk. Only a thread of its own touches the disk: one that is full, fails or hangs keeps nobody
// waiting.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/workstation/alarms/alarm_book.h"
#include "platform/workstation/alarms/alarm_entry.h"
#include "platform/workstation/alarms/call_settings.h"
#include "platform/workstation/system/side_thread.h"

namespace workstation {

/// Who is to be called, as the disk knew it when it was first read.
struct StoredCalls {
  CallSettings settings;
  std::string problem;      ///< a line where what is set cannot be used
  std::uint64_t floor = 0;  ///< numbers up to this one were given out, whatever the journal says
};

/// What the journal said when it was first read.
struct AlarmPast {
  AlarmBook book;
  std::string damage;      ///< a line where it was damaged
  std::size_t untold = 0;  ///< alarms that are forgotten, being too many, though somebody outside may not know of them
};

/// In the state directory, tried until it can be had.
class AlarmStore {
 public:
  struct Hooks {
    std::function<void(StoredCalls calls)> calls;       ///< once, though the journal cannot be read
    std::function<void(AlarmPast past)> loaded;         ///< once, after that and before anything is written
    std::function<void(std::uint64_t number)> written;  ///< all up to this one is on disk
    std::function<std::uint64_t()> floor = {};          ///< for StoredCalls::floor; may ask the disk
    std::function<void()> removed = {};                 ///< the file has been: calls rewrite()
  };

  /// Begins to read. The hooks are called on the store's thread.
  explicit AlarmStore(Hooks hooks, const AlarmLimits& limits = {});

  /// Is written as soon as the disk takes it, in order of the calls.
  void append(const AlarmEntry& entry);
  /// Writes these, which are all that count, in place of the file; those that wait as well are among them.
  void rewrite(const std::deque<AlarmEntry>& entries);
  /// Stores what was set for calls; `done` gets a line when that has failed. On the store's thread.
  void storeCalls(const CallSettings& settings, const std::function<void(const std::string& failure)>& done);

  /// Tries again what has failed; now and then.
  void retry();
  struct Trouble {
    std::string why;  ///< empty: none
    std::size_t waiting = 0;
  };
  [[nodiscard]] Trouble trouble() const;
  /// False when not all is on disk after this time.
  bool drain(std::chrono::milliseconds patience);

 private:
  struct Core;
  std::shared_ptr<Core> m_core;
  std::shared_ptr<SideThread> m_side;
};

}  // namespace workstation
