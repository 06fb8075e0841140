// The application's stateful events on the camera's event system.
#pragma once

#include <axevent.h>

#include <map>
#include <string>

/// An event is known by its friendly name. It is declared once, starts out inactive, and only changes of its state are
/// sent. Failures are logged; a change that could not be sent is not sent again.
class EventManager {
 public:
  EventManager();
  /// Undeclares every event.
  ~EventManager();
  EventManager(const EventManager&) = delete;
  EventManager& operator=(const EventManager&) = delete;

  /// Declares an event. A failed declaration leaves the event known, without a declaration.
  void addEvent(const std::string& eventName);
  void registerEvent(const std::string& eventName, unsigned int declarationID);
  /// 0 when there is no declaration; an unknown name becomes known.
  unsigned int getDeclarationID(const std::string& eventName);
  /// Whether the state sent last was active; an unknown name becomes known.
  bool isEventStarted(const std::string& eventName);
  void sendEventStarted(const std::string& eventName);
  void sendEventStopped(const std::string& eventName);
  /// Sends a state, whatever was sent before.
  void sendEvent(const std::string& eventName, bool started);

 private:
  AXEventHandler* m_pHandler;
  std::map<std::string, unsigned int> m_eventDeclarationIDs;
  std::map<std::string, bool> m_eventStarted;
};

/// The name without everything that is not an ASCII letter or digit.
std::string friendlyToKey(const std::string& name);

/// Created at start-up and never deleted.
extern EventManager* g_EventManager;
