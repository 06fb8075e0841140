// A parameter store in memory whose values and failures a scenario chooses.
#pragma once

#include <map>
#include <string>

#include "platform/scripted/faults.h"

namespace scripted {

struct Parameters {
  std::map<std::string, std::string> values;  ///< the application's by name, the platform's by full name ("root....")
  Faults faults;                              ///< "ax_parameter_get"
};

/// The one store of the process; assign {} to begin anew.
Parameters& parameters();

}  // namespace scripted
