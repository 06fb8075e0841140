// What a parameter of the package may be.
#pragma once

#include <filesystem>
#include <string>

#include "platform/workstation/launcher/launch_request.h"
#include "platform/workstation/parameters/stored_parameters.h"

namespace workstation {

/// Throws std::runtime_error with a line for each parameter that the package does not have or that has the wrong kind
/// of value. `place` says where they stand.
void checkParameters(const ParameterGroup& parameters, const Parameters& defaults, const std::string& place);

/// The same for what somebody sets on the command line, which must also lie within the manifest's limits.
void checkSet(const ParameterGroup& group, const std::filesystem::path& manifest);

/// For the parameters that a trace was made with: all of the package's, within the manifest's limits. Throws
/// std::runtime_error with one line for the first that is missing or wrong.
void checkRecorded(const ParameterGroup& parameters, const std::filesystem::path& manifest, const std::string& place);

}  // namespace workstation
