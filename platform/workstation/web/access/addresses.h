// Every address of the server, and who may ask for it. docs/http.md shows the same table, and a test compares them.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "platform/workstation/people/role.h"
#include "platform/workstation/web/http_text.h"

namespace workstation {

struct AddressRule {
  std::string_view methods;    ///< "GET", "POST" or both, "GET, POST"; HEAD is a GET
  std::string_view path;       ///< with a "*" at its end: whatever begins so, but no program (*.cgi)
  std::string_view parameter;  ///< "action=get_status_code": the rule is for requests that say so once; empty: for all
  std::optional<Role> least;   ///< none: anybody, signed in or not
};

/// Of two rules for a path the first that fits counts.
std::span<const AddressRule> addressRules();

/// What a request asks for, in the form in which it will be obeyed.
struct AskedAddress {
  std::string_view method, path;
  std::optional<std::string_view> form;  ///< the text that is obeyed: of the body or of the query
  const HttpQuery* parameters;           ///< of that; null without any, and for a text that is no form
};

/// Who may ask so; none is anybody. What stands in no rule is for installers.
std::optional<Role> leastRole(const AskedAddress& asked);

}  // namespace workstation
