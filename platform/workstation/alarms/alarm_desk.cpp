#include "platform/workstation/alarms/alarm_desk.h"

#include <syslog.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "platform/workstation/system/health.h"
#include "platform/workstation/system/signal_mask.h"
#include "platform/workstation/system/utc_text.h"

namespace workstation {
namespace {

using namespace std::chrono_literals;
using Kind = AlarmEntry::Kind;

constexpr auto kLook = 250ms;
constexpr auto kPatienceAtEnd = 2s;
constexpr auto kBetweenTests = 5s;
constexpr std::size_t kClosedShown = 200;

/// At most so many bytes, cut between two characters.
std::string cut(const std::string& words) {
  std::size_t length = std::min(words.size(), kLongestWords);
  while (length > 0 && length < words.size() && (static_cast<unsigned char>(words[length]) & 0xC0U) == 0x80U) --length;
  return words.substr(0, length);
}

/// Above every number that a journal which cannot be read may hold: nobody gives a number each millisecond.
std::uint64_t numberOfThisMoment(TimeStamp now) {
  return static_cast<std::uint64_t>(
      std::max<std::int64_t>(1, std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count()));
}

/// Whether more calls would help nobody: who was out of bed was seen to be back.
bool needsNoCall(const Alarm& alarm) { return alarm.kind == AlarmKind::kExit && alarm.ended && !alarm.closed_at_start; }

std::string nameOrSomebody(const std::string& by) { return by.empty() ? "somebody" : by; }

std::string whyClosed(const Alarm& alarm) {
  const auto last = std::find_if(alarm.answers.rbegin(), alarm.answers.rend(), [](const Answer& answer) {
    return answer.stored && answer.what != AnswerKind::kComing;
  });
  if (last == alarm.answers.rend()) return "It is closed already: it ended by itself before anybody was called.";
  return "It is closed already: " + std::string(nameOf(last->what)) + " by " + nameOrSomebody(last->by) + ".";
}

void noteUntold(std::size_t alarms) {
  if (alarms > 0) ::syslog(LOG_ERR, "%zu alarms are forgotten that receivers were never told of", alarms);
}

}  // namespace

std::shared_ptr<AlarmDesk> AlarmDesk::open(AlarmDeskSettings settings) {
  std::shared_ptr<AlarmDesk> desk(new AlarmDesk(std::move(settings)));
  desk->start();
  return desk;
}

AlarmDesk::AlarmDesk(AlarmDeskSettings settings) : m_settings(std::move(settings)), m_book(m_settings.limits) {}

void AlarmDesk::start() {
  // On the store's thread, as long as there is a desk.
  const auto locked = [weak = weak_from_this()](auto action) {
    return [weak, action](auto&&... told) {
      const auto self = weak.lock();
      if (!self) return;
      const std::scoped_lock lock(self->m_mutex);
      action(*self, std::forward<decltype(told)>(told)...);
    };
  };
  AlarmStore::Hooks hooks;
  hooks.floor = m_settings.floor;
  hooks.calls = locked([](AlarmDesk& desk, StoredCalls calls) { desk.adopt(std::move(calls)); });
  hooks.loaded = locked([](AlarmDesk& desk, AlarmPast past) { desk.adopt(std::move(past)); });
  hooks.written = locked([](AlarmDesk& desk, std::uint64_t number) { desk.count(number); });
  hooks.removed = locked([](AlarmDesk& desk) { desk.m_store->rewrite(desk.m_book.entries()); });
  {
    const std::scoped_lock lock(m_mutex);
    m_store = std::make_unique<AlarmStore>(std::move(hooks), m_settings.limits);
  }
  listenToEvents(*this);
  {
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, m_settings.patience_at_start, [this] { return m_past_known; });
  }
  look();
  if (!m_settings.has_thread) return;
  const ScopedSigtermBlock no_sigterm;
  m_thread = std::thread([this] { run(); });
}

void AlarmDesk::close() {
  stopListeningToEvents(*this);
  {
    const std::scoped_lock lock(m_mutex);
    m_stopping = true;
    m_changed.notify_all();
  }
  if (m_thread.joinable()) m_thread.join();
  if (!m_store->drain(kPatienceAtEnd)) {
    const auto [why, waiting] = m_store->trouble();
    ::syslog(LOG_ERR, "%zu entries about alarms have not been stored: %s", waiting, why.c_str());
  }
  endTrouble(Trouble::kAlarmsNotStored);
}

