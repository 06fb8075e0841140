#include "platform/workstation/alarms/call_settings.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "platform/support/owners.h"
#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/utc_text.h"

namespace workstation {
namespace {

using nlohmann::ordered_json;

constexpr int kDay = 24 * 60;
constexpr std::size_t kMostLevels = 5;
constexpr std::size_t kMostReceivers = 10;  // of a level
constexpr std::size_t kMostHours = 8;
constexpr std::size_t kLongestName = 60;
constexpr std::size_t kLongestUrl = 2000;
constexpr std::size_t kShortestSecret = 16;
constexpr std::size_t kLongestSecret = 200;
constexpr std::size_t kLargestFile = 1 << 20;
constexpr const char* kFile = "calls.json";
constexpr const char* kPrevious = "calls.json.before";

[[noreturn]] void refuse(const std::string& line) { throw std::runtime_error(line); }

std::string clockText(int minutes) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%02d:%02d", minutes / 60, minutes % 60);
  return text.data();
}

std::optional<int> minutesFrom(const std::string& text) {
  const auto digit = [&text](std::size_t at) { return text[at] >= '0' && text[at] <= '9' ? text[at] - '0' : 1000; };
  if (text.size() != 5 || text[2] != ':') return std::nullopt;
  const int minutes = (digit(0) * 10 + digit(1)) * 60 + digit(3) * 10 + digit(4);
  return digit(3) < 6 && minutes <= kDay ? std::optional(minutes) : std::nullopt;
}

/// Words that a person has written, with a name for what they are.
std::string wordsOf(const ordered_json& value, const std::string& what, std::size_t shortest, std::size_t longest) {
  std::string words = value.is_string() ? value.get<std::string>() : "";
  const bool is_plain = std::none_of(words.begin(), words.end(), [](char c) { return c >= 0 && c < ' '; });
  if (!value.is_string() || words.size() < shortest || words.size() > longest || !is_plain) {
    refuse(what + " is a text of " + std::to_string(shortest) + " to " + std::to_string(longest) + " bytes");
  }
  return words;
}

void expectKeys(const ordered_json& object, const std::string& where, std::initializer_list<const char*> known) {
  if (!object.is_object()) refuse(where + " is an object");
  for (const auto& item : object.items()) {
    const bool is_known = std::any_of(known.begin(), known.end(), [&](const char* key) { return item.key() == key; });
    if (!is_known) refuse(where + " has no \"" + item.key() + "\"");
  }
}

/// Stays as it is where the document does not say.
void takeSeconds(const ordered_json& object, const std::string& where, const char* key, int least, int most,
                 std::chrono::seconds& seconds) {
  const auto found = object.find(key);
  if (found == object.end()) return;
  if (!found->is_number_integer() || *found < least || *found > most) {
    refuse(where + "." + key + " is a whole number of seconds from " + std::to_string(least) + " to " +
           std::to_string(most));
  }
  seconds = std::chrono::seconds(found->get<int>());
}

std::vector<CallHours> hoursFrom(const ordered_json& list, const std::string& where) {
  if (!list.is_array() || list.size() > kMostHours) {
    refuse(where + " is a list of at most " + std::to_string(kMostHours) + " times of the day");
  }
  std::vector<CallHours> hours;
  hours.reserve(list.size());
  for (const ordered_json& one : list) {
    expectKeys(one, where, {"from", "to"});
    const auto from =
        minutesFrom(one.contains("from") && one["from"].is_string() ? one["from"].get<std::string>() : "");
    const auto to = minutesFrom(one.contains("to") && one["to"].is_string() ? one["to"].get<std::string>() : "");
    if (!from || !to || *from == kDay || *from == *to) {
      refuse(where + R"(: each has "from" and "to", two different times from "00:00" to "24:00")");
    }
    hours.push_back({*from, *to});
  }
  return hours;
}

CallRules rulesFrom(const ordered_json& object, const std::string& where, CallRules rules) {
  constexpr int kHour = 3600;
  expectKeys(object, where, {"delay_s", "hours", "escalate_s", "repeat_s", "coming_s"});
  takeSeconds(object, where, "delay_s", 0, kHour, rules.delay);
  takeSeconds(object, where, "escalate_s", 10, kHour, rules.escalate);
  takeSeconds(object, where, "repeat_s", 10, kHour, rules.repeat);
  takeSeconds(object, where, "coming_s", 0, kHour, rules.coming);
  if (object.contains("hours")) rules.hours = hoursFrom(object["hours"], where + ".hours");
  return rules;
}

/// http or https, to a host, and nothing secret in it: it is shown to whoever may see who is called.
std::string urlFrom(const ordered_json& value, const std::string& where) {
  std::string url = wordsOf(value, where + ".url", 1, kLongestUrl);
  GUri* const parsed = g_uri_parse(url.c_str(), G_URI_FLAGS_NONE, nullptr);
  if (parsed == nullptr) refuse(where + ".url is no address");
  const std::string_view scheme = g_uri_get_scheme(parsed);
  const bool is_web = scheme == "http" || scheme == "https";
  const char* const host = g_uri_get_host(parsed);
  const bool has_host = host != nullptr && *host != '\0';
  const bool is_bare = g_uri_get_userinfo(parsed) == nullptr && g_uri_get_fragment(parsed) == nullptr;
  g_uri_unref(parsed);
  if (!is_web || !has_host) refuse(where + ".url begins with http:// or https:// and a host");
  if (!is_bare) refuse(where + ".url has no user, password or fragment; the signature says who calls");
  return url;
}

std::string secretFrom(const ordered_json& object, const std::string& where, const std::string& name,
                       const CallSettings& before) {
  if (object.contains("secret")) {
    return wordsOf(object["secret"], where + ".secret", kShortestSecret, kLongestSecret);
  }
  for (const auto& level : before.levels) {
    const auto found = std::find_if(level.begin(), level.end(), [&](const auto& one) { return one.name == name; });
    if (found != level.end() && !found->secret.empty()) return found->secret;
  }
  refuse(where + ".secret is needed: what signs the calls, of at least " + std::to_string(kShortestSecret) + " bytes");
}

Receiver receiverFrom(const ordered_json& object, const std::string& where, const CallSettings& before) {
  const std::string kind = object.is_object() && object.contains("kind") && object["kind"].is_string()
                               ? object["kind"].get<std::string>()
                               : "";
  if (kind == "people") {
    expectKeys(object, where, {"kind"});
    return {};
  }
  if (kind != "webhook") refuse(where + R"(.kind is "people" or "webhook")");
  expectKeys(object, where, {"kind", "name", "url", "secret", "secret_set"});
  Receiver receiver{kind};
  receiver.name = wordsOf(object.value("name", ordered_json()), where + ".name", 1, kLongestName);
  receiver.url = urlFrom(object.value("url", ordered_json()), where);
  receiver.secret = secretFrom(object, where, receiver.name, before);
  return receiver;
}

[[noreturn]] void refuseTwice(const std::string& where, const std::string& name) {
  refuse(name.empty() ? "people are called from their level on: name them once"
                      : where + ": there is a receiver \"" + name + "\" already");
}

std::vector<std::vector<Receiver>> levelsFrom(const ordered_json& list, const CallSettings& before) {
  if (!list.is_array() || list.empty() || list.size() > kMostLevels) {
    refuse("levels is a list of 1 to " + std::to_string(kMostLevels) + " levels");
  }
  std::vector<std::vector<Receiver>> levels(list.size());
  std::set<std::string> names;
  for (std::size_t level = 0; level < list.size(); ++level) {
    const std::string where = "levels[" + std::to_string(level) + "]";
    if (!list[level].is_array() || list[level].empty() || list[level].size() > kMostReceivers) {
      refuse(where + " is a list of 1 to " + std::to_string(kMostReceivers) + " receivers");
    }
    for (const ordered_json& one : list[level]) {
      levels[level].push_back(receiverFrom(one, where, before));
      const std::string& name = levels[level].back().name;
      if (!names.insert(name).second) refuseTwice(where, name);
    }
  }
  const auto is_people = [](const Receiver& one) { return one.kind == "people"; };
  if (std::none_of(levels[0].begin(), levels[0].end(), is_people)) {
    refuse(R"(the first level calls the people at the page: {"kind": "people"})");
  }
  return levels;
}

ordered_json documentOf(const CallRules& rules) {
  ordered_json hours = ordered_json::array();
  for (const auto& [from, to] : rules.hours) hours.push_back({{"from", clockText(from)}, {"to", clockText(to)}});
  return {{"delay_s", rules.delay.count()},
          {"hours", hours},
          {"repeat_s", rules.repeat.count()},
          {"escalate_s", rules.escalate.count()},
          {"coming_s", rules.coming.count()}};
}

ordered_json documentOf(const Receiver& receiver, bool with_secrets) {
  if (receiver.kind == "people") return {{"kind", "people"}};
  ordered_json document = {{"kind", receiver.kind}, {"name", receiver.name}, {"url", receiver.url}};
  if (with_secrets) {
    document["secret"] = receiver.secret;
  } else {
    document["secret_set"] = !receiver.secret.empty();
  }
  return document;
}

}  // namespace

