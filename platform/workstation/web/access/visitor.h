// Who has sent a request that has passed the guards.
#pragma once

#include <libsoup/soup.h>

#include <string>

#include "platform/workstation/people/role.h"

namespace workstation {

struct Visitor {
  std::string name;  ///< of the person or the token; empty where nobody has to sign in
  Role role = Role::kInstaller;
};

/// On the server's thread, for a message that an endpoint or a form was given.
Visitor visitorOf(SoupServerMessage* message);

}  // namespace workstation
