// What the camera saw when its floor was calibrated, and what it sees now: for whoever wonders why it is blind or
// moved.
#pragma once

#include "platform/workstation/web/http_server.h"

namespace workstation {

/// Adds the address /platform/sight; before the server listens. GET: a picture (docs/http.md). POST with action=accept:
/// the camera hangs where it should, and the room as it is seen now counts from now on.
void addSight(HttpServer& server);

}  // namespace workstation
