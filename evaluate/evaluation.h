// Recordings whose happenings are known, through the program: what it told of them.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "evaluate/judging/judging.h"
#include "platform/workstation/launcher/launch_request.h"

namespace evaluate {

struct Request {
  std::filesystem::path folder;
  /// NAME.WORD.settings.json is tried beside the recordings' own settings, where there is one.
  std::vector<std::string> settings;
  std::vector<workstation::ParameterGroup> sets;  ///< each is tried beside the recordings' own settings
  int jobs = 1;                                   ///< runs at once
  std::string precision;                          ///< the networks' numbers; empty: the program's own
  std::string eyes;                               ///< how sharply they look; empty: the program's own
  std::filesystem::path program;                  ///< velmor_run
  std::filesystem::path source_tree;
  std::filesystem::path simulator;   ///< velmor_simulator; only needed for scripts
  std::filesystem::path store;       ///< for the traces of earlier evaluations
  std::filesystem::path recordings;  ///< for what the simulator has made
  bool on_terminal = false;          ///< a bar shows how far it is
};

/// Tells on standard error how far it is. Throws std::runtime_error with one line when nothing can be begun.
Evaluation evaluateFolder(const Request& request);

}  // namespace evaluate
