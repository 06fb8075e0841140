// Signing in and out, and the answer to "who am I" (docs/http.md).
#pragma once

#include <memory>

#include "platform/workstation/people/lockout.h"
#include "platform/workstation/web/access/access.h"
#include "platform/workstation/web/http_server.h"

namespace workstation {

/// Adds the address /platform/session; before the server listens. `guesses` judges how often a password may be tried.
void addSession(HttpServer& server, const std::shared_ptr<Access>& access, Lockout guesses = Lockout());

}  // namespace workstation
