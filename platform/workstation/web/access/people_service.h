// People and tokens on the page: an installer adds them, changes their roles, removes them (docs/http.md).
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/workstation/web/access/access.h"
#include "platform/workstation/web/http_server.h"

namespace workstation {

/// Told of each change once it counts: by whom, of what ("people.Anna", "token.Wall display"), from what, to what; a
/// role, or empty for not there. On a thread of its own. No secret is ever in it.
using ChangeNoted =
    std::function<void(const std::string& by, const std::string& what, const std::string& from, const std::string& to)>;

/// Adds the address /platform/people; before the server listens.
void addPeople(HttpServer& server, const std::shared_ptr<Access>& access, ChangeNoted noted = {});

}  // namespace workstation
