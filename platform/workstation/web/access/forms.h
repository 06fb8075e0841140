// What the page's services have in common: forms that come in the body only, answers in JSON.
#pragma once

#include <libsoup/soup.h>

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "platform/workstation/people/people.h"
#include "platform/workstation/web/http_server.h"

namespace workstation {

/// A request that cannot be followed: a status and a line for whoever asked.
struct Refusal {
  unsigned int status;
  std::string line;
};

/// The request's form. Throws Refusal for one whose secrets stand in its address, which is logged and shown.
const HttpQuery& formOf(const ProgramRequest& request);

/// Empty without one.
std::string fieldOf(const HttpQuery& form, std::string_view key);

/// Throws Refusal.
Role roleFieldOf(const HttpQuery& form);

Refusal refusalOf(const PeopleRefusal& refused);

/// Without line feeds; what is no UTF-8 is replaced.
std::string oneLine(const nlohmann::ordered_json& json);

void answerDocument(SoupServerMessage* message, const nlohmann::ordered_json& document,
                    unsigned int status = SOUP_STATUS_OK);

}  // namespace workstation
