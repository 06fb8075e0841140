#include "platform/workstation/alarms/alarm_book.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace workstation {
namespace {

using Kind = AlarmEntry::Kind;

Alarm raisedBy(const AlarmEntry& entry) {
  Alarm alarm;
  alarm.id = entry.alarm;
  alarm.run = entry.alarm.substr(0, entry.alarm.rfind('-'));
  alarm.seq = seqOf(entry.alarm);
  alarm.event = entry.event;
  alarm.kind = kindOf(entry.event);
  alarm.began = entry.time;
  return alarm;
}

/// Of the calls those stay by which a level was reached, and the last.
void noteCall(Alarm& alarm, const AlarmEntry& entry) {
  auto& calls = alarm.calls;
  if (alarm.wasCalledAgain() && entry.level <= calls.back().level) calls.pop_back();
  calls.push_back({entry.number, entry.level});
  alarm.level = std::max(alarm.level, entry.level);
  alarm.called = entry.time;
  alarm.held_why.clear();
}

void count(Alarm& alarm, Answer& answer) {
  answer.stored = true;
  switch (answer.what) {
    case AnswerKind::kComing:
      alarm.coming = true;
      alarm.seen = false;  // whoever comes after having seen it has to arrive as well
      break;
    case AnswerKind::kSeen:
      alarm.seen = true;
      break;
    case AnswerKind::kFalseAlarm:
    case AnswerKind::kResolved:
      alarm.done = true;
      break;
  }
}

}  // namespace

bool isOver(const Alarm& alarm) { return alarm.done || (alarm.seen && alarm.ended); }

Alarm* AlarmBook::find(const std::string& id) {
  const auto found = m_numbers.find(id);
  return found == m_numbers.end() ? nullptr : &m_alarms.at(found->second);
}

const Alarm* AlarmBook::find(const std::string& id) const {
  const auto found = m_numbers.find(id);
  return found == m_numbers.end() ? nullptr : &m_alarms.at(found->second);
}

void AlarmBook::apply(AlarmEntry entry) {
  entry.number = std::max(entry.number, m_last + 1);  // a clock that was set back
  m_last = entry.number;
  switch (entry.kind) {
    case Kind::kRaised:
      if (find(entry.alarm) != nullptr) return;
      m_numbers[entry.alarm] = entry.number;
      m_alarms.emplace(entry.number, raisedBy(entry));
      m_last_seq = std::max(m_last_seq, seqOf(entry.alarm));
      break;
    case Kind::kPaused:
      m_pause = Pause{entry.time, entry.until, {}, entry.by, entry.reason};
      break;
    case Kind::kUnpaused:
      m_pause.reset();
      break;
    case Kind::kTest:
      break;
    default:
      Alarm* const alarm = find(entry.alarm);
      if (alarm == nullptr) return;
      applyTo(*alarm, entry);
  }
  m_entries.push_back(std::move(entry));
}

void AlarmBook::applyTo(Alarm& alarm, const AlarmEntry& entry) {
  switch (entry.kind) {
    case Kind::kCalled:
      noteCall(alarm, entry);
      break;
    case Kind::kAnswered:
      alarm.answers.push_back({entry.what, false, entry.number, entry.time, entry.by, entry.reason});
      m_unstored.emplace_back(entry.number, alarm.id);
      break;
    case Kind::kLapsed:
      alarm.coming = false;
      break;
    case Kind::kEnded:
      alarm.ended = entry.time;
      alarm.closed_at_start = entry.closed_at_start;
      break;
    case Kind::kClosed:
      alarm.closed = true;
      alarm.held_why.clear();
      alarm.due.reset();
      break;
    default:
      break;
  }
}

std::vector<std::string> AlarmBook::store(std::uint64_t last) {
  std::vector<std::string> counted;
  while (!m_unstored.empty() && m_unstored.front().first <= last) {
    const auto [number, id] = m_unstored.front();
    m_unstored.pop_front();
    Alarm* const alarm = find(id);
    if (alarm == nullptr) continue;
    for (Answer& answer : alarm->answers) {
      if (answer.number == number) count(*alarm, answer);
    }
    counted.push_back(id);
  }
  return counted;
}

