#include "platform/workstation/system/state_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>

namespace workstation {
namespace {

/// Before main: what was handed to this process, the state directory's lock above all, is for it alone. A program of
/// its own that is left behind would keep the directory locked.
[[gnu::constructor]] void keepInheritedDescriptors() { ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC); }

/// The variable's value as an absolute path; relative values are ignored, as the base directory rules ask for.
std::filesystem::path absoluteFrom(const char* variable) {
  const char* value = std::getenv(variable);
  std::filesystem::path path = value == nullptr ? "" : value;
  return path.is_absolute() ? path : std::filesystem::path();
}

}  // namespace

std::filesystem::path stateHome() {
  if (auto xdg = absoluteFrom("XDG_STATE_HOME"); !xdg.empty()) {
    return xdg / "velmor_care";
  }
  if (auto home = absoluteFrom("HOME"); !home.empty()) {
    return home / ".local" / "state" / "velmor_care";
  }
  throw std::runtime_error("no place for the state directory: set VELMOR_STATE, XDG_STATE_HOME or HOME to a full path");
}

std::filesystem::path stateDirectory() {
  auto directory = absoluteFrom("VELMOR_STATE");
  if (directory.empty()) {
    directory = stateHome();
  }
  std::error_code error;
  if (std::filesystem::create_directories(directory, error)) {
    ::chmod(directory.c_str(), S_IRWXU);
  }
  if (error || !std::filesystem::is_directory(directory, error)) {
    throw std::runtime_error(directory.string() + ": cannot be used as the state directory: " +
                             (error ? error.message() : "it is not a directory"));
  }
  return directory;
}

}  // namespace workstation