void AlarmDesk::run() {
  std::unique_lock lock(m_mutex);
  while (!m_stopping) {
    lock.unlock();
    look();
    lock.lock();
    m_changed.wait_for(lock, kLook, [this] { return m_stopping || m_events_new; });
  }
}

// What was.

/// Once, when the disk has told it.
void AlarmDesk::adopt(StoredCalls calls) {
  m_calls = std::move(calls.settings);
  m_calls_problem = std::move(calls.problem);
  m_book.skipTo(calls.floor);
  if (!m_calls_problem.empty()) ::syslog(LOG_ERR, "%s", m_calls_problem.c_str());
  m_calls_known = true;
  for (AlarmListener* listener : m_listeners) listener->onCalls(m_calls);
}

/// The same.
void AlarmDesk::adopt(AlarmPast past) {
  m_watermark = past.book.lastSeq();
  m_book.precede(std::move(past.book));
  if (!past.damage.empty()) ::syslog(LOG_ERR, "%s", past.damage.c_str());
  noteUntold(past.untold);
  std::optional<Pause>& pause = m_book.pause();
  if (pause && pause->end == 0ns) {
    // A clock that was set cannot make it longer than it was meant to be.
    const std::chrono::nanoseconds length =
        std::clamp<std::chrono::nanoseconds>(pause->until - pause->since, 0ns, kLongestPause);
    pause->end = m_settings.clock->steady() + left(length, pause->since);
  }
  for (auto& [number, alarm] : m_book.alarms()) {
    if (!alarm.closed && !alarm.due) takeUp(alarm);
  }
  m_past_known = m_events_new = true;
  ++m_version;
  for (AlarmListener* listener : m_listeners) listener->onPast(m_version);
  m_changed.notify_all();
}

/// What is due for an alarm of a run before: a restart neither begins a time anew nor lets a clock that was set make it
/// longer.
void AlarmDesk::takeUp(Alarm& alarm) {
  const CallRules& rules = m_calls.rules(alarm.kind);
  const auto now = m_settings.clock->steady();
  switch (alarm.state()) {
    case AlarmState::kHeld:
      alarm.due = now + left(rules.delay, alarm.began);
      break;
    case AlarmState::kCalling:
      if (needsNoCall(alarm)) return;
      alarm.due = now + left(alarm.level < m_calls.lastLevel() ? rules.escalate : rules.repeat,
                             alarm.called.value_or(alarm.began));
      break;
    case AlarmState::kComing:
      if (alarm.ended && !alarm.closed_at_start) return;
      for (const Answer& answer : alarm.answers) {
        if (answer.what == AnswerKind::kComing && rules.coming > 0s) alarm.due = now + left(rules.coming, answer.time);
      }
      break;
    case AlarmState::kSeen:
    case AlarmState::kClosed:
      break;
  }
}

std::chrono::nanoseconds AlarmDesk::left(std::chrono::nanoseconds span, TimeStamp since) const {
  return std::clamp<std::chrono::nanoseconds>(span - (m_settings.clock->wall() - since), 0ns, span);
}

/// The journal of events knows what began and ended while nobody here was told: before this start, and between the
/// telling and the writing down of a run that was killed.
void AlarmDesk::reconcile(const EventsNow& now) {
  if (!now.run.empty()) m_run = now.run;
  std::map<std::string, std::string> current;          // event -> alarm
  std::map<std::string, const EventRecord*> unraised;  // event -> a beginning that is history, unless it goes on
  for (const EventRecord& change : now.changes) {
    if (!m_past_known && change.run != now.run) continue;
    const std::string id = alarmId(change.run, change.number);
    if (change.active) {
      current.erase(change.event);
      unraised.erase(change.event);
      const bool is_new = change.number > m_watermark && (m_watermark > 0 || change.run == now.run);
      if (is_new && m_book.find(id) == nullptr) raise(change);
      if (m_book.find(id) != nullptr) {
        current[change.event] = id;
      } else {
        unraised[change.event] = &change;
      }
      continue;
    }
    const auto begun = unraised.extract(change.event);
    if (begun && change.closed_at_start && change.run == now.run) {
      raise(*begun.mapped());
      current[change.event] = alarmId(begun.mapped()->run, begun.mapped()->number);
    }
    const auto ended = current.extract(change.event);
    Alarm* const alarm = ended ? m_book.find(ended.mapped()) : nullptr;
    if (alarm != nullptr && !alarm->ended) end(*alarm, change.time, change.closed_at_start);
  }
  for (const auto& [event, change] : unraised) {
    if (change->run == now.run) raise(*change);
  }
  for (auto& [number, alarm] : m_book.alarms()) {
    if (!alarm.closed && !alarm.ended && !now.run.empty() && alarm.run != now.run) {
      end(alarm, m_settings.clock->wall(), true);
    }
  }
}

