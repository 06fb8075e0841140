// Somebody has to be able to sign in where other machines reach the page.
#pragma once

#include <filesystem>

#include "platform/workstation/launcher/access/launch_web.h"

namespace workstation {

/// Makes the user who was asked for an installer; without one, and without anybody in the state directory where others
/// reach the page, a first installer, whose password is shown on the terminal once. A list that is damaged or a disk
/// that is full is told, and keeps no patient from being watched. Throws std::runtime_error with one line where there
/// is no terminal to show a password on.
void prepareInstaller(const WebAccess& access, const std::filesystem::path& state);

}  // namespace workstation
