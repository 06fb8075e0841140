// What a process has started and still waits for.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace workstation {

struct ChildProcess {
  pid_t id;
  std::string command;  ///< its words, each followed by a blank; empty for one that has ended
};

/// As far as the system shows them; without an order.
std::vector<ChildProcess> childrenOf(pid_t parent);

}  // namespace workstation
