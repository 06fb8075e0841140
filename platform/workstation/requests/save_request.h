// Stored parameters as a save's request: the way by which a program that runs takes settings into use.
#pragma once

#include <string>

#include "platform/support/stream_size.h"
#include "platform/workstation/parameters/stored_parameters.h"
#include "platform/workstation/web/http_text.h"

namespace workstation {

/// Whether a save carries a parameter; the program reads others at its start alone.
bool isSaved(const std::string& name);

/// The request that makes the program use and store all of `values`, whose analysis picture has this size. Areas travel
/// as whole percents, so a corner of any other pixel comes to lie on the nearest that there is. The values are good.
HttpQuery saveRequestOf(const Parameters& values, StreamSize picture);

/// Why the program could not calibrate its floor, in one line; empty when it can.
std::string floorProblem(const Parameters& values);

}  // namespace workstation
