// What of a script cannot be: people in walls and furniture.
#pragma once

#include <optional>
#include <string>

#include "simulator/stories/scenario.h"

namespace simulator {

/// Where in the script, and what: "furniture[0].place", "stands in the wardrobe".
struct Fault {
  std::string path;
  std::string what;
};

/// The first thing that cannot be, if any. Checks the keys and, five times a second, the ways between them.
std::optional<Fault> faultOf(const Scenario& scenario);

}  // namespace simulator
