// What tests wait for.
#pragma once

#include <chrono>
#include <string>
#include <thread>

#include "platform/workstation/system/health.h"

/// Whether it comes true; on a loaded machine that may take its time.
template <typename Condition>
bool comes(const Condition& condition) {
  for (int i = 0; i < 6000 && !condition(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return condition();
}

/// What staff reads of a trouble; empty while there is none.
inline std::string textOf(workstation::Trouble trouble) {
  for (const workstation::Health::Wrong& wrong : workstation::currentHealth().wrong) {
    if (wrong.what == trouble) return wrong.text;
  }
  return "";
}
