#include "platform/workstation/web/why_service.h"

#include <exception>
#include <utility>

namespace workstation {
namespace {

constexpr const char* kPath = "/platform/why";

void answer(SoupServerMessage* message, const std::function<std::string()>& explanation) {
  try {
    const std::string document = explanation();
    soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
    soup_server_message_set_response(message, "application/json", SOUP_MEMORY_COPY, document.data(), document.size());
  } catch (const std::exception& exception) {
    answerLine(message, SOUP_STATUS_INTERNAL_SERVER_ERROR, std::string("There is no explanation: ") + exception.what());
  }
}

}  // namespace

void addWhy(HttpServer& server, std::function<std::string()> explanation) {
  server.addEndpoint(kPath, [explanation = std::move(explanation)](SoupServerMessage* message, const HttpQuery&) {
    answer(message, explanation);
  });
}

}  // namespace workstation
