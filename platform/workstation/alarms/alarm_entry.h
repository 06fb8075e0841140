// The journal of alarms, alarms.jsonl: what has happened to alarms, a line each. What a line says has been told
// already, but for answers: those count once their line is on disk.
//
// {"n": 12, "run": "9f2c41d07b3e5a18", "time": "2026-03-01T12:00:31.500Z", "t": 1772366431.5, "kind": "raised",
//  "alarm": "9f2c41d07b3e5a18-7", "event": "Fall Detected"}
// {"n": 13, ..., "kind": "called", "alarm": ..., "level": 1}                            again at one level: "repeat":
// true
// {"n": 14, ..., "kind": "answered", "alarm": ..., "what": "coming", "by": "Anna", "reason": ""}
// {"n": 15, ..., "kind": "lapsed", "alarm": ...}                                            who was coming has not come
// {"n": 16, ..., "kind": "ended", "alarm": ...}                               by a restart: "closed_at_start": true
// {"n": 17, ..., "kind": "closed", "alarm": ...}
// {"n": 18, ..., "kind": "paused", "until": 1772367000.0, "by": "Anna", "reason": ""}
// {"n": 19, ..., "kind": "unpaused", "by": ""}                                              nobody: it ended by itself
// {"n": 20, ..., "kind": "test", "by": "Anna"}
//
// Numbers rise by one within a run, and as far as can be known over runs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/workstation/alarms/alarm.h"

namespace workstation {

struct AlarmEntry {
  enum class Kind { kRaised, kCalled, kAnswered, kLapsed, kEnded, kClosed, kPaused, kUnpaused, kTest };

  Kind kind = Kind::kTest;
  std::uint64_t number = 0;
  std::string run = {};  ///< whose number it is
  TimeStamp time = {};
  std::string alarm = {};  ///< the id; empty for what is about none
  std::string event = {};
  int level = 0;
  bool repeat = false;
  bool closed_at_start = false;
  AnswerKind what = AnswerKind::kComing;
  std::string by = {};
  std::string reason = {};
  TimeStamp until = {};
};

/// "raised", "called", ...
const char* nameOf(AlarmEntry::Kind kind);

/// Names and reasons have so many bytes at most, so that a line holds them.
inline constexpr std::size_t kLongestWords = 500;
inline constexpr std::size_t kLongestAlarmLine = 8192;
inline constexpr std::uint64_t kMostAlarmNumber = std::uint64_t{1} << 52;

/// With its line feed.
std::string lineOf(const AlarmEntry& entry);
/// None for what is no line of ours.
std::optional<AlarmEntry> parseAlarmEntry(std::string_view text);

/// "RUN-SEQ"
std::string alarmId(const std::string& run, std::uint64_t seq);
/// The number in it; 0 for what is no id.
std::uint64_t seqOf(const std::string& id);

}  // namespace workstation
