// What is set, as a file to keep and to bring back, and who has changed it.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "platform/workstation/parameters/parameter_rules.h"
#include "platform/workstation/web/http_server.h"

namespace workstation {

/// Takes settings over, each of them good, and answers the message, now or later on the server's thread.
using SettingsTaker = std::function<void(SoupServerMessage* message, const ParameterGroup& settings)>;

/// Adds the addresses /platform/settings and /platform/changes (docs/http.md); before the server listens. The manifest
/// is the package's; where it cannot be read, nothing is imported.
void addSettings(HttpServer& server, const std::filesystem::path& manifest, SettingsTaker take);

}  // namespace workstation