// What happens.

void AlarmDesk::onEvent(const EventRecord& record) {
  if (record.kind != "changed") return;
  const std::scoped_lock lock(m_mutex);
  m_run = record.run;
  if (record.active) {
    raise(record);
  } else if (Alarm* const alarm = openOf(record.event)) {
    end(*alarm, record.time, record.closed_at_start);
  }
}

void AlarmDesk::onPast() {
  const std::scoped_lock lock(m_mutex);
  m_events_new = true;
  m_changed.notify_all();
}

/// The last one of this event whose end is not known; it may have been answered for good while it went on.
Alarm* AlarmDesk::openOf(const std::string& event) {
  auto& alarms = m_book.alarms();
  const auto found = std::find_if(alarms.rbegin(), alarms.rend(), [&](const auto& entry) {
    return !entry.second.ended && entry.second.event == event;
  });
  return found == alarms.rend() ? nullptr : &found->second;
}

/// A number for what has happened, and the way to the disk; nobody waits for that.
const AlarmEntry& AlarmDesk::make(AlarmEntry entry) {
  if (!m_past_known) m_book.skipTo(numberOfThisMoment(m_settings.clock->wall()) - 1);
  entry.number = m_book.last() + 1;
  entry.run = m_run;
  m_store->append(entry);
  m_book.apply(std::move(entry));
  const AlarmEntry& made = m_book.entries().back();
  for (AlarmListener* listener : m_listeners) listener->onEntry(made);
  return made;
}

void AlarmDesk::raise(const EventRecord& record) {
  AlarmEntry entry{.kind = Kind::kRaised, .time = record.time, .alarm = alarmId(record.run, record.number)};
  const std::string id = entry.alarm;
  if (seqOf(id) == 0 || m_book.find(id) != nullptr) return;
  entry.event = record.event;
  make(std::move(entry));
  Alarm& alarm = *m_book.find(id);
  alarm.due = m_settings.clock->steady() + left(m_calls.rules(alarm.kind).delay, alarm.began);
  decide(alarm);
}

void AlarmDesk::end(Alarm& alarm, TimeStamp time, bool closed_at_start) {
  make({.kind = Kind::kEnded, .time = time, .alarm = alarm.id, .closed_at_start = closed_at_start});
  // A fall during a pause or within its delay is one all the same: who is out of sight may need help. What else was
  // over before anybody was called calls nobody.
  const bool is_fall = alarm.kind == AlarmKind::kFall;
  const bool waits =
      closed_at_start || (is_fall && isWithin(m_calls.rules(alarm.kind).hours, m_settings.clock->wall()));
  const bool was_uncalled = alarm.state() == AlarmState::kHeld && !waits;
  if (!alarm.closed && (was_uncalled || isOver(alarm))) return close(alarm);
  if (needsNoCall(alarm) || (alarm.coming && !closed_at_start)) alarm.due.reset();
  tell(alarm);
}

void AlarmDesk::close(Alarm& alarm) {
  make({.kind = Kind::kClosed, .time = m_settings.clock->wall(), .alarm = alarm.id});
  tell(alarm);
}

void AlarmDesk::call(Alarm& alarm, int level, bool repeat) {
  const CallRules& rules = m_calls.rules(alarm.kind);
  make({.kind = Kind::kCalled, .time = m_settings.clock->wall(), .alarm = alarm.id, .level = level, .repeat = repeat});
  alarm.due = m_settings.clock->steady() + (level < m_calls.lastLevel() ? rules.escalate : rules.repeat);
  tell(alarm);
}

