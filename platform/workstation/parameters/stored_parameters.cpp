#include "platform/workstation/parameters/stored_parameters.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "platform/support/owners.h"
#include "platform/support/package_path.h"
#include "platform/workstation/sight/sight_watch.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

constexpr size_t kMaxFileBytes = 1 << 20;
constexpr size_t kMaxNameLength = 64;
constexpr std::string_view kChecksumMark = "# sha256 of what follows: ";

std::string checksum(std::string_view body) {
  const GLibPtr<gchar> sum(
      g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(body.data()), body.size()));
  return sum.get();
}

/// The text without its checksum line, which must be right.
std::string_view checkedBody(std::string_view text) {
  const size_t end = text.find('\n');
  if (!text.starts_with(kChecksumMark) || end == std::string_view::npos) {
    throw std::runtime_error("it has no checksum line");
  }
  const std::string_view body = text.substr(end + 1);
  if (text.substr(kChecksumMark.size(), end - kChecksumMark.size()) != checksum(body)) {
    throw std::runtime_error("its checksum is wrong");
  }
  return body;
}

/// Files of before there was a memory have no such group.
std::string describedGroup(const std::string& group) { return group + " as described"; }

Parameters groupOf(GKeyFile* keyFile, const std::string& group) {
  const GLibPtr<gchar*> names(g_key_file_get_keys(keyFile, group.c_str(), nullptr, nullptr));
  Parameters values;
  for (gchar** name = names.get(); name != nullptr && *name != nullptr; ++name) {
    CaughtError error;
    const GLibPtr<gchar> value(g_key_file_get_string(keyFile, group.c_str(), *name, error.out()));
    if (value == nullptr) {
      throw std::runtime_error(error.text());
    }
    values.emplace(*name, value.get());
  }
  return values;
}

StoredState parse(std::string_view body, const std::string& group) {
  const GLibPtr<GKeyFile> keyFile(g_key_file_new());
  CaughtError error;
  if (g_key_file_load_from_data(keyFile.get(), body.data(), body.size(), G_KEY_FILE_NONE, error.out()) == FALSE) {
    throw std::runtime_error(error.text());
  }
  if (g_key_file_has_group(keyFile.get(), group.c_str()) == FALSE) {
    throw std::runtime_error("it has no group [" + group + "]");
  }
  return {groupOf(keyFile.get(), group), groupOf(keyFile.get(), describedGroup(group))};
}

void putGroup(GKeyFile* keyFile, const std::string& group, const Parameters& values) {
  for (const auto& [name, value] : values) {
    g_key_file_set_string(keyFile, group.c_str(), name.c_str(), value.c_str());
  }
}

std::string format(const StoredState& state, const std::string& group) {
  const GLibPtr<GKeyFile> keyFile(g_key_file_new());
  g_key_file_set_comment(keyFile.get(), nullptr, nullptr, " Written by the program.", nullptr);
  putGroup(keyFile.get(), group, state.values);
  putGroup(keyFile.get(), describedGroup(group), state.described);
  gsize size = 0;
  const GLibPtr<gchar> data(g_key_file_to_data(keyFile.get(), &size, nullptr));
  const std::string body(data.get(), size);
  return std::string(kChecksumMark) + checksum(body) + "\n" + body;
}

/// Constant at first, so that others may set it before main.
constinit ParametersHook parameters_hook = nullptr;

constinit std::mutex told_mutex;
constinit std::optional<WatchedFor> watched;  ///< under the lock

/// Under the lock. Never destroyed: threads may ask until the process ends.
Parameters& told() {
  static auto& parameters = *new Parameters;
  return parameters;
}

void noteTold(const Parameters& values) {
  const auto isOn = [&values](const std::string& name) {
    const auto found = values.find(name);
    return found != values.end() && found->second == "true";
  };
  const std::scoped_lock lock(told_mutex);
  told() = values;
  watched = {isOn("DetectFallenPersons"), isOn("DetectPatientOutOfBed"), 0};
  for (const char* bed : {"Detection1Active", "Detection2Active", "Detection3Active"})
    watched->beds += isOn(bed) ? 1 : 0;
}

}  // namespace

std::optional<WatchedFor> watchedFor() {
  const std::scoped_lock lock(told_mutex);
  return watched;
}

Parameters currentParameters() {
  const std::scoped_lock lock(told_mutex);
  return told();
}

void setParametersHook(ParametersHook hook) { parameters_hook = hook; }

