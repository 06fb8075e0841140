// Where the files of the application package lie.
#pragma once

#include <string>

/// The absolute package path under the prefix in the environment variable VELMOR_ROOT (empty on the camera).
std::string packagePath(const std::string& absolute);
