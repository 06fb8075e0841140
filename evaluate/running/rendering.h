// Recordings that the simulator makes of scripts, kept for the next time.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "evaluate/judging/judging.h"
#include "evaluate/running/recordings.h"

namespace evaluate {

struct Rendering {
  std::filesystem::path simulator;  ///< velmor_simulator
  std::filesystem::path store;
  int jobs = 1;
  bool on_terminal = false;  ///< a bar shows how far it is
};

/// In the scripts' order; those that cannot be made are told to `problem`, a line each. Throws std::runtime_error with
/// one line when none can be begun.
std::vector<Recording> recordingsOf(const std::vector<Script>& scripts, const Rendering& rendering,
                                    const std::function<void(const std::string& line)>& problem);

}  // namespace evaluate
