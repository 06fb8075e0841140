// Where the page of a run will be, and who starts it as whom.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "platform/workstation/launcher/launch_request.h"

namespace workstation {

struct WebAccess {
  std::map<std::string, std::string> environment;  ///< VELMOR_LISTEN and VELMOR_TLS, as far as they apply
  std::optional<std::string> user;                 ///< becomes an installer
  std::string password;                            ///< empty without a user
  std::string notes;                               ///< lines for the terminal
  bool is_reached_by_others = false;               ///< so somebody has to be able to sign in
};

/// What --listen, --tls, --user and --password-file ask for; without them this machine only, on the first free port
/// from 8080 on; in a replay nothing. The password comes from the file, else from VELMOR_PASSWORD, else somebody types
/// it. A certificate that comes to its end is renewed. Throws std::runtime_error with one line, also when the address
/// cannot be had.
WebAccess webAccess(const LaunchRequest& request);

/// Where `./run tls` keeps authority and certificate: for all that this user watches, or below a --state of their own.
std::filesystem::path tlsFolder(const std::optional<std::string>& state);

}  // namespace workstation
