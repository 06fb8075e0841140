#include "platform/workstation/parameters/parameter_rules.h"

#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <utility>

#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/shown_text.h"

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

/// Begins a line that goes on where the mistake stands.
std::string& beginLine(std::string& lines) { return lines.append(lines.empty() ? "" : "\n"); }

[[noreturn]] void refuse(const std::string& place, const std::string& name, const std::string& why) {
  throw std::runtime_error(place + ": parameters: \"" + shown(name) + "\" " + why);
}

}  // namespace

struct ParameterRules::Entries {
  std::map<std::string, json> by_name;
};

ParameterRules::ParameterRules(const std::filesystem::path& manifest) : m_defaults(manifestDefaults(manifest)) {
  const json document = json::parse(readFile(manifest, kMaxManifestBytes).value_or("{}"));
  auto entries = std::make_unique<Entries>();
  for (const json& entry : document.at("parameters")) entries->by_name.emplace(entry.at("name"), entry);
  m_entries = std::move(entries);
}

ParameterRules::~ParameterRules() = default;

std::string ParameterRules::mistakeIn(const std::string& name, const std::string& value) const {
  const std::string mistake = workstation::mistakeIn(name, value, m_defaults);
  return mistake.empty() ? mistakeBy(m_entries->by_name.at(name), value) : mistake;
}

void ParameterRules::check(const ParameterGroup& group, const std::string& place) const {
  for (const auto& [name, value] : group) {
    if (const std::string mistake = mistakeIn(name, value); !mistake.empty()) refuse(place, name, mistake);
  }
}

bool isSameValue(const std::string& a, const std::string& b) {
  if (a == b) return true;
  const auto number = numberOf(a);
  return number && number == numberOf(b);
}

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
  const ParameterRules rules(manifest);
  std::string mistakes;
  for (const auto& [name, value] : group) {
    const std::string mistake = rules.mistakeIn(name, value);
    if (mistake.empty()) continue;
    beginLine(mistakes).append("--set ").append(name).append("=").append(shown(value)).append(": ").append(mistake);
  }
  if (!mistakes.empty()) throw std::runtime_error(mistakes);
}

void checkRecorded(const ParameterGroup& parameters, const std::filesystem::path& manifest, const std::string& place) {
  const ParameterRules rules(manifest);
  rules.check(parameters, place);
  for (const auto& [name, value] : rules.defaults()) {
    if (!parameters.contains(name))
      refuse(place, name, "is missing; a trace has every parameter of package/manifest.json");
  }
}

}  // namespace workstation
