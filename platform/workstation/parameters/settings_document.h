// A settings file's text: what an installer has set, to be kept, carried to another camera and put back.
#pragma once

#include <string>

#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/parameters/parameter_rules.h"
#include "platform/workstation/parameters/stored_parameters.h"

namespace workstation {

/// Sets what the text of a settings file says; `place` names it in messages. Throws DescriptionError.
void layOver(CameraDescription& camera, const std::string& text, const std::string& place);

/// All parameters, as ./run --settings takes them.
std::string settingsDocument(const Parameters& values);

/// The parameters that a settings file's text sets, each within the package's limits. What else it says must be so of
/// the camera that is watched. Throws std::runtime_error with one line.
ParameterGroup parametersOf(const std::string& document, const CameraDescription& camera, const ParameterRules& rules);

}  // namespace workstation
