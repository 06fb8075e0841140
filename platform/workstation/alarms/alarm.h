// An alarm: an event has begun, and somebody has to answer. It stays open when the event ends by itself.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/clock/clock.h"

namespace workstation {

enum class AlarmKind { kFall, kExit };
enum class AnswerKind { kComing, kSeen, kFalseAlarm, kResolved };
enum class AlarmState {
  kCalling,
  kHeld,  ///< nobody has been called yet: Alarm::held_why
  kComing,
  kSeen,
  kClosed,
};

constexpr const char* nameOf(AlarmKind kind) { return kind == AlarmKind::kFall ? "fall" : "exit"; }

/// What is not known is as urgent as a fall.
constexpr AlarmKind kindOf(std::string_view event) {
  return event == "Patient Out of Bed" ? AlarmKind::kExit : AlarmKind::kFall;
}

constexpr const char* nameOf(AnswerKind what) {
  switch (what) {
    case AnswerKind::kComing:
      return "coming";
    case AnswerKind::kSeen:
      return "seen";
    case AnswerKind::kFalseAlarm:
      return "false_alarm";
    case AnswerKind::kResolved:
      return "resolved";
  }
  return "";
}

/// None for any other word.
constexpr std::optional<AnswerKind> answerFrom(std::string_view name) {
  for (const AnswerKind what :
       {AnswerKind::kComing, AnswerKind::kSeen, AnswerKind::kFalseAlarm, AnswerKind::kResolved}) {
    if (name == nameOf(what)) return what;
  }
  return std::nullopt;
}

constexpr const char* nameOf(AlarmState state) {
  constexpr const char* kNames[] = {"calling", "held", "coming", "seen", "closed"};
  return kNames[static_cast<std::size_t>(state)];
}

struct Answer {
  AnswerKind what = AnswerKind::kComing;
  bool stored = false;  ///< it is on disk and counts
  std::uint64_t number = 0;
  TimeStamp time;
  std::string by;      ///< empty where nobody signs in
  std::string reason;  ///< in the words of whoever has answered
};

struct Alarm {
  /// Somebody was called.
  struct Call {
    std::uint64_t number;
    int level;
  };

  std::string id;  ///< RUN-SEQ of the change that has raised it
  std::string run;
  std::uint64_t seq = 0;
  std::string event;
  TimeStamp began;
  std::optional<TimeStamp> ended;
  std::optional<TimeStamp> called;              ///< the last time
  std::optional<std::chrono::nanoseconds> due;  ///< of the next call, on AlarmClock::steady()
  std::vector<Call> calls;                      ///< those that have reached a level, and the last one
  std::vector<Answer> answers;
  std::string held_why = {};  ///< "pause", "delay", "hours"; empty when it is not held
  int level = 0;              ///< called so far, from 1 on
  AlarmKind kind = AlarmKind::kFall;
  bool closed_at_start = false;  ///< its end was not seen: a restart has ended the event
  bool coming = false;           ///< somebody is, and it has not been too long yet
  bool seen = false;
  bool done = false;  ///< answered for good
  bool closed = false;

  /// At a level that had been called before: nobody has answered, or come.
  [[nodiscard]] bool wasCalledAgain() const {
    return calls.size() > 1 && calls.back().level <= calls[calls.size() - 2].level;
  }
  [[nodiscard]] AlarmState state() const {
    if (closed) return AlarmState::kClosed;
    if (seen) return AlarmState::kSeen;
    if (coming) return AlarmState::kComing;
    return level > 0 ? AlarmState::kCalling : AlarmState::kHeld;
  }
};

/// Nobody is called for what begins now: somebody is in the room.
struct Pause {
  TimeStamp since;
  TimeStamp until;
  std::chrono::nanoseconds end{0};  ///< on AlarmClock::steady()
  std::string by;
  std::string reason;
};

}  // namespace workstation
