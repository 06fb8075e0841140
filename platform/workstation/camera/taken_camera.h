// The camera that an installer has taken over on the page, in the place of the one that the start names.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/decoding/source/camera_source.h"

namespace workstation {

/// As it is kept in the state directory, for its owner alone: taken-camera.json, and beside it the login file that it
/// names.
struct TakenCamera {
  CameraSource source;      ///< its login, if any, is in a file
  std::string in_place_of;  ///< the source that the start named
  std::string time;         ///< when it was taken over, UTC
};

/// Nothing when none was taken over. Throws std::runtime_error with one line that names the file when it is no good.
std::optional<TakenCamera> readTakenCamera(const std::filesystem::path& state);

/// Keeps it; a login of the source's own goes to a file. Returns it as it is to be opened from now on. Whatever
/// happens, this camera is kept or the one before. Throws std::runtime_error with one line.
TakenCamera storeTakenCamera(const std::filesystem::path& state, TakenCamera camera);

/// Lets it count in the place of the source that a start names, as long as that is the one in whose place it was taken
/// over; a start that names another ends that. Returns the line that tells so; empty when none was taken over. Throws
/// std::runtime_error with one line.
std::string useTakenCamera(const std::filesystem::path& state, CameraDescription& camera);

/// Returns whether there was one. Throws std::runtime_error with one line.
bool forgetTakenCamera(const std::filesystem::path& state);

}  // namespace workstation
