// From a request to a program that can be started: everything is checked first, every mistake is one line.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/launcher/launch_request.h"
#include "platform/workstation/parameters/stored_parameters.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {

/// Names the parameter group and the package's directories.
inline constexpr const char* kAppName = "velmor_care";

/// A place for a run's state, held for this run alone. A temporary one goes with the object.
class StatePlace {
 public:
  StatePlace() = default;
  /// Creates the directory when missing. Throws std::runtime_error with one line, also when another run holds it.
  StatePlace(std::filesystem::path directory, bool temporary);
  ~StatePlace();
  StatePlace(StatePlace&& other) noexcept = default;
  StatePlace& operator=(StatePlace&& other) noexcept = default;

  const std::filesystem::path& directory() const { return m_directory; }
  /// The program that inherits this descriptor holds the place as well; what that starts does not.
  int lock() const { return m_lock.get(); }

 private:
  std::filesystem::path m_directory;
  std::filesystem::path m_removed_at_end;  ///< empty for a place that stays
  FileDescriptor m_lock;
};

struct LaunchPlan {
  std::string program;                             ///< file name, beside the launcher
  std::map<std::string, std::string> environment;  ///< the VELMOR_ variables; no other VELMOR_ variable is passed on
  std::string camera_line;                         ///< which camera and lens count, where the page has a say; or empty
  StatePlace place;
};

/// The settings file's values laid over the camera's. Throws DescriptionError.
void layOver(CameraDescription& camera, const std::filesystem::path& settings);

/// The camera that is asked for, with absolute paths. `source_tree` holds simulator/demo. Throws std::runtime_error.
CameraDescription requestedCamera(const LaunchRequest& request, const std::filesystem::path& source_tree);

/// Where a run's state goes when nobody says otherwise: "demo", or the source's name and a hash of its full path.
std::string stateName(const LaunchRequest& request);

/// The state directory of a run that is no replay; not created.
std::filesystem::path lastingPlace(const LaunchRequest& request);

/// The file that a user knows the camera's parameters by.
std::string settingsName(const LaunchRequest& request);

/// The defaults of the source tree's package. Throws std::runtime_error with one line.
Parameters packageDefaults(const std::filesystem::path& source_tree);

/// For at most one group of --set. Checks everything and lays the files out in the state directory. Throws
/// std::runtime_error with a line for each mistake; nothing is left behind then that was not there before, save an
/// empty state directory.
LaunchPlan prepareLaunch(const LaunchRequest& request, const std::filesystem::path& source_tree, bool on_terminal);

}  // namespace workstation
