// Single pictures of a recording.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace evaluate {

/// For how long a recording is shown, in seconds; 0 when that cannot be told.
double lengthOf(const std::filesystem::path& video);

/// The picture shown at each of the times (seconds, growing), as a JPEG 400 pixels wide; empty where there is none.
/// What stands in the way of all is no error: a report without pictures is one.
std::vector<std::string> stillsOf(const std::filesystem::path& video, const std::vector<double>& times);

}  // namespace evaluate
