#include "events/event_manager.h"

#include <syslog.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <memory>

#include "platform/clock/clock.h"

namespace {

constexpr const char* kNameSpace = "tnsaxis";

/// Calls a release function on the pointer that it is given.
template <auto Release>
struct Releaser {
  template <typename T>
  void operator()(T* pointer) const {
    Release(pointer);
  }
};

using KeyValueSet = std::unique_ptr<AXEventKeyValueSet, Releaser<ax_event_key_value_set_free>>;
using Event = std::unique_ptr<AXEvent, Releaser<ax_event_free>>;
using DateTime = std::unique_ptr<GDateTime, Releaser<g_date_time_unref>>;

/// The clock's time, in the local time zone.
DateTime localNow() {
  using std::chrono::duration_cast;
  const auto sinceEpoch = duration_cast<std::chrono::microseconds>(ticker_clock::now().time_since_epoch());
  const auto seconds = duration_cast<std::chrono::seconds>(sinceEpoch);
  const DateTime wholeSeconds(g_date_time_new_from_unix_local(seconds.count()));
  return DateTime(g_date_time_add(wholeSeconds.get(), (sinceEpoch - seconds).count()));
}

bool addTopicsAndState(AXEventKeyValueSet* set, const std::string& eventName) {
  const gboolean active = FALSE;
  const std::string topic2 = friendlyToKey(eventName);
  return ax_event_key_value_set_add_key_values(
             set, nullptr, "topic0", kNameSpace, "CameraApplicationPlatform", AX_VALUE_TYPE_STRING, "topic1",
             kNameSpace, "VelmorQuilnApplication", AX_VALUE_TYPE_STRING, "topic2", kNameSpace, topic2.c_str(),
             AX_VALUE_TYPE_STRING, "active", nullptr, &active, AX_VALUE_TYPE_BOOL, nullptr) != FALSE;
}

}  // namespace

std::string friendlyToKey(const std::string& name) {
  std::string key;
  std::copy_if(name.begin(), name.end(), std::back_inserter(key), [](char c) { return g_ascii_isalnum(c); });
  return key;
}

EventManager::EventManager() : m_pHandler(ax_event_handler_new()) { syslog(LOG_INFO, "EventManager constructor"); }

EventManager::~EventManager() {
  syslog(LOG_INFO, "EventManager destructor called");
  for (const auto& [name, id] : m_eventDeclarationIDs) {
    syslog(LOG_INFO, "EventManager undeclaring event %s : DeclarationID=%d", name.c_str(), id);
    if (ax_event_handler_undeclare(m_pHandler, id, nullptr) != FALSE) {
      syslog(LOG_INFO, "EventManager destructor successfully undeclared event %s : DeclarationID=%d", name.c_str(), id);
    } else {
      syslog(LOG_INFO, "EventManager destructor failed to undeclare event %s : DeclarationID=%d", name.c_str(), id);
    }
  }
  syslog(LOG_INFO, "Going to free the event handler");
  ax_event_handler_free(m_pHandler);
  syslog(LOG_INFO, "EventManager destructor complete");
}

void EventManager::addEvent(const std::string& eventName) {
  const KeyValueSet set(ax_event_key_value_set_new());
  if (!addTopicsAndState(set.get(), eventName)) {
    syslog(LOG_ERR, "Error creating key value set for event %s", eventName.c_str());
    return;
  }
  ax_event_key_value_set_mark_as_data(set.get(), "active", nullptr, nullptr);
  ax_event_key_value_set_add_nice_names(set.get(), "topic2", kNameSpace, "Velmor Quiln", eventName.c_str(), nullptr);
  guint declarationID = 0;
  if (ax_event_handler_declare(m_pHandler, set.get(), FALSE, &declarationID, nullptr, nullptr, nullptr) != FALSE) {
    syslog(LOG_INFO, "Successfully declared event %s. Declaration ID=%d", eventName.c_str(), declarationID);
  } else {
    syslog(LOG_ERR, "Failed to declare event %s", eventName.c_str());
  }
  registerEvent(eventName, declarationID);
}

void EventManager::registerEvent(const std::string& eventName, unsigned int declarationID) {
  m_eventDeclarationIDs[eventName] = declarationID;
  m_eventStarted[eventName] = false;
  syslog(LOG_INFO, "EventManager registering event %s to DeclarationID=%d", eventName.c_str(), declarationID);
}

unsigned int EventManager::getDeclarationID(const std::string& eventName) { return m_eventDeclarationIDs[eventName]; }

bool EventManager::isEventStarted(const std::string& eventName) { return m_eventStarted[eventName]; }

void EventManager::sendEventStarted(const std::string& eventName) {
  if (isEventStarted(eventName)) {
    return;
  }
  syslog(LOG_INFO, "Starting event %s", eventName.c_str());
  sendEvent(eventName, true);
  m_eventStarted[eventName] = true;
}

void EventManager::sendEventStopped(const std::string& eventName) {
  if (!isEventStarted(eventName)) {
    return;
  }
  syslog(LOG_INFO, "Stopping event %s", eventName.c_str());
  sendEvent(eventName, false);
  m_eventStarted[eventName] = false;
}

void EventManager::sendEvent(const std::string& eventName, bool started) {
  const unsigned int declarationID = getDeclarationID(eventName);
  if (declarationID == 0) {
    syslog(LOG_ERR, "No declaration for event %s", eventName.c_str());
    return;
  }
  const KeyValueSet kvSet(ax_event_key_value_set_new());
  const gboolean activeValue = started ? TRUE : FALSE;
  if (ax_event_key_value_set_add_key_value(kvSet.get(), "active", nullptr, &activeValue, AX_VALUE_TYPE_BOOL, nullptr) ==
      FALSE) {
    syslog(LOG_ERR, "Failed to add active key value to event %s", eventName.c_str());
    return;
  }
  const DateTime now = localNow();
  const Event event(ax_event_new2(kvSet.get(), now.get()));
  if (ax_event_handler_send_event(m_pHandler, declarationID, event.get(), nullptr) == FALSE) {
    syslog(LOG_ERR, "Failed to send event %s activeValue=%d", eventName.c_str(), activeValue);
  }
}
