// Why the program decides as it does: sentences about the people and beds seen now, and about each event's changes.
#pragma once

#include <functional>
#include <string>

#include "platform/workstation/web/http_server.h"

namespace workstation {

/// Adds the address /platform/why (docs/http.md); before the server listens. `explanation` gives the JSON document in
/// UTF-8. It is called on the server's thread, which also sends the alarms, so it must not wait for anything; what it
/// throws becomes a status of 500.
void addWhy(HttpServer& server, std::function<std::string()> explanation);

}  // namespace workstation
