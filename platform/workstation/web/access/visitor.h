// Who has sent a request that has passed the guards.
#pragma once

#include <libsoup/soup.h>

#include <optional>
#include <string>

#include "platform/workstation/people/role.h"

namespace workstation {

struct Visitor {
  std::string name;  ///< of the person or the token; empty where nobody has to sign in
  Role role = Role::kInstaller;
  bool is_token = false;
};

/// On the server's thread, for a message that an endpoint or a form was given. A stranger, who gets to the addresses
/// that are anybody's, is a carer without a name.
Visitor visitorOf(SoupServerMessage* message);

/// The same, none for a stranger.
std::optional<Visitor> knownVisitorOf(SoupServerMessage* message);

/// For the guards.
void noteVisitor(SoupServerMessage* message, const Visitor& visitor);

}  // namespace workstation
