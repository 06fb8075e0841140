// Where the page of a run will be, and who may see it.
#pragma once

#include <map>
#include <string>

#include "platform/workstation/launcher/launch_request.h"

namespace workstation {

struct WebAccess {
  std::map<std::string, std::string> environment;  ///< VELMOR_LISTEN and VELMOR_USER, as far as they apply
  std::string password;                            ///< empty without a user
};

/// What --listen, --user and --password-file ask for; without them this machine only, on the first free port from 8080
/// on; in a replay nothing. The password comes from the file, else from VELMOR_PASSWORD, else somebody types it. Throws
/// std::runtime_error with one line, also when the address cannot be had.
WebAccess webAccess(const LaunchRequest& request);

}  // namespace workstation
