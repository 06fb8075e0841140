// Where the files of the application package lie, and those that only pass something on.
#pragma once

#include <string>

/// The absolute package path under the prefix in the environment variable VELMOR_ROOT (empty on the camera).
std::string packagePath(const std::string& absolute);

/// A path below /tmp, which is memory on the camera: below the folder in VELMOR_TMP instead, where that is set.
std::string temporaryPath(const std::string& absolute);