void tellParameters(const Parameters& values) {
  noteTold(values);
  if (SightWatch* const sight = sightWatch()) sight->setParameters(values);
  if (parameters_hook != nullptr) parameters_hook(values);
}

bool isParameterName(const std::string& name) {
  const auto allowed = [](char c) { return g_ascii_isalnum(c) || c == '.' || c == '-' || c == '_'; };
  return !name.empty() && name.size() <= kMaxNameLength && std::all_of(name.begin(), name.end(), allowed);
}

std::filesystem::path manifestPath(const std::string& app_name) {
  const char* named = std::getenv("VELMOR_MANIFEST");
  return named != nullptr ? named : packagePath("/usr/local/packages/" + app_name + "/manifest.json");
}

Parameters manifestDefaults(const std::filesystem::path& manifest) {
  const auto text = readFile(manifest, kMaxFileBytes);
  if (!text) {
    throw std::runtime_error(manifest.string() + ": the package's manifest is missing");
  }
  const auto json = nlohmann::json::parse(*text, nullptr, false);
  if (!json.is_object() || !json.contains("parameters") || !json["parameters"].is_array()) {
    throw std::runtime_error(manifest.string() + ": is not a manifest: it needs a list \"parameters\"");
  }
  Parameters defaults;
  for (const auto& entry : json["parameters"]) {
    const bool complete = entry.is_object() && entry.contains("name") && entry["name"].is_string() &&
                          entry.contains("default") && entry["default"].is_string();
    if (!complete || !isParameterName(entry["name"])) {
      throw std::runtime_error(manifest.string() +
                               ": parameters: every entry needs the texts \"name\" and \"default\"");
    }
    if (!defaults.emplace(entry["name"], entry["default"]).second) {
      throw std::runtime_error(manifest.string() + ": parameters: \"" + std::string(entry["name"]) + "\" stands twice");
    }
  }
  if (defaults.empty()) {
    throw std::runtime_error(manifest.string() + ": parameters: the list is empty");
  }
  return defaults;
}

StoredState startFrom(StoredState stored, const Parameters& defaults,
                      const std::map<std::string, std::string>& described) {
  stored.values.insert(defaults.begin(), defaults.end());
  for (const auto& [name, value] : described) {
    const auto before = stored.described.find(name);
    if (before == stored.described.end() || before->second != value) {
      stored.values.insert_or_assign(name, value);
    }
  }
  stored.described = Parameters(described.begin(), described.end());
  return stored;
}

StoredParameters::StoredParameters(const std::filesystem::path& directory, std::string group)
    : m_file(directory / "parameters.conf"), m_previous(directory / "parameters.conf.1"), m_group(std::move(group)) {}

std::optional<StoredState> StoredParameters::readGeneration(const std::filesystem::path& path) const {
  const auto text = readFile(path, kMaxFileBytes);
  if (!text) {
    return std::nullopt;
  }
  try {
    return parse(checkedBody(*text), m_group);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(path.string() + ": is damaged: " + error.what());
  }
}

std::optional<StoredState> StoredParameters::load() {
  m_damage.clear();
  try {
    if (auto state = readGeneration(m_file)) {
      return state;
    }
    m_damage = m_file.string() + ": is missing";
  } catch (const std::runtime_error& error) {
    m_damage = error.what();
  }
  std::optional<StoredState> state;
  try {
    state = readGeneration(m_previous);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(m_damage + "; so is the generation before: " + error.what() +
                             "; remove both files to start from the defaults");
  }
  if (!state && !std::filesystem::exists(m_file)) {
    m_damage.clear();
    return std::nullopt;
  }
  if (!state) {
    throw std::runtime_error(m_damage + "; there is no generation before it; remove it to start from the defaults");
  }
  m_damage += "; the values of the generation before are used";
  return state;
}

void StoredParameters::save(const StoredState& state) {
  const std::string text = format(state, m_group);
  if (text.size() > kMaxFileBytes) {
    throw std::runtime_error(m_file.string() + ": cannot hold more than " + std::to_string(kMaxFileBytes) + " bytes");
  }
  const bool damaged = !m_damage.empty();
  replaceFile(m_file, text, damaged ? std::filesystem::path(m_file.string() + ".damaged") : m_previous);
  m_damage.clear();
  if (!std::filesystem::exists(m_previous)) {
    replaceFile(m_previous, text);
  }
}

}  // namespace workstation
