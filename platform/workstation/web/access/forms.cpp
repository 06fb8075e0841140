#include "platform/workstation/web/access/forms.h"

#include <nlohmann/json.hpp>

namespace workstation {

const HttpQuery& formOf(const ProgramRequest& request) {
  if (request.query || !request.parameters) throw Refusal{SOUP_STATUS_BAD_REQUEST, "Send a form as the body."};
  return *request.parameters;
}

std::string fieldOf(const HttpQuery& form, std::string_view key) {
  const auto found = form.find(key);
  return found == form.end() ? "" : found->second;
}

Role roleFieldOf(const HttpQuery& form) {
  const auto role = roleFrom(fieldOf(form, "role"));
  if (!role) throw Refusal{SOUP_STATUS_BAD_REQUEST, "The role is carer, nurse or installer."};
  return *role;
}

Refusal refusalOf(const PeopleRefusal& refused) {
  using Kind = PeopleRefusal::Kind;
  return {refused.kind == Kind::kMistake   ? unsigned{SOUP_STATUS_BAD_REQUEST}
          : refused.kind == Kind::kUnknown ? unsigned{SOUP_STATUS_NOT_FOUND}
                                           : unsigned{SOUP_STATUS_CONFLICT},
          refused.what()};
}

std::string oneLine(const nlohmann::ordered_json& json) {
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void answerDocument(SoupServerMessage* message, const nlohmann::ordered_json& document, unsigned int status) {
  const std::string text = oneLine(document);
  soup_server_message_set_status(message, status, nullptr);
  soup_server_message_set_response(message, "application/json", SOUP_MEMORY_COPY, text.data(), text.size());
}

}  // namespace workstation
