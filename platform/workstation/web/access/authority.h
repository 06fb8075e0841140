// The authority that this machine's certificate comes from, for telephones to take.
#pragma once

#include <filesystem>

#include "platform/workstation/web/http_server.h"

namespace workstation {

/// The server's certificate of the folder goes to the settings, with its names. Throws std::runtime_error with one line
/// for one that cannot be used.
void takeCertificate(const std::filesystem::path& folder, HttpServerSettings& settings);

/// Adds the address /platform/authority.crt; before the server listens. An empty folder has none.
void addAuthority(HttpServer& server, const std::filesystem::path& folder);

}  // namespace workstation
