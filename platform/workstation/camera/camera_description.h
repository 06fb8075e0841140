// A camera's description: one small JSON file that says what the workstation's camera shows and what it claims to be.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/support/stream_size.h"
#include "platform/workstation/decoding/source/camera_source.h"

namespace workstation {

struct CameraDescription {
  std::string file;                         ///< where it was read from, for messages
  std::string source;                       ///< absolute path, or a URI ("rtsp://...")
  std::string login;                        ///< absolute path of a login file; empty: none
  std::string certificate;                  ///< fingerprint of the one that is believed; empty: the system's
  bool loop = false;                        ///< live only: begin again at the end of the file
  std::uint32_t rotation = 0;               ///< degrees clockwise: 0, 90, 180 or 270
  bool mirrored = false;                    ///< viewers see left and right exchanged, after the turning
  std::string product_name = "AXIS Q1656";  ///< short product name
  std::uint32_t focal_length_um = 3700;     ///< of the lens, in micrometres
  std::vector<StreamSize> stream_sizes{{640, 360}, kApplicationStream, {1280, 720}, {1920, 1080}};
  std::map<std::string, std::string> parameters;  ///< what the installer has set, by parameter name
};

/// What is opened to watch the camera.
CameraSource sourceOf(const CameraDescription& camera);

/// A description that cannot be used. what() holds one line for each mistake, "FILE: KEY: what is wrong; what is
/// allowed", without a final line feed.
class DescriptionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Larger files are refused unread.
inline constexpr std::size_t kDescriptionLimitBytes = std::size_t{1} << 20;

/// Checks the text of a description; `file` names it in messages and is what relative paths are relative to.
/// Throws DescriptionError with all mistakes found.
CameraDescription parseCameraDescription(std::string_view text, const std::string& file);

/// The text of a description's file. Throws DescriptionError.
std::string readDescription(const std::string& file);

/// Reads and checks a file, and the login file that it names. Throws DescriptionError.
CameraDescription loadCameraDescription(const std::string& file);

/// The camera of this process: the description named by the environment variable VELMOR_CAMERA, read once and then
/// unchanged and valid for ever, also after main. The first call also starts the camera's lens service.
/// Throws DescriptionError; the next call then tries again.
const CameraDescription& startedCamera();

}  // namespace workstation