/// Whether it is time for the first call.
void AlarmDesk::decide(Alarm& alarm) {
  std::string why = holds(alarm);
  if (why.empty()) return call(alarm, 1, false);
  if (alarm.held_why == why) return;
  alarm.held_why = std::move(why);
  tell(alarm);
}

std::string AlarmDesk::holds(const Alarm& alarm) const {
  if (m_book.pause()) return "pause";
  if (alarm.due && m_settings.clock->steady() < *alarm.due) return "delay";
  const bool was_within = alarm.kind == AlarmKind::kFall && alarm.ended && !alarm.closed_at_start;  // else it is closed
  return was_within || isWithin(m_calls.rules(alarm.kind).hours, m_settings.clock->wall()) ? "" : "hours";
}

/// Answers whose line is on disk count.
void AlarmDesk::count(std::uint64_t number) {
  for (const std::string& id : m_book.store(number)) {
    Alarm& alarm = *m_book.find(id);
    const auto coming = m_calls.rules(alarm.kind).coming;
    if (!alarm.closed && isOver(alarm)) {
      close(alarm);
      continue;
    }
    if (alarm.state() == AlarmState::kSeen || alarm.state() == AlarmState::kComing) alarm.due.reset();
    if (alarm.state() == AlarmState::kComing && coming > 0s && (!alarm.ended || alarm.closed_at_start)) {
      alarm.due = m_settings.clock->steady() + coming;
    }
    tell(alarm);
  }
  for (AlarmListener* listener : m_listeners) listener->onStored(number);
}

// What time brings.

void AlarmDesk::look() {
  bool compares = false;
  {
    const std::scoped_lock lock(m_mutex);
    compares = std::exchange(m_events_new, false);
  }
  const EventsNow now = compares ? eventsNow() : EventsNow();  // the hub is asked without the lock
  const std::scoped_lock lock(m_mutex);
  if (compares) reconcile(now);
  lookAtPause();
  for (auto& [number, alarm] : m_book.alarms()) {
    if (!alarm.closed) lookAt(alarm);
  }
  bound();
  trim();
  m_store->retry();
  reportTrouble();
}

void AlarmDesk::trim() {
  const auto untold = m_book.trim();
  if (!untold) return;
  noteUntold(*untold);
  m_store->rewrite(m_book.entries());
}

void AlarmDesk::lookAt(Alarm& alarm) {
  if (isOver(alarm)) return close(alarm);  // stored by a run that was killed before it closed it
  const bool is_due = alarm.due && m_settings.clock->steady() >= *alarm.due;
  switch (alarm.state()) {
    case AlarmState::kHeld:
      decide(alarm);
      break;
    case AlarmState::kCalling:
      if (is_due)
        call(alarm, std::min(alarm.level + 1, std::max(alarm.level, m_calls.lastLevel())),
             alarm.level >= m_calls.lastLevel());
      break;
    case AlarmState::kComing:
      if (!is_due) break;
      make({.kind = Kind::kLapsed, .time = m_settings.clock->wall(), .alarm = alarm.id});
      if (alarm.level == 0) {
        alarm.held_why.clear();  // whatever it is, it is told
        decide(alarm);
      } else {
        call(alarm, alarm.level, false);
      }
      break;
    case AlarmState::kSeen:
    case AlarmState::kClosed:
      break;
  }
}

void AlarmDesk::lookAtPause() {
  if (!m_book.pause() || m_settings.clock->steady() < m_book.pause()->end) return;
  make({.kind = Kind::kUnpaused, .time = m_settings.clock->wall()});
  tellPause();
}

/// Of too many that nobody answers the oldest is closed, one that is over before one that is not.
void AlarmDesk::bound() {
  std::vector<Alarm*> open;
  open.reserve(m_book.alarms().size());
  for (auto& [number, alarm] : m_book.alarms()) {
    if (!alarm.closed) open.push_back(&alarm);
  }
  if (open.size() <= kMostOpen) return;
  const auto over = std::find_if(open.begin(), open.end(), [](const Alarm* alarm) { return alarm->ended.has_value(); });
  Alarm& oldest = over == open.end() ? *open.front() : **over;
  ::syslog(LOG_ERR, "more than %zu alarms wait for an answer: that of %s is closed without one", kMostOpen,
           utcText(oldest.began).c_str());
  close(oldest);
}

