#include "platform/workstation/web/settings_service.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/parameters/changes.h"
#include "platform/workstation/parameters/settings_document.h"
#include "platform/workstation/parameters/stored_parameters.h"
#include "platform/workstation/web/access/visitor.h"

namespace workstation {
namespace {

constexpr const char* kSettings = "/platform/settings";
constexpr const char* kChanges = "/platform/changes";
constexpr std::size_t kUsualChanges = 100;
constexpr std::size_t kMostChanges = 1000;

void answerJson(SoupServerMessage* message, const std::string& document) {
  soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
  soup_server_message_set_response(message, "application/json", SOUP_MEMORY_COPY, document.data(), document.size());
}

void tellSettings(SoupServerMessage* message) {
  soup_message_headers_replace(soup_server_message_get_response_headers(message), "Content-Disposition",
                               "attachment; filename=\"velmor_care.settings.json\"");
  answerJson(message, settingsDocument(currentParameters()));
}

/// None for what is no number from 1 to the most.
std::optional<std::size_t> limitOf(const HttpQuery& query) {
  const auto text = query.find("limit");
  if (text == query.end()) return kUsualChanges;
  std::size_t limit = 0;
  const char* const end = text->second.data() + text->second.size();
  const auto [stop, error] = std::from_chars(text->second.data(), end, limit);
  const bool is_good = error == std::errc() && stop == end && limit >= 1 && limit <= kMostChanges;
  return is_good ? std::optional(limit) : std::nullopt;
}

/// Whoever knows a receiver's whole address may call it where that needs no signature: only installers do.
void hidePaths(std::string& text) {
  constexpr std::string_view kHostBegins = "://";
  for (std::size_t at = 0; (at = text.find(kHostBegins, at)) != std::string::npos;) {
    at = text.find_first_of("/?\"", at + kHostBegins.size());
    if (at == std::string::npos) return;
    const std::size_t end = std::min(text.find('"', at), text.size());
    if (end - at > 1) text.replace(at, end - at, "/...");
  }
}

std::string withoutPaths(const std::string& changes) {
  auto document = nlohmann::ordered_json::parse(changes);
  for (auto& change : document["changes"]) {
    for (const char* key : {"from", "to"}) {
      if (change[key].is_string()) hidePaths(change[key].get_ref<std::string&>());
    }
  }
  return document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void tellChanges(SoupServerMessage* message, const HttpQuery& query) {
  const auto limit = limitOf(query);
  if (!limit) return answerLine(message, SOUP_STATUS_BAD_REQUEST, "limit is a whole number from 1 to 1000");
  const bool is_installer = visitorOf(message).role == Role::kInstaller;
  answerJson(message, is_installer ? changesDocument(*limit) : withoutPaths(changesDocument(*limit)));
}

/// The package's rules, or why there are none.
struct KnownRules {
  explicit KnownRules(const std::filesystem::path& manifest) {
    try {
      rules.emplace(manifest);
    } catch (const std::exception& error) {
      problem = error.what();
    }
  }
  std::optional<ParameterRules> rules;
  std::string problem;
};

void bring(SoupServerMessage* message, const ProgramRequest& request, const KnownRules& known,
           const SettingsTaker& take) {
  const auto refuse = [message](const std::string& line) { answerLine(message, SOUP_STATUS_BAD_REQUEST, line); };
  if (request.query || !request.parameters || !request.parameters->contains("document")) {
    return refuse("Send a form as the body, with the field document: the text of a settings file.");
  }
  if (!known.rules) return answerLine(message, SOUP_STATUS_INTERNAL_SERVER_ERROR, known.problem);
  ParameterGroup settings;
  try {
    settings = parametersOf(request.parameters->find("document")->second, startedCamera(), *known.rules);
  } catch (const std::exception& mistake) {
    return refuse(std::string("Nothing was changed: ") + mistake.what());
  }
  take(message, settings);
}

}  // namespace

void addSettings(HttpServer& server, const std::filesystem::path& manifest, SettingsTaker take) {
  const auto known = std::make_shared<const KnownRules>(manifest);
  server.addEndpoint(kSettings, [](SoupServerMessage* message, const HttpQuery&) { tellSettings(message); });
  server.addEndpoint(kChanges, tellChanges);
  server.addForm(kSettings, [known, take = std::move(take)](SoupServerMessage* message, const ProgramRequest& request) {
    bring(message, request, *known, take);
  });
}

}  // namespace workstation
