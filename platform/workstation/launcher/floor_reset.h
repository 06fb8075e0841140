// What --reset puts back. A floor calibration that was stored but cannot be used keeps the program from starting: how
// to see it and get out.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "platform/workstation/launcher/launch_request.h"

namespace workstation {

/// Puts the stored floor points and metres back to what the camera's description says, else to the package's defaults,
/// and tells line by line what changed. Nothing else is touched. Throws std::runtime_error with one line, also while a
/// run holds the state.
std::string resetFloor(const LaunchRequest& request, const std::filesystem::path& source_tree);

/// Camera and lens are again those that the start names, and not what was chosen on the page; tells so in a line each.
/// Nothing else is touched. Throws as resetFloor() does.
std::string resetCamera(const LaunchRequest& request, const std::filesystem::path& source_tree);

/// Remembers where the system log ends before a start.
class StartWatch {
 public:
  explicit StartWatch(const std::filesystem::path& state_directory);

  /// Whether the program has since then ended on the floor calibration.
  bool failedOnFloor() const;

 private:
  std::filesystem::path m_log;
  std::uintmax_t m_end;
};

/// The line that helps after such a start: the command that repairs, or where the mistake comes from when that command
/// would change nothing.
std::string floorAdvice(const LaunchRequest& request, const std::filesystem::path& source_tree,
                        const std::filesystem::path& state_directory);

}  // namespace workstation
