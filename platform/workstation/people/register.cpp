#include "platform/workstation/people/register.h"

#include <glib.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

#include "platform/support/owners.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

using nlohmann::json;
using nlohmann::ordered_json;

constexpr const char* kFile = "people.json";
constexpr const char* kPrevious = "people.json.previous";
constexpr size_t kLimitBytes = 4 << 20;
constexpr long kLongestName = 64;  // characters

/// Equal for names that people take for the same.
std::string foldedName(std::string_view name) {
  const auto size = static_cast<gssize>(name.size());
  const GLibPtr<gchar> normal(g_utf8_normalize(name.data(), size, G_NORMALIZE_ALL_COMPOSE));
  if (!normal) return std::string(name);
  const GLibPtr<gchar> folded(g_utf8_casefold(normal.get(), -1));
  return folded.get();
}

[[noreturn]] void refuse(const std::string& what) { throw std::runtime_error(what); }

std::string textIn(const json& entry, const char* key) {
  const auto found = entry.find(key);
  if (found == entry.end() || !found->is_string()) refuse(std::string("an entry has no text \"") + key + "\"");
  return found->get<std::string>();
}

std::string nameIn(const json& entry) {
  const auto name = nameFrom(textIn(entry, "name"));
  if (!name) refuse("a name is none");
  return *name;
}

Role roleIn(const json& entry) {
  const auto role = roleFrom(textIn(entry, "role"));
  if (!role) refuse("a role is none of carer, nurse, installer");
  return *role;
}

Person personFrom(const json& entry) {
  const auto must_change = entry.find("must_change");
  if (must_change == entry.end() || !must_change->is_boolean()) refuse("an entry has no \"must_change\"");
  return {nameIn(entry), textIn(entry, "password"), roleIn(entry), must_change->get<bool>()};
}

Token tokenFrom(const json& entry) {
  return {textIn(entry, "id"), nameIn(entry), textIn(entry, "hash"), textIn(entry, "made"), roleIn(entry)};
}

const json& listIn(const json& document, const char* key) {
  if (!document.is_object() || !document.contains(key) || !document[key].is_array()) {
    refuse(std::string("there is no list \"") + key + "\"");
  }
  return document[key];
}

/// What the program itself never writes is no register.
void check(const Register& all) {
  std::set<std::string> names, ids;
  for (const Person& person : all.people) {
    if (!names.insert(foldedName(person.name)).second) refuse("a name stands there twice");
  }
  for (const Token& token : all.tokens) {
    if (!ids.insert(token.id).second) refuse("a token stands there twice");
  }
  if (std::none_of(all.people.begin(), all.people.end(), [](const Person& p) { return p.role == Role::kInstaller; })) {
    refuse("there is no installer");
  }
}

Register parse(const std::string& text) {
  const json document = json::parse(text, nullptr, false);
  Register all;
  for (const json& entry : listIn(document, "people")) all.people.push_back(personFrom(entry));
  for (const json& entry : listIn(document, "tokens")) all.tokens.push_back(tokenFrom(entry));
  check(all);
  return all;
}

}  // namespace

const Person* Register::person(std::string_view name) const {
  const std::string wanted = foldedName(name);
  const auto found = std::find_if(people.begin(), people.end(),
                                  [&wanted](const Person& person) { return foldedName(person.name) == wanted; });
  return found == people.end() ? nullptr : &*found;
}

Person* Register::person(std::string_view name) {
  return const_cast<Person*>(static_cast<const Register*>(this)->person(name));
}

bool Register::isLastInstaller(const Person& person) const {
  return person.role == Role::kInstaller && std::count_if(people.begin(), people.end(), [](const Person& other) {
                                              return other.role == Role::kInstaller;
                                            }) == 1;
}

std::optional<std::string> nameFrom(std::string_view text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return std::nullopt;
  text = text.substr(first, text.find_last_not_of(' ') - first + 1);
  const auto size = static_cast<gssize>(text.size());
  if (g_utf8_validate(text.data(), size, nullptr) == FALSE || g_utf8_strlen(text.data(), size) > kLongestName) {
    return std::nullopt;
  }
  const char* const end = text.data() + text.size();
  for (const char* next = text.data(); next < end; next = g_utf8_next_char(next)) {
    if (g_unichar_isprint(g_utf8_get_char(next)) == FALSE) return std::nullopt;
  }
  return std::string(text);
}

std::optional<Register> loadRegister(const std::filesystem::path& state) {
  const std::filesystem::path path = state / kFile;
  const auto text = readFile(path, kLimitBytes);
  if (!text) return std::nullopt;
  try {
    return parse(*text);
  } catch (const std::exception& error) {
    throw std::runtime_error(path.string() + ": is damaged (" + error.what() +
                             "), so nobody can sign in; end the program and put " + kPrevious + " in its place, or " +
                             "remove it and start with --user NAME");
  }
}

void saveRegister(const std::filesystem::path& state, const Register& all) {
  check(all);
  ordered_json document = {{"people", ordered_json::array()}, {"tokens", ordered_json::array()}};
  for (const Person& person : all.people) {
    document["people"].push_back({{"name", person.name},
                                  {"role", nameOf(person.role)},
                                  {"password", person.hash},
                                  {"must_change", person.must_change}});
  }
  for (const Token& token : all.tokens) {
    document["tokens"].push_back({{"id", token.id},
                                  {"name", token.name},
                                  {"role", nameOf(token.role)},
                                  {"hash", token.hash},
                                  {"made", token.made}});
  }
  replaceFile(state / kFile, document.dump(1) + "\n", state / kPrevious);
}

}  // namespace workstation
