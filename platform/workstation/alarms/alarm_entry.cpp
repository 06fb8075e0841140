#include "platform/workstation/alarms/alarm_entry.h"

#include <array>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <system_error>

#include "platform/workstation/system/utc_text.h"

namespace workstation {
namespace {

using nlohmann::json;
using Kind = AlarmEntry::Kind;

constexpr std::array kKinds = {Kind::kRaised, Kind::kCalled, Kind::kAnswered, Kind::kLapsed, Kind::kEnded,
                               Kind::kClosed, Kind::kPaused, Kind::kUnpaused, Kind::kTest};
/// Larger numbers are damage: JSON readers lose the last digits of twice as many.
constexpr std::uint64_t kMaxNumber = kMostAlarmNumber;
constexpr int kMaxLevel = 100;

bool isAboutAlarm(Kind kind) { return kind != Kind::kPaused && kind != Kind::kUnpaused && kind != Kind::kTest; }

/// The fields of a line, each of the type asked for or nothing.
class Fields {
 public:
  explicit Fields(const json& line) : m_line(line) {}

  [[nodiscard]] std::string text(const char* key) const {
    const auto found = m_line.find(key);
    return found != m_line.end() && found->is_string() ? found->get<std::string>() : "";
  }
  [[nodiscard]] bool truth(const char* key) const {
    const auto found = m_line.find(key);
    return found != m_line.end() && found->is_boolean() && found->get<bool>();
  }
  [[nodiscard]] std::uint64_t number(const char* key, std::uint64_t largest) const {
    const auto found = m_line.find(key);
    if (found == m_line.end() || !found->is_number_unsigned()) return 0;
    const std::uint64_t number = *found;
    return number > largest ? 0 : number;
  }
  [[nodiscard]] TimeStamp time(const char* key) const {
    constexpr double kMaxSeconds = 9e9;  // a TimeStamp takes no more
    const auto found = m_line.find(key);
    const double seconds = found != m_line.end() && found->is_number() ? found->get<double>() : 0;
    return seconds >= 0 && seconds < kMaxSeconds ? TimeStamp(std::chrono::milliseconds(std::llround(seconds * 1000)))
                                                 : TimeStamp();
  }

 private:
  const json& m_line;
};

std::optional<Kind> kindFrom(const std::string& name) {
  for (const Kind kind : kKinds) {
    if (name == nameOf(kind)) return kind;
  }
  return std::nullopt;
}

void addDetails(nlohmann::ordered_json& line, const AlarmEntry& entry) {
  switch (entry.kind) {
    case Kind::kRaised:
      line["event"] = entry.event;
      break;
    case Kind::kCalled:
      line["level"] = entry.level;
      if (entry.repeat) line["repeat"] = true;
      break;
    case Kind::kAnswered:
      line["what"] = nameOf(entry.what);
      line["by"] = entry.by;
      line["reason"] = entry.reason;
      break;
    case Kind::kEnded:
      if (entry.closed_at_start) line["closed_at_start"] = true;
      break;
    case Kind::kPaused:
      line["until"] = secondsOf(entry.until);
      line["by"] = entry.by;
      line["reason"] = entry.reason;
      break;
    case Kind::kUnpaused:
    case Kind::kTest:
      line["by"] = entry.by;
      break;
    case Kind::kLapsed:
    case Kind::kClosed:
      break;
  }
}

}  // namespace

const char* nameOf(AlarmEntry::Kind kind) {
  constexpr const char* kNames[] = {"raised", "called", "answered", "lapsed", "ended",
                                    "closed", "paused", "unpaused", "test"};
  return kNames[static_cast<std::size_t>(kind)];
}

std::string lineOf(const AlarmEntry& entry) {
  nlohmann::ordered_json line = {{"n", entry.number},
                                 {"run", entry.run},
                                 {"time", utcText(entry.time)},
                                 {"t", secondsOf(entry.time)},
                                 {"kind", nameOf(entry.kind)}};
  if (isAboutAlarm(entry.kind)) line["alarm"] = entry.alarm;
  addDetails(line, entry);
  return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::optional<AlarmEntry> parseAlarmEntry(std::string_view text) {
  const json line = json::parse(text, nullptr, false);
  if (!line.is_object()) return std::nullopt;
  const Fields fields(line);
  const auto kind = kindFrom(fields.text("kind"));
  AlarmEntry entry;
  entry.number = fields.number("n", kMaxNumber);
  entry.run = fields.text("run");
  entry.time = fields.time("t");
  entry.alarm = fields.text("alarm");
  if (!kind || entry.number == 0 || (isAboutAlarm(*kind) && seqOf(entry.alarm) == 0)) return std::nullopt;
  entry.kind = *kind;
  entry.event = fields.text("event");
  entry.level = static_cast<int>(fields.number("level", kMaxLevel));
  entry.repeat = fields.truth("repeat");
  entry.closed_at_start = fields.truth("closed_at_start");
  entry.by = fields.text("by");
  entry.reason = fields.text("reason");
  entry.until = fields.time("until");
  const auto what = answerFrom(fields.text("what"));
  if ((*kind == Kind::kAnswered && !what) || (*kind == Kind::kCalled && entry.level == 0)) return std::nullopt;
  entry.what = what.value_or(AnswerKind::kComing);
  return entry;
}

std::string alarmId(const std::string& run, std::uint64_t seq) { return run + "-" + std::to_string(seq); }

std::uint64_t seqOf(const std::string& id) {
  const std::size_t dash = id.rfind('-');
  std::uint64_t seq = 0;
  if (dash == std::string::npos) return 0;
  const auto [end, error] = std::from_chars(id.data() + dash + 1, id.data() + id.size(), seq);
  return error == std::errc() && end == id.data() + id.size() ? seq : 0;
}

}  // namespace workstation
