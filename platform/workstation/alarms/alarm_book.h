// All alarms as their journal tells them. No thread, no disk, no clock.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/workstation/alarms/alarm.h"
#include "platform/workstation/alarms/alarm_entry.h"

namespace workstation {

struct AlarmLimits {
  std::size_t closed = 1000;     ///< alarms that are closed and still known
  std::size_t waiting = 10'000;  ///< the same with those that somebody outside has not been told yet
  std::size_t entries = 20'000;  ///< that are kept; those of open alarms come besides
  std::size_t others = 100;      ///< of these, tests and pauses
};

class AlarmBook {
 public:
  explicit AlarmBook(const AlarmLimits& limits = {}) : m_limits(limits), m_trim_at(limits.entries) {}

  /// The next entry of the journal; one about an alarm that is not known changes nothing. An answer does not count yet.
  void apply(AlarmEntry entry);
  /// The journal is on disk up to this number. The ids of the alarms whose answers count from now on.
  std::vector<std::string> store(std::uint64_t last);
  /// Numbers up to this one are not given any more.
  void skipTo(std::uint64_t number) { m_last = std::max(m_last, number); }
  /// Puts what a journal says before all that is known already.
  void precede(AlarmBook&& past);

  /// Null for an id that is not known.
  [[nodiscard]] Alarm* find(const std::string& id);
  [[nodiscard]] const Alarm* find(const std::string& id) const;
  /// By the number of the entry that has raised it.
  [[nodiscard]] const std::map<std::uint64_t, Alarm>& alarms() const { return m_alarms; }
  std::map<std::uint64_t, Alarm>& alarms() { return m_alarms; }
  [[nodiscard]] const std::deque<AlarmEntry>& entries() const { return m_entries; }
  [[nodiscard]] const std::optional<Pause>& pause() const { return m_pause; }
  std::optional<Pause>& pause() { return m_pause; }
  /// The last number; 0 before the first.
  [[nodiscard]] std::uint64_t last() const { return m_last; }
  /// The highest number of the events of which an alarm was raised.
  [[nodiscard]] std::uint64_t lastSeq() const { return m_last_seq; }

  /// The first entry above `after` that is for a receiver of this level whose time began at the number `begins`: a call
  /// at its level, and what happens to an alarm from that call on. A call that was repeated since is left out. Null for
  /// none.
  [[nodiscard]] const AlarmEntry* nextFor(std::uint64_t after, std::uint64_t begins, int level) const;

  /// What has a number above this one may wait for somebody outside, as all does at first.
  void keepAbove(std::uint64_t number);
  /// Forgets the oldest alarms that are closed, and repeated calls, once there are too many. None when it has not; else
  /// of how many alarms somebody outside will not be told.
  std::optional<std::size_t> trim();

 private:
  std::set<std::string> forget(std::size_t& untold);
  void applyTo(Alarm& alarm, const AlarmEntry& entry);
  [[nodiscard]] bool isFor(const AlarmEntry& entry, std::uint64_t begins, int level) const;

  std::map<std::uint64_t, Alarm> m_alarms;
  std::map<std::string, std::uint64_t> m_numbers;  ///< of the entries that have raised them, by id
  std::deque<AlarmEntry> m_entries;
  std::deque<std::pair<std::uint64_t, std::string>> m_unstored;  ///< answers: their numbers and alarms
  std::optional<Pause> m_pause;
  std::uint64_t m_last = 0;
  std::uint64_t m_last_seq = 0;
  std::uint64_t m_kept_above = 0;
  AlarmLimits m_limits;
  std::size_t m_trim_at;
  bool m_some_waited = false;  ///< at the last trim closed ones were kept for somebody who has still to get them
};

/// Whether it is to be closed: it has been answered for good, or has been seen and is over.
bool isOver(const Alarm& alarm);

}  // namespace workstation