bool isWithin(const std::vector<CallHours>& hours, TimeStamp now) {
  const std::tm local = localTime(now);
  const int minute = local.tm_hour * 60 + local.tm_min;
  return std::any_of(hours.begin(), hours.end(), [minute](const CallHours& one) {
    const bool has_begun = minute >= one.from;
    const bool is_before_end = minute < one.to;
    return one.from < one.to ? has_begun && is_before_end : has_begun || is_before_end;
  });
}

std::string documentOf(const CallSettings& settings, bool with_secrets) {
  ordered_json levels = ordered_json::array();
  for (const auto& level : settings.levels) {
    ordered_json receivers = ordered_json::array();
    for (const Receiver& receiver : level) receivers.push_back(documentOf(receiver, with_secrets));
    levels.push_back(std::move(receivers));
  }
  const ordered_json document = {{"events", {{"fall", documentOf(settings.fall)}, {"exit", documentOf(settings.exit)}}},
                                 {"levels", levels}};
  return document.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

CallSettings parseCallSettings(const std::string& document, const CallSettings& before) {
  const ordered_json json = ordered_json::parse(document, nullptr, false);
  if (json.is_discarded()) refuse("the document is no JSON");
  expectKeys(json, "the document", {"events", "levels"});
  CallSettings settings;
  if (json.contains("events")) {
    const ordered_json& events = json["events"];
    expectKeys(events, "events", {"fall", "exit"});
    if (events.contains("fall")) settings.fall = rulesFrom(events["fall"], "events.fall", settings.fall);
    if (events.contains("exit")) settings.exit = rulesFrom(events["exit"], "events.exit", settings.exit);
  }
  if (settings.fall.hours.empty()) refuse("events.fall.hours: a fall has to call at some time of the day");
  if (json.contains("levels")) settings.levels = levelsFrom(json["levels"], before);
  return settings;
}

CallSettings loadCallSettings(const std::filesystem::path& directory, std::string& problem) {
  for (const char* name : {kFile, kPrevious}) {
    try {
      const auto document = readFile(directory / name, kLargestFile);
      if (!document && problem.empty()) break;  // nothing was ever set
      if (document) return parseCallSettings(*document, {});
    } catch (const std::exception& error) {
      if (problem.empty()) problem = std::string(kFile) + " cannot be used: " + error.what();
    }
  }
  return {};
}

void storeCallSettings(const std::filesystem::path& directory, const CallSettings& settings) {
  replaceFile(directory / kFile, documentOf(settings, true) + "\n", directory / kPrevious);
}

}  // namespace workstation
