// What somebody asked for on the command line of velmor_camera.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/workstation/decoding/source/camera_source.h"

namespace workstation {

struct CheckRequest {
  bool help = false;
  bool from_page = false;  ///< the rest comes from standard input, and the answer is for a program
  CameraSource source;
  std::uint32_t rotation = 0;          ///< of the picture that is shown, degrees clockwise
  bool mirrored = false;               ///< after the turning
  std::chrono::seconds wait{10};       ///< for the first picture
  std::optional<std::string> picture;  ///< file that the picture goes to; none: none is written
};

/// The words after "camera". Reads the description and the login file that they name. Throws std::runtime_error with
/// one line.
CheckRequest parseCheck(const std::vector<std::string>& words);

/// What a page sends: {"source", "user", "password", "certificate", "rotation", "mirrored"}. Throws std::runtime_error.
CheckRequest parsePageCheck(const std::string& document);

/// What --help prints.
const char* checkUsage();

}  // namespace workstation
