// What a folder holds to be evaluated: recordings whose happenings are told, and scripts of which the simulator makes
// such recordings.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "evaluate/judging/judging.h"
#include "platform/workstation/launcher/launch_request.h"

namespace evaluate {

/// A script of the simulator.
struct Script {
  std::string name;  ///< as a recording's
  std::filesystem::path file;
};

struct Contents {
  std::vector<Recording> recordings;
  std::vector<Script> scripts;
  std::vector<std::string> problems;  ///< a line for each that is none
};

/// Of the folder and the folders in it, by name. Throws std::runtime_error with one line when it cannot be read.
Contents contentsOf(const std::filesystem::path& folder);

/// The recording beside what happened in it. Throws std::runtime_error with one line.
Recording recordingOf(const std::filesystem::path& happened, const std::string& name);

/// The file of the same name that tells something about the video: ".settings.json".
std::filesystem::path beside(const std::filesystem::path& video, const std::string& ending);

/// What turns one file of settings into the other, where parameters do. Neither has to exist. Throws std::runtime_error
/// with a line for each mistake in them.
std::optional<workstation::ParameterGroup> changesTo(const std::filesystem::path& settings,
                                                     const std::filesystem::path& from);

inline constexpr const char* kHappenedEnding = ".happened.txt";

}  // namespace evaluate
