// A program that declares events and tells their changes.
#pragma once

#include <axevent.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <memory>

#include "platform/support/owners.h"

template <auto Free>
struct Release {
  template <typename T>
  void operator()(T* handle) const {
    Free(handle);
  }
};
using KeyValueSet = std::unique_ptr<AXEventKeyValueSet, Release<ax_event_key_value_set_free>>;
using Handler = std::unique_ptr<AXEventHandler, Release<ax_event_handler_free>>;

inline KeyValueSet stateSet(bool active) {
  KeyValueSet set(ax_event_key_value_set_new());
  const gboolean state = active ? TRUE : FALSE;
  EXPECT_TRUE(ax_event_key_value_set_add_key_values(set.get(), nullptr, "active", nullptr, &state, AX_VALUE_TYPE_BOOL,
                                                    nullptr));
  return set;
}

/// An event with the topic "tnsaxis:Base/KEY"; without a name it is called KEY. Its id, 0 when it is refused.
inline guint declare(const Handler& handler, const char* key, const char* name = nullptr) {
  const KeyValueSet set = stateSet(false);
  EXPECT_TRUE(ax_event_key_value_set_add_key_values(set.get(), nullptr, "topic0", "tnsaxis", "Base",
                                                    AX_VALUE_TYPE_STRING, "topic1", "tnsaxis", key,
                                                    AX_VALUE_TYPE_STRING, nullptr));
  EXPECT_TRUE(ax_event_key_value_set_mark_as_data(set.get(), "active", nullptr, nullptr));
  EXPECT_TRUE(ax_event_key_value_set_add_nice_names(set.get(), "topic1", "tnsaxis", "Group", name, nullptr));
  guint id = 0;
  ax_event_handler_declare(handler.get(), set.get(), FALSE, &id, nullptr, nullptr, nullptr);
  return id;
}

inline GLibPtr<GDateTime> timeOfChanges() { return GLibPtr<GDateTime>(g_date_time_new_local(2026, 3, 1, 14, 3, 7.25)); }

inline bool send(const Handler& handler, guint id, bool active) {
  const KeyValueSet set = stateSet(active);
  const std::unique_ptr<AXEvent, Release<ax_event_free>> event(ax_event_new2(set.get(), timeOfChanges().get()));
  return ax_event_handler_send_event(handler.get(), id, event.get(), nullptr) == TRUE;
}

/// In a process of its own, which is killed at the end of the function.
inline void runUntilKilled(const std::function<void()>& run) {
  const pid_t child = ::fork();
  if (child == 0) {
    run();
    ::kill(::getpid(), SIGKILL);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}
