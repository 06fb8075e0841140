// What is active now and what has been, for whoever tells people. In memory: a disk that hangs keeps no viewer waiting.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>

#include "platform/workstation/events/event_journal.h"

namespace workstation {

struct EventState {
  std::string name;
  bool active = false;
  std::optional<TimeStamp> since;  ///< none before the first change
  std::uint64_t number = 0;        ///< of the last change
};

/// All that is known, as of the number `last` of the run.
struct EventsNow {
  std::string run;
  std::uint64_t last = 0;
  std::map<std::string, EventState> states;  ///< by topic
  std::deque<EventRecord> changes;           ///< oldest first, as the next
  std::deque<EventRecord> watching;
};

/// Is told, on any thread, one thing after the other. With the hub's lock held: it must hand on and not ask back.
class EventListener {
 public:
  EventListener() = default;
  virtual ~EventListener() = default;
  EventListener(const EventListener&) = delete;
  EventListener& operator=(const EventListener&) = delete;

  /// A change, or a beginning or end of watching, in the order of the numbers.
  virtual void onEvent(const EventRecord& record) = 0;
  /// The past has become known: eventsNow() tells more than it did.
  virtual void onPast() = 0;
};

/// A run begins: nothing is declared yet, and nothing is known of the time before.
void resetEvents(const std::string& run);

/// The past becomes known, with what this start has ended in it; `last` is the last number given. What this run has
/// published already comes after it.
void seedEvents(std::uint64_t last, const JournalPast& past, const std::deque<EventRecord>& closed);

/// Something has happened: whoever listens is told. From any thread, in the order of the numbers.
void publishEvent(const EventRecord& record);

/// Told from now on, after those who listen already.
void listenToEvents(EventListener& listener);
/// No longer; once this returns nothing is told any more.
void stopListeningToEvents(EventListener& listener);

EventsNow eventsNow();
/// The run's id alone.
std::string currentRun();

}  // namespace workstation
