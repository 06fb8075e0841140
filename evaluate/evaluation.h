// Recordings whose happenings are known, through the program: what it told of them.
#pragma once

#include <filesystem>
#include <vector>

#include "evaluate/judging.h"
#include "platform/workstation/launcher/launch_request.h"

namespace evaluate {

struct Request {
  std::filesystem::path folder;
  std::vector<workstation::ParameterGroup> sets;  ///< each is tried beside the recordings' own settings
  int jobs = 1;                                   ///< runs at once
  std::filesystem::path program;                  ///< velmor_run
  std::filesystem::path source_tree;
  std::filesystem::path store;  ///< for the traces of earlier evaluations
  bool on_terminal = false;     ///< a bar shows how far it is
};

/// Tells on standard error how far it is. Throws std::runtime_error with one line when nothing can be begun.
Evaluation evaluateFolder(const Request& request);

}  // namespace evaluate
