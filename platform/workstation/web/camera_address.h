// What an installer may type in as a camera.
#pragma once

#include <string>

#include "platform/workstation/decoding/source/camera_source.h"
#include "platform/workstation/web/http_text.h"

namespace workstation {

/// A form's address, user, password and certificate as a source that may be opened for whoever sees the page: a camera
/// on a network, never a file or a device of this machine. A user and a password in the address go where they belong.
/// Throws std::runtime_error with one line that shows nothing of what was typed.
CameraSource cameraFrom(const HttpQuery& form);

}  // namespace workstation
