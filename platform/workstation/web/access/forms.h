// What the services of people have in common: forms that come in the body only, answers in JSON.
#pragma once

#include <libsoup/soup.h>

#include <nlohmann/json_fwd.hpp>
#include <string>

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
std::string fieldOf(const HttpQuery& form, const char* key);

/// Throws Refusal.
Role roleFieldOf(const HttpQuery& form);

Refusal refusalOf(const PeopleRefusal& refused);

void answerDocument(SoupServerMessage* message, const nlohmann::ordered_json& document);

}  // namespace workstation
