// Programs that the launcher starts beside itself, and what asks the launcher to end meanwhile.
#pragma once

#include <sys/types.h>

#include "platform/support/file_descriptor.h"
#include "platform/workstation/launcher/launch_plan.h"

namespace workstation {

/// From here on SIGINT, SIGTERM and SIGHUP ask what has been started to end in order; while nothing has been, they end
/// the process.
void passSignalsOn();

/// Whether the signal is one of those.
bool isPassedOn(int signal);

struct Program {
  pid_t id;
  FileDescriptor starting;  ///< a pipe that the program closes when it has started, or ends
};

/// With the plan's environment. `output` becomes its standard output, -1 is our own. Throws std::runtime_error with one
/// line.
Program startProgram(const LaunchPlan& plan, int output = -1);

/// Waits for its end, told in waitpid's terms. Throws std::runtime_error.
int endOf(pid_t program);

}  // namespace workstation
