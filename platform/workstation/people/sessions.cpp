#include "platform/workstation/people/sessions.h"

#include <syslog.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "platform/workstation/people/secrets.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

using nlohmann::json;

constexpr const char* kFile = "sessions.json";
constexpr size_t kLimitBytes = 1 << 20;
constexpr size_t kMostSessions = 2000;
/// So often a session's use is written down.
constexpr std::chrono::hours kNoted{24};
constexpr size_t kMostWrites = 64;

std::int64_t secondsOf(TimeStamp time) {
  return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

}  // namespace

Sessions::Sessions(const std::filesystem::path& state, std::function<TimeStamp()> now)
    : m_file(state / kFile), m_now(std::move(now)), m_disk(kMostWrites) {
  try {
    load();
  } catch (const std::exception& error) {
    m_sessions.clear();
    syslog(LOG_WARNING, "%s: who was signed in is not known any more: %s", m_file.c_str(), error.what());
  }
}

void Sessions::load() {
  const auto text = readFile(m_file, kLimitBytes);
  if (!text) return;
  for (const json& entry : json::parse(*text)) {
    // It may be later than now: a machine without a battery starts decades ago, until its clock is set.
    const TimeStamp used{std::chrono::seconds(entry.at("used").get<std::int64_t>())};
    m_sessions[entry.at("hash").get<std::string>()] = {entry.at("name").get<std::string>(),
                                                       entry.at("password").get<std::string>(), used, false};
  }
}

void Sessions::save() {
  json list = json::array();
  for (const auto& [hash, session] : m_sessions) {
    list.push_back(
        {{"hash", hash}, {"name", session.name}, {"password", session.password}, {"used", secondsOf(session.used)}});
  }
  const bool posted = m_disk.post([file = m_file, text = list.dump(1)] {
    try {
      replaceFile(file, text);
    } catch (const std::exception& error) {
      syslog(LOG_WARNING, "who has signed in is not kept for the next start: %s", error.what());
    }
  });
  if (!posted) syslog(LOG_WARNING, "who has signed in is not kept for the next start: the disk does not answer");
}

void Sessions::makeRoom() {
  const TimeStamp now = m_now();
  std::erase_if(m_sessions, [now](const auto& entry) { return now - entry.second.used > kUnused; });
  while (m_sessions.size() >= kMostSessions) {
    m_sessions.erase(std::min_element(m_sessions.begin(), m_sessions.end(),
                                      [](const auto& a, const auto& b) { return a.second.used < b.second.used; }));
  }
}

std::string Sessions::begin(const Person& person) {
  makeRoom();
  std::string secret = randomToken();
  m_sessions[hashToken(secret)] = {person.name, hashToken(person.hash), m_now(), false};
  save();
  return secret;
}

const Person* Sessions::find(const std::string& secret, const Register& all) {
  const auto found = m_sessions.find(hashToken(secret));
  if (found == m_sessions.end()) return nullptr;
  Session& session = found->second;
  const TimeStamp now = m_now();
  const Person* const person = all.person(session.name);
  if (now - session.used > kUnused || person == nullptr) return nullptr;
  if (!session.is_spared && hashToken(person->hash) != session.password) return nullptr;
  if (now - session.used > kNoted) {
    session.used = now;
    save();
  }
  return person;
}

void Sessions::end(const std::string& secret) {
  if (m_sessions.erase(hashToken(secret)) > 0) save();
}

void Sessions::spare(const std::string& secret, bool is_spared) {
  const auto found = m_sessions.find(hashToken(secret));
  if (found != m_sessions.end()) found->second.is_spared = is_spared;
}

}  // namespace workstation
