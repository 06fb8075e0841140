#include "platform/workstation/parameters/settings_document.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

namespace workstation {
namespace {

using nlohmann::json;

constexpr const char* kSettings[] = {"rotation", "mirrored", "product_name", "focal_length_um", "parameters"};
constexpr int kDeepest = 4;
constexpr const char* kDocument = "the document";

/// What is nested deeper is no settings file's; it is refused before it takes the stack.
json parse(const std::string& text) {
  bool too_deep = false;
  json document = json::parse(
      text,
      [&too_deep](int depth, json::parse_event_t, json&) {
        too_deep = too_deep || depth > kDeepest;
        return !too_deep;
      },
      false);
  return too_deep ? json() : document;
}

/// The first line of what() alone.
std::string firstLine(const std::exception& error) {
  const std::string_view lines = error.what();
  return std::string(lines.substr(0, lines.find('\n')));
}

void checkSame(const char* key, bool same) {
  if (same) return;
  throw std::runtime_error(std::string(key) +
                           ": is another here, and cannot be changed while the camera is watched; leave it out, or "
                           "start with ./run --settings FILE");
}

}  // namespace

void layOver(CameraDescription& camera, const std::string& text, const std::string& place) {
  json document = parse(text);
  if (!document.is_object()) throw DescriptionError(place + ": is not a JSON object of settings");
  for (const auto& [key, value] : document.items()) {
    if (std::find(std::begin(kSettings), std::end(kSettings), key) == std::end(kSettings)) {
      std::string mistake = place;
      mistake.append(": ").append(key).append(
          ": is not a setting; allowed are rotation, mirrored, product_name, focal_length_um and parameters");
      throw DescriptionError(mistake);
    }
  }
  document["source"] = "-";
  const std::string composed = document.dump(-1, ' ', false, json::error_handler_t::replace);
  const CameraDescription set = parseCameraDescription(composed, place);
  camera.rotation = document.contains("rotation") ? set.rotation : camera.rotation;
  camera.mirrored = document.contains("mirrored") ? set.mirrored : camera.mirrored;
  camera.product_name = document.contains("product_name") ? set.product_name : camera.product_name;
  camera.focal_length_um = document.contains("focal_length_um") ? set.focal_length_um : camera.focal_length_um;
  for (const auto& [name, value] : set.parameters) camera.parameters.insert_or_assign(name, value);
}

std::string settingsDocument(const Parameters& values) {
  json parameters = json::object();
  for (const auto& [name, value] : values) parameters[name] = value;
  return json{{"parameters", parameters}}.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

ParameterGroup parametersOf(const std::string& document, const CameraDescription& camera, const ParameterRules& rules) {
  CameraDescription wanted = camera;
  wanted.parameters.clear();
  try {
    layOver(wanted, document, kDocument);
  } catch (const DescriptionError& mistakes) {
    throw std::runtime_error(firstLine(mistakes));
  }
  checkSame("rotation", wanted.rotation == camera.rotation);
  checkSame("mirrored", wanted.mirrored == camera.mirrored);
  checkSame("product_name", wanted.product_name == camera.product_name);
  checkSame("focal_length_um", wanted.focal_length_um == camera.focal_length_um);
  rules.check(wanted.parameters, kDocument);
  return wanted.parameters;
}

}  // namespace workstation