void AlarmBook::precede(AlarmBook&& past) {
  std::deque<AlarmEntry> since = std::exchange(m_entries, {});
  const auto waiting = std::exchange(m_unstored, {});
  const AlarmBook now = std::exchange(*this, std::move(past));
  for (AlarmEntry& entry : since) apply(std::move(entry));
  m_last = std::max(m_last, now.m_last);
  m_kept_above = now.m_kept_above;
  for (const auto& [number, alarm] : now.m_alarms) {
    Alarm* const known = find(alarm.id);
    if (known != nullptr) *known = alarm;
  }
  m_unstored = waiting;
  if (now.m_pause) m_pause = now.m_pause;
}

bool AlarmBook::isFor(const AlarmEntry& entry, std::uint64_t begins, int level) const {
  if (entry.kind == Kind::kTest) return true;
  const Alarm* const alarm = find(entry.alarm);
  if (alarm == nullptr || entry.kind == Kind::kRaised) return false;
  if (entry.kind == Kind::kCalled && entry.repeat && alarm->calls.back().number != entry.number) return false;
  if (entry.kind == Kind::kCalled) return entry.level >= level;
  return std::any_of(alarm->calls.begin(), alarm->calls.end(), [&](const Alarm::Call& call) {
    return call.level >= level && call.number > begins && call.number < entry.number;
  });
}

const AlarmEntry* AlarmBook::nextFor(std::uint64_t after, std::uint64_t begins, int level) const {
  auto entry = std::upper_bound(m_entries.begin(), m_entries.end(), std::max(after, begins),
                                [](std::uint64_t number, const AlarmEntry& one) { return number < one.number; });
  for (; entry != m_entries.end(); ++entry) {
    if (isFor(*entry, begins, level)) return &*entry;
  }
  return nullptr;
}

void AlarmBook::keepAbove(std::uint64_t number) {
  m_kept_above = number;
  if (number >= m_last && std::exchange(m_some_waited, false)) m_trim_at = m_limits.entries;
}

std::optional<std::size_t> AlarmBook::trim() {
  if (m_entries.size() <= m_trim_at) return std::nullopt;
  std::size_t untold = 0;
  const std::set<std::string> forgotten = forget(untold);
  const auto about_none = static_cast<std::size_t>(
      std::count_if(m_entries.begin(), m_entries.end(), [](const AlarmEntry& entry) { return entry.alarm.empty(); }));
  std::size_t spare = about_none > m_limits.others ? about_none - m_limits.others : 0;
  std::erase_if(m_entries, [&](const AlarmEntry& entry) {
    if (entry.alarm.empty()) return spare > 0 && spare-- > 0 && !(m_pause && entry.kind == Kind::kPaused);
    if (forgotten.contains(entry.alarm)) return true;
    return entry.repeat && find(entry.alarm)->calls.back().number != entry.number;
  });
  m_trim_at = m_entries.size() + m_limits.entries / 2;
  return untold;
}

/// The ids.
std::set<std::string> AlarmBook::forget(std::size_t& untold) {
  std::set<std::string> waiting;
  for (auto entry = m_entries.rbegin(); entry != m_entries.rend() && entry->number > m_kept_above; ++entry) {
    waiting.insert(entry->alarm);
  }
  auto closed = static_cast<std::size_t>(
      std::count_if(m_alarms.begin(), m_alarms.end(), [](const auto& entry) { return entry.second.closed; }));
  std::set<std::string> forgotten;
  for (auto next = m_alarms.begin(); next != m_alarms.end() && closed > m_limits.closed;) {
    const auto alarm = next++;
    const bool waits = waiting.contains(alarm->second.id);
    if (!alarm->second.closed || (waits && closed <= m_limits.waiting)) continue;
    --closed;
    untold += waits ? 1 : 0;
    m_numbers.erase(alarm->second.id);
    forgotten.insert(alarm->second.id);
    m_alarms.erase(alarm);
  }
  m_some_waited = closed > m_limits.closed;
  return forgotten;
}

}  // namespace workstation
