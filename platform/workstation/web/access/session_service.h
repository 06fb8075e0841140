// Signing in and out, and the answer to "who am I" (docs/http.md).
#pragma once

#include <chrono>
#include <memory>

#include "platform/workstation/people/lockout.h"
#include "platform/workstation/web/access/access.h"
#include "platform/workstation/web/http_server.h"

namespace workstation {

/// Adds the address /platform/session; before the server listens. `guesses` judges how often a password may be tried;
/// for so long after its change of the password a page's session still counts under its old secret.
void addSession(HttpServer& server, const std::shared_ptr<Access>& access, Lockout guesses = Lockout(),
                std::chrono::milliseconds grace = std::chrono::seconds(10));

}  // namespace workstation
