// The program within this process, on a recording and on the clock of a replay: its own start-up and cycles.
#pragma once

#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>

#include "platform/workstation/launcher/launch_plan.h"

/// The tree with models, package and demo: the environment's VELMOR_SOURCE_DIR, else the working directory.
std::filesystem::path sourceTree();

/// A directory that goes with the object.
class TemporaryFolder {
 public:
  /// Throws std::runtime_error.
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

 private:
  std::filesystem::path m_path;
};

/// Lays out the launcher's files for a replay and makes its plan this process's environment. Once in a process, before
/// anything of the program. Throws std::runtime_error with a line for each mistake.
workstation::LaunchPlan takeOver(workstation::LaunchRequest request, const std::filesystem::path& tree);

/// The start-up's steps up to the networks: enough to find people. Throws std::runtime_error.
void startEyes();

/// All of start-up but the web requests. Throws std::runtime_error.
void startProgram();

/// Runs the program's cycles to the recording's end, or until `each`, called after every cycle, returns false. Throws
/// what `each` throws, and std::runtime_error when a model could not be run. Once in a process, which is ended some
/// seconds after the recording's end, so be quick with what was learned.
void runCycles(const std::function<bool()>& each);

/// What `work` returns, done in a process of its own: the program's state is there once in a process. Throws
/// std::runtime_error with the text of what `work` threw. Before this process has threads.
nlohmann::json runApart(const std::function<nlohmann::json()>& work);
