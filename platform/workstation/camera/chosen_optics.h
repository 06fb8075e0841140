// The lens and the sensor that an installer has chosen on the page, in the place of those that the start names.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "platform/workstation/camera/camera_description.h"

namespace workstation {

struct Optics {
  std::string product_name;  ///< chooses the sensor's size
  std::uint32_t focal_length_um = 0;
  bool operator==(const Optics&) const = default;
};

Optics opticsOf(const CameraDescription& camera);

/// What somebody has entered, by a description's rules. Throws std::runtime_error with one line.
Optics opticsFrom(const std::string& product_name, const std::string& focal_length_um);

/// Keeps them for the next start, as chosen-optics.json in the state directory; `running` is what this start watches.
/// Throws std::runtime_error with one line.
void storeChosenOptics(const std::filesystem::path& state, const Optics& chosen, const CameraDescription& running);

/// Lets them count in the place of what a start names, as long as that is what they were chosen in place of; a start
/// that names others ends that. Returns the line that tells so; empty when the start's own count. Throws
/// std::runtime_error with one line, also when the file is no good.
std::string useChosenOptics(const std::filesystem::path& state, CameraDescription& camera);

/// Returns whether there were any. Throws std::runtime_error with one line.
bool forgetChosenOptics(const std::filesystem::path& state);

}  // namespace workstation