void AlarmDesk::reportTrouble() {
  const auto [why, waiting] = m_store->trouble();
  if (why.empty()) {
    m_unstored_since.reset();
    return endTrouble(Trouble::kAlarmsNotStored);
  }
  if (!m_unstored_since) {
    m_unstored_since = m_settings.clock->wall();
    ::syslog(LOG_ERR, "%s; alarms call all the same and are stored later", why.c_str());
  }
  const std::string plain = why.substr(why.rfind('/', why.find(": ")) + 1);  // no folders
  workstation::reportTrouble(Trouble::kAlarmsNotStored,
                             "Since " + localClock(*m_unstored_since) +
                                 " alarms call, but they and the answers to them are not "
                                 "stored (" +
                                 std::to_string(waiting) + " waiting): " + plain + "." +
                                 (m_calls_known ? "" : " Nobody outside is called meanwhile."));
}

// What people do.

DeskReply AlarmDesk::answer(const std::string& id, AnswerKind what, const std::string& by, const std::string& reason) {
  const std::scoped_lock lock(m_mutex);
  Alarm* const alarm = m_book.find(id);
  if (alarm == nullptr) return {DeskReply::How::kUnknown, 0, "There is no such alarm any more."};
  if (alarm->closed) return {DeskReply::How::kRefused, 0, whyClosed(*alarm)};
  const bool is_last = what == AnswerKind::kFalseAlarm || what == AnswerKind::kResolved;
  if (alarm->answers.size() >= (is_last ? 2 * kMostAnswers : kMostAnswers)) {
    return {DeskReply::How::kRefused, 0, "It has many answers already: resolve it, or call it a false alarm."};
  }
  const std::uint64_t number = make({.kind = Kind::kAnswered,
                                     .time = m_settings.clock->wall(),
                                     .alarm = id,
                                     .what = what,
                                     .by = cut(by),
                                     .reason = cut(reason)})
                                   .number;
  tell(*alarm);
  return {DeskReply::How::kTaken, number};
}

DeskReply AlarmDesk::pause(std::chrono::minutes length, const std::string& by, const std::string& reason) {
  const std::scoped_lock lock(m_mutex);
  if (length < kShortestPause || length > kLongestPause) {
    return {DeskReply::How::kRefused, 0, "A pause lasts 5 to 60 minutes."};
  }
  const TimeStamp now = m_settings.clock->wall();
  const std::uint64_t number =
      make({.kind = Kind::kPaused, .time = now, .by = cut(by), .reason = cut(reason), .until = now + length}).number;
  m_book.pause()->end = m_settings.clock->steady() + length;
  tellPause();
  return {DeskReply::How::kTaken, number};
}

DeskReply AlarmDesk::unpause(const std::string& by) {
  const std::scoped_lock lock(m_mutex);
  if (!m_book.pause()) return {DeskReply::How::kRefused, 0, "There is no pause; it may have ended by itself."};
  const std::uint64_t number = make({.kind = Kind::kUnpaused, .time = m_settings.clock->wall(), .by = cut(by)}).number;
  tellPause();
  for (auto& [raised, alarm] : m_book.alarms()) {
    if (!alarm.closed) lookAt(alarm);
  }
  return {DeskReply::How::kTaken, number};
}

DeskReply AlarmDesk::test(const std::string& by) {
  const std::scoped_lock lock(m_mutex);
  const TimeStamp now = m_settings.clock->wall();
  if (m_test && now >= m_test->time && now - m_test->time < kBetweenTests) {
    return {DeskReply::How::kRefused, 0, "A test has been sent just now; look at what came of it first."};
  }
  m_test = make({.kind = Kind::kTest, .time = now, .by = cut(by)});
  return {DeskReply::How::kTaken, m_test->number};
}

// Who listens and asks.

void AlarmDesk::listen(AlarmListener& listener) {
  const std::scoped_lock lock(m_mutex);
  m_listeners.push_back(&listener);
}

