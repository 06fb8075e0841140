#include "platform/workstation/launcher/parameter_rules.h"

#include <cmath>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

using nlohmann::json;

constexpr std::size_t kMaxManifestBytes = std::size_t{1} << 20;

std::optional<double> numberOf(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  const bool is_number = !text.empty() && end == text.c_str() + text.size() && std::isfinite(value);
  return is_number ? std::optional(value) : std::nullopt;
}

bool isSwitch(const std::string& text) { return text == "true" || text == "false"; }

/// What is wrong with a parameter, nothing if it is good. The kind of its default is the kind of its value: the program
/// would take anything else for 0 or false without a word.
std::string mistakeIn(const std::string& name, const std::string& value, const Parameters& defaults) {
  const auto fallback = defaults.find(name);
  if (fallback == defaults.end()) return "is not a parameter; allowed are those of package/manifest.json";
  if (isSwitch(fallback->second) && !isSwitch(value)) return "must be \"true\" or \"false\"";
  if (numberOf(fallback->second) && !numberOf(value)) return "must be a number, as text";
  return "";
}

/// What the manifest's entry says against a value of the right kind.
std::string mistakeBy(const json& entry, const std::string& value) {
  const auto number = numberOf(value);
  if (!number || !entry.contains("min") || !entry.contains("max")) return "";
  const json& min = entry["min"];
  const json& max = entry["max"];
  if (!min.is_number() || !max.is_number()) return "";
  const bool must_be_whole = entry.value("type", json()) == "int";
  if (*number >= min && *number <= max && !(must_be_whole && *number != std::floor(*number))) return "";
  return std::string("must be a ") + (must_be_whole ? "whole " : "") + "number from " + min.dump() + " to " +
         max.dump();
}

/// The manifest's entries by name; a manifest that cannot be read has been refused before.
std::map<std::string, json> entriesOf(const std::filesystem::path& manifest) {
  const json document = json::parse(readFile(manifest, kMaxManifestBytes).value_or("{}"));
  std::map<std::string, json> entries;
  for (const json& entry : document.at("parameters")) entries.emplace(entry.at("name"), entry);
  return entries;
}

/// What is wrong with a value by its default's kind and by the manifest's limits.
std::string anyMistakeIn(const std::string& name, const std::string& value, const Parameters& defaults,
                         const std::map<std::string, json>& entries) {
  const std::string mistake = mistakeIn(name, value, defaults);
  return mistake.empty() ? mistakeBy(entries.at(name), value) : mistake;
}

/// Begins a line that goes on where the mistake stands.
std::string& beginLine(std::string& lines) { return lines.append(lines.empty() ? "" : "\n"); }

}  // namespace

void checkParameters(const ParameterGroup& parameters, const Parameters& defaults, const std::string& place) {
  std::string mistakes;
  for (const auto& [name, value] : parameters) {
    const std::string mistake = mistakeIn(name, value, defaults);
    if (mistake.empty()) continue;
    beginLine(mistakes).append(place).append(": parameters: \"").append(name).append("\" ").append(mistake);
  }
  if (!mistakes.empty()) throw std::runtime_error(mistakes);
}

void checkSet(const ParameterGroup& group, const std::filesystem::path& manifest) {
  const Parameters defaults = manifestDefaults(manifest);
  const std::map<std::string, json> entries = entriesOf(manifest);
  std::string mistakes;
  for (const auto& [name, value] : group) {
    const std::string mistake = anyMistakeIn(name, value, defaults, entries);
    if (mistake.empty()) continue;
    beginLine(mistakes).append("--set ").append(name).append("=").append(shown(value)).append(": ").append(mistake);
  }
  if (!mistakes.empty()) throw std::runtime_error(mistakes);
}

void checkRecorded(const ParameterGroup& parameters, const std::filesystem::path& manifest, const std::string& place) {
  const Parameters defaults = manifestDefaults(manifest);
  const std::map<std::string, json> entries = entriesOf(manifest);
  const auto refuse = [&place](const std::string& name, const std::string& why) {
    throw std::runtime_error(place + ": parameters: \"" + shown(name) + "\" " + why);
  };
  for (const auto& [name, value] : parameters) {
    if (const std::string mistake = anyMistakeIn(name, value, defaults, entries); !mistake.empty()) {
      refuse(name, mistake);
    }
  }
  for (const auto& [name, value] : defaults) {
    if (!parameters.contains(name)) refuse(name, "is missing; a trace has every parameter of package/manifest.json");
  }
}

}  // namespace workstation
