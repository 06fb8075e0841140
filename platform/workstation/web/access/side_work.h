// What would keep the server's thread waiting, such as a slow hash or a disk, while the feeds of alarms go on.
#pragma once

#include <libsoup/soup.h>

#include <cstddef>
#include <functional>
#include <memory>

#include "platform/workstation/system/side_thread.h"

namespace workstation {

/// Of the server's thread, like whoever owns it.
class SideWork {
 public:
  /// What work has come to: said on the server's thread, with the message that asked for it, or null when that has
  /// ended meanwhile.
  using Outcome = std::function<void(SoupServerMessage* message)>;

  SideWork(GMainContext* server, std::size_t limit);
  ~SideWork();
  SideWork(const SideWork&) = delete;
  SideWork& operator=(const SideWork&) = delete;

  /// Does the work on a thread of its own, one after another; the message waits for its outcome. The work may outlive
  /// this object, and then has no outcome. False when too much waits already: the message does not wait then.
  bool start(SoupServerMessage* message, std::function<Outcome()> work);

 private:
  struct State;
  std::shared_ptr<State> m_state;
  SideThread m_thread;
};

}  // namespace workstation
