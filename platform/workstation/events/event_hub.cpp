#include "platform/workstation/events/event_hub.h"

#include <mutex>
#include <utility>
#include <vector>

namespace workstation {
namespace {

/// Changes, and times of watching, that are remembered.
constexpr size_t kMostKept = 2000;

struct Hub {
  std::mutex mutex;
  EventsNow now;
  std::vector<EventListener*> listeners;
};

Hub& hub() {
  static auto& the_hub = *new Hub;  // never destroyed: events come until the process ends
  return the_hub;
}

void keep(std::deque<EventRecord>& newest, const EventRecord& record) {
  newest.push_back(record);
  if (newest.size() > kMostKept) newest.pop_front();
}

/// With the lock held.
void tell(const EventRecord& record) {
  for (EventListener* listener : hub().listeners) listener->onEvent(record);
}

}  // namespace

void resetEvents(const std::string& run) {
  const std::lock_guard lock(hub().mutex);
  hub().now = {};
  hub().now.run = run;
}

void seedEvents(std::uint64_t last, const JournalPast& past, const std::deque<EventRecord>& closed) {
  const std::lock_guard lock(hub().mutex);
  std::deque<EventRecord> changes = past.changes;
  std::deque<EventRecord> watching = past.watching;
  for (const EventRecord& record : closed) {
    if (record.kind == "watching") {
      keep(watching, record);
      continue;
    }
    keep(changes, record);
    EventState& state = hub().now.states[record.topic];
    if (!state.since) state = {record.event, false, record.time, record.number};
  }
  for (const EventRecord& record : hub().now.changes) keep(changes, record);
  for (const EventRecord& record : hub().now.watching) keep(watching, record);
  hub().now.changes = std::move(changes);
  hub().now.watching = std::move(watching);
  hub().now.last = last;
  for (EventListener* listener : hub().listeners) listener->onPast();
}

void publishEvent(const EventRecord& record) {
  const std::lock_guard lock(hub().mutex);
  hub().now.last = record.number;
  if (record.kind == "undeclared") {
    hub().now.states.erase(record.topic);
  } else if (record.kind == "watching") {
    keep(hub().now.watching, record);
    tell(record);
  } else if (EventState& state = hub().now.states[record.topic]; record.kind == "changed") {
    state = {record.event, record.active, record.time, record.number};
    keep(hub().now.changes, record);
    tell(record);
  } else if (state.name.empty()) {
    state = {record.event, false, std::nullopt, record.number};
  }
}

void listenToEvents(EventListener& listener) {
  const std::lock_guard lock(hub().mutex);
  hub().listeners.push_back(&listener);
}

void stopListeningToEvents(EventListener& listener) {
  const std::lock_guard lock(hub().mutex);
  std::erase(hub().listeners, &listener);
}

EventsNow eventsNow() {
  const std::lock_guard lock(hub().mutex);
  return hub().now;
}

std::string currentRun() {
  const std::lock_guard lock(hub().mutex);
  return hub().now.run;
}

}  // namespace workstation
