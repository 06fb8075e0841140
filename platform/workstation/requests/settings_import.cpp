#include "platform/workstation/requests/settings_import.h"

#include <nlohmann/json.hpp>

#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/parameters/stored_parameters.h"
#include "platform/workstation/requests/save_request.h"
#include "platform/workstation/system/shown_text.h"

namespace workstation {
namespace {

constexpr std::size_t kLongestText = 4096;  // bytes of a value, for the program
constexpr const char* kDataError = "400";   // the program's status when a save has failed

StreamSize analysisPicture() {
  return startedCamera().rotation % 180 == 0 ? StreamSize{1280, 720} : StreamSize{720, 1280};
}

Parameters laidOver(Parameters values, const ParameterGroup& brought) {
  for (const auto& [name, value] : brought) values.insert_or_assign(name, value);
  return values;
}

/// Why the program cannot take these over while it runs; empty when it can.
std::string problemOf(const Parameters& now, const Parameters& wanted) {
  for (const auto& [name, value] : wanted) {
    const auto before = now.find(name);
    const bool is_same = before != now.end() && isSameValue(before->second, value);
    if (!is_same && !isSaved(name)) {
      return "\"" + shown(name) + "\" is read at a start alone: start with ./run --settings FILE, or leave it out";
    }
    if (value.size() > kLongestText || value.find('\0') != std::string::npos) {
      return "\"" + shown(name) + "\" must be a text of at most " + std::to_string(kLongestText) + " bytes";
    }
  }
  return floorProblem(wanted);
}

std::string bodyOf(const std::optional<std::string>& reply) {
  const auto parsed = reply ? parseCgiReply(*reply) : std::nullopt;
  return parsed ? parsed->body : "";
}

/// How many have changed, and which of them the program holds in another value than was brought.
std::string told(const Parameters& before, const Parameters& wanted, const Parameters& after) {
  nlohmann::ordered_json rounded = nlohmann::ordered_json::object();
  int changed = 0;
  for (const auto& [name, value] : after) {
    const auto was = before.find(name);
    const auto brought = wanted.find(name);
    if (was == before.end() || !isSameValue(was->second, value)) ++changed;
    if (brought != wanted.end() && !isSameValue(brought->second, value)) rounded[name] = value;
  }
  return nlohmann::ordered_json{{"changed", changed}, {"rounded", rounded}}.dump();
}

}  // namespace

ImportAnswer importSettings(const ParameterGroup& brought, const AskProgram& ask) {
  const Parameters before = currentParameters();
  const Parameters wanted = laidOver(before, brought);
  if (std::string problem = problemOf(before, wanted); !problem.empty()) {
    return {400, "Nothing was changed: " + problem};
  }
  if (!ask(saveRequestOf(wanted, analysisPicture()))) {
    return {500, "The settings are in use but could not be stored; the system log says why."};
  }
  if (bodyOf(ask({{"action", "get_status_code"}})) == kDataError) {
    return {500,
            "The settings are stored, but the lens could not be asked: the old floor is in use until the next save."};
  }
  return {200, told(before, wanted, currentParameters())};
}

}  // namespace workstation