void AlarmDesk::stopListening(AlarmListener& listener) {
  const std::scoped_lock lock(m_mutex);
  std::erase(m_listeners, &listener);
}

void AlarmDesk::tell(const Alarm& alarm) {
  ++m_version;
  for (AlarmListener* listener : m_listeners) listener->onAlarm(viewOf(alarm), m_version);
}

void AlarmDesk::tellPause() {
  ++m_version;
  for (AlarmListener* listener : m_listeners) listener->onPause(m_book.pause(), m_version);
}

/// Only what waits for nothing but time has a next call.
AlarmView AlarmDesk::viewOf(const Alarm& alarm) const {
  const bool is_held = alarm.state() == AlarmState::kHeld && alarm.held_why != "delay";
  if (!alarm.due || is_held) return {alarm, std::nullopt};
  return {alarm, m_settings.clock->wall() + (*alarm.due - m_settings.clock->steady())};
}

AlarmsNow AlarmDesk::now() const {
  const std::scoped_lock lock(m_mutex);
  AlarmsNow now{m_settings.clock->wall(), m_run, m_version, {}, m_book.pause(), m_test};
  std::vector<AlarmView> closed;
  const auto& alarms = m_book.alarms();
  std::for_each(alarms.rbegin(), alarms.rend(), [&](const auto& entry) {
    const Alarm& alarm = entry.second;
    if (!alarm.closed) {
      now.alarms.push_back(viewOf(alarm));
    } else if (closed.size() < kClosedShown) {
      closed.push_back(viewOf(alarm));
    }
  });
  now.alarms.insert(now.alarms.end(), std::make_move_iterator(closed.begin()), std::make_move_iterator(closed.end()));
  return now;
}

std::optional<AlarmView> AlarmDesk::alarm(const std::string& id) const {
  const std::scoped_lock lock(m_mutex);
  const Alarm* const alarm = m_book.find(id);
  return alarm == nullptr ? std::nullopt : std::optional(viewOf(*alarm));
}

CallSettings AlarmDesk::calls() const {
  const std::scoped_lock lock(m_mutex);
  return m_calls;
}

std::string AlarmDesk::callsProblem() const {
  const std::scoped_lock lock(m_mutex);
  return m_calls_problem;
}

void AlarmDesk::setCalls(const CallSettings& calls, std::function<void(const std::string&)> done) {
  m_store->storeCalls(calls, [weak = weak_from_this(), calls, done = std::move(done)](const std::string& failure) {
    if (const auto self = weak.lock(); self && failure.empty()) {
      const std::scoped_lock lock(self->m_mutex);
      self->m_calls = calls;
      self->m_calls_problem.clear();
      for (AlarmListener* listener : self->m_listeners) listener->onCalls(calls);
    }
    done(failure);
  });
}

std::uint64_t AlarmDesk::lastNumber() const {
  const std::scoped_lock lock(m_mutex);
  return m_book.last();
}

std::optional<std::uint64_t> AlarmDesk::firstOpen() const {
  const std::scoped_lock lock(m_mutex);
  const auto& alarms = m_book.alarms();
  const auto open = std::find_if(alarms.begin(), alarms.end(), [](const auto& entry) { return !entry.second.closed; });
  return open == alarms.end() ? std::nullopt : std::optional(open->first);
}

bool AlarmDesk::isPastKnown() const {
  const std::scoped_lock lock(m_mutex);
  return m_past_known;
}

bool AlarmDesk::areCallsKnown() const {
  const std::scoped_lock lock(m_mutex);
  return m_calls_known;
}

void AlarmDesk::keepAbove(std::uint64_t number) {
  const std::scoped_lock lock(m_mutex);
  m_book.keepAbove(number);
}

std::optional<AlarmDesk::Outgoing> AlarmDesk::nextFor(std::uint64_t after, std::uint64_t begins, int level) const {
  const std::scoped_lock lock(m_mutex);
  const AlarmEntry* const entry = m_book.nextFor(after, begins, level);
  if (entry == nullptr) return std::nullopt;
  const Alarm* const alarm = m_book.find(entry->alarm);
  return Outgoing{*entry, alarm == nullptr ? std::nullopt : std::optional(*alarm)};
}

}  // namespace workstation
