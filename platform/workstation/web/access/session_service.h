// Signing in and out, and the answer to "who am I" (docs/http.md).
#pragma once

#include <memory>

#include "platform/workstation/web/access/access.h"
#include "platform/workstation/web/http_server.h"

namespace workstation {

/// Adds the address /platform/session; before the server listens.
void addSession(HttpServer& server, const std::shared_ptr<Access>& access);

}  // namespace workstation
