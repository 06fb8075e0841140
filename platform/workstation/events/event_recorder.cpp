#include "platform/workstation/events/event_recorder.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <iterator>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/workstation/events/event_hub.h"
#include "platform/workstation/system/health.h"
#include "platform/workstation/system/signal_mask.h"
#include "platform/workstation/system/state_directory.h"
#include "platform/workstation/system/utc_text.h"
#include "platform/workstation/trace/trace_event.h"

namespace workstation {
namespace {

using namespace std::chrono_literals;

constexpr auto kPatienceAtStart = 2s;
constexpr auto kPatienceAtEnd = 2s;
constexpr auto kPatienceAtReplaysEnd = 10s;
/// Between two tries of what has failed.
constexpr auto kPause = 1s;
constexpr auto kPauseAtEnd = 100ms;
/// A disk that takes longer does not answer.
constexpr auto kLongestAnswer = 3s;
/// What an alarm waits for its number to be noted, once: on a disk that answers it takes microseconds.
constexpr auto kPatienceForMark = 50ms;
constexpr auto kLook = 1s;
constexpr std::size_t kLargestBatch = 64;
constexpr std::size_t kMostMarksWaiting = 16;
/// Below the first number of a run that began without its journal: for what that run has to close.
constexpr std::uint64_t kReserved = 100;

std::string randomId() {
  std::random_device random;
  std::array<char, 17> id{};
  std::snprintf(id.data(), id.size(), "%08x%08x", random(), random());
  return id.data();
}

/// Above every number that a journal which cannot be read may hold, as long as the machine's clock is right: nobody
/// gives a number each millisecond.
std::uint64_t numberOfThisMoment() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

struct Living {
  std::mutex mutex;
  std::set<std::shared_ptr<EventRecorder>> recorders;
};

Living& living() {
  static auto& the_living = *new Living;  // never destroyed: the process's end asks
  return the_living;
}

TimeStamp lastCycle(const Health& health) {
  return ticker_clock::now() - health.cycle_age.value_or(std::chrono::nanoseconds(0));
}

/// The trouble by which nobody is watched: while pictures are analysed that of the camera's sight, else what keeps them
/// away; null for none.
const Health::Wrong* unwatchedBy(const Health& health, bool cycling) {
  const Health::Wrong* found = nullptr;
  for (const Health::Wrong& wrong : health.wrong) {
    const bool is_away = wrong.what == Trouble::kCameraAway;
    const bool is_of_cycles = is_away || wrong.what == Trouble::kAnalysisStandsStill;
    if (!blinds(wrong.what) || is_of_cycles == cycling) continue;
    if (found == nullptr || is_away) found = &wrong;
  }
  return found;
}

}  // namespace

std::shared_ptr<EventRecorder> EventRecorder::begin(Closed closed, std::size_t most_unwritten) {
  std::shared_ptr<EventRecorder> recorder(new EventRecorder(std::move(closed), most_unwritten));
  {
    const std::scoped_lock lock(living().mutex);
    living().recorders.insert(recorder);
  }
  recorder->start();
  return recorder;
}

EventRecorder::EventRecorder(Closed closed, std::size_t most_unwritten)
    : m_started(ticker_clock::now()),
      m_run(randomId()),
      m_closed(std::move(closed)),
      m_most_unwritten(most_unwritten),
      m_marking(kMostMarksWaiting) {}

void EventRecorder::start() {
  resetEvents(m_run);
  std::unique_lock lock(m_mutex);
  {
    const ScopedSigtermBlock no_sigterm;
    m_threads = 2;
    std::thread([self = shared_from_this()] { self->write(); }).detach();
    std::thread([self = shared_from_this()] { self->lookAround(); }).detach();
  }
  m_changed.wait_for(lock, kPatienceAtStart, [this] { return m_tried; });
  if (m_first != 0) return;
  noteDelay("the disk does not answer");
  begin(numberOfThisMoment() + kReserved);
  speak(lock);
}

void EventRecorder::begin(std::uint64_t last) {
  m_last = last;
  m_first = last + 1;
}

void EventRecorder::record(EventRecord record) {
  std::unique_lock lock(m_mutex);
  give(std::move(record));
}

void EventRecorder::give(EventRecord record) {
  record.number = ++m_last;
  record.run = m_run;
  remember(m_delay.has_value());
  publishEvent(record);
  m_queue.push_back(record);
  if (record.kind == "changed") traceEvent(record.number, record.run, record.time, record.event, record.active);
  if (record.kind == "watching") traceWatching(record.number, record.run, record.time, record.active, record.why);
  bound();
  reportDelay();
  m_changed.notify_all();
}

/// Before anybody hears of a number it is noted as given, so that a run which is killed before it is written down is
/// known to have given it.
void EventRecorder::remember(bool durable) {
  if (!m_marks) return;
  const RunMark mark{m_run, m_first, m_last, ticker_clock::now()};
  m_marking.post([marks = m_marks, mark] { marks->store(mark, false); });
  m_marking.settle(kPatienceForMark);
  if (durable) m_marking.post([marks = m_marks, mark] { marks->store(mark, true); });
}

/// Memory has an end too: of too many, the oldest become one line that says which are missing.
void EventRecorder::bound() {
  if (m_queue.size() <= m_most_unwritten) return;
  const auto oldest =
      std::find_if(m_queue.begin(), m_queue.end(), [this](const EventRecord& record) { return record.run == m_run; });
  const std::uint64_t from = oldest->kind == "missing" ? oldest->from : oldest->number;
  EventRecord& next = *std::next(oldest);
  next = {next.time, "missing", "", "", false, false, next.number, m_run, from};
  m_queue.erase(oldest);
}

void EventRecorder::finish() {
  std::unique_lock lock(m_mutex);
  if (!std::exchange(m_unwatched, "")) give({lastCycle(currentHealth()), "watching"});
  m_stopping = true;
  m_changed.notify_all();
  const auto ended = [this] { return m_threads == 0; };
  const bool is_slow = ticker_clock::isReplay() && !m_delay;
  m_changed.wait_for(lock, is_slow ? kPatienceAtReplaysEnd : kPatienceAtEnd, ended);
  m_given_up = true;
  m_changed.notify_all();
  m_changed.wait_for(lock, kPauseAtEnd, ended);
  const std::size_t left = m_queue.size() + m_in_work;
  if (left > 0) {
    const std::string why = m_delay ? m_delay->why : "the disk does not answer";
    say(LOG_ERR, std::to_string(left) + " events have not been recorded: " + why);
  }
  endTrouble(Trouble::kAlarmsNotRecorded);
  speak(lock);
  lock.unlock();
  const std::scoped_lock living_lock(living().mutex);
  living().recorders.erase(shared_from_this());
}

void EventRecorder::finishAll() {
  std::unique_lock lock(living().mutex);
  const std::set<std::shared_ptr<EventRecorder>> recorders = living().recorders;
  lock.unlock();
  for (const auto& recorder : recorders) recorder->finish();
}

// The writing thread.

void EventRecorder::write() {
  std::unique_lock lock(m_mutex);
  while (!m_given_up) {
    if (!m_journal) {
      open(lock);
    } else if (!m_queue.empty()) {
      writeSome(lock);
    } else if (m_stopping) {
      break;
    } else {
      m_changed.wait(lock, [this] { return m_stopping || !m_queue.empty(); });
    }
  }
  m_journal.reset();
  --m_threads;
  m_changed.notify_all();
}

void EventRecorder::open(std::unique_lock<std::mutex>& lock) {
  m_asked_disk = Steady::now();
  lock.unlock();
  std::unique_ptr<EventJournal> journal;
  std::shared_ptr<RunMarks> marks;
  std::string failure;
  try {
    const auto directory = stateDirectory();
    journal = std::make_unique<EventJournal>(directory);
    marks = std::make_shared<RunMarks>(directory);
  } catch (const std::exception& exception) {
    failure = exception.what();
  }
  lock.lock();
  m_asked_disk.reset();
  if (failure.empty()) {
    try {
      adopt(*journal, *marks);
      m_journal = std::move(journal);
      m_marks = std::move(marks);
      remember(false);
    } catch (const std::exception& exception) {
      failure = exception.what();
    }
  }
  if (!failure.empty()) {
    noteDelay(failure);
    if (m_first == 0) begin(numberOfThisMoment() + kReserved);
  } else if (m_queue.empty()) {
    noteCaughtUp();
  }
  speak(lock);
  m_tried = true;
  m_changed.notify_all();
  if (!failure.empty()) pause(lock);
}

/// Goes on where the journal ends. What is to be said about the runs before stands before all that this run has given.
void EventRecorder::adopt(EventJournal& journal, const RunMarks& marks) {
  const JournalPast& past = journal.past();
  std::uint64_t last = past.last;
  std::deque<EventRecord> before = missingIn(marks, last);
  std::deque<EventRecord> closed = leftOpenIn(past, marks);
  if (m_first == 0) {
    begin(last);
    m_last += closed.size();
  } else {
    closed.resize(std::min<std::size_t>(closed.size(), kReserved));
    m_first -= closed.size();
    if (m_first <= last) {  // the machine's clock was set back
      m_first += closed.size();
      journal.putAside("its numbers are above those of this run");
      before.clear();
      closed.clear();
    }
  }
  for (std::uint64_t number = m_first; EventRecord & record : closed) {
    record.number = number++;
    record.run = m_run;
    if (record.kind == "changed") m_closed_unsaid.push_back(record);
  }
  seedEvents(m_last, past, closed);
  if (!journal.damage().empty()) say(LOG_ERR, journal.damage());
  m_has_earlier_marks = true;
  before.insert(before.end(), closed.begin(), closed.end());
  m_queue.insert(m_queue.begin(), before.begin(), before.end());
}

/// What runs before have given beyond `last`, which becomes the last number that any has given.
std::deque<EventRecord> EventRecorder::missingIn(const RunMarks& marks, std::uint64_t& last) const {
  std::deque<EventRecord> missing;
  for (const RunMark& mark : marks.earlier()) {
    if (mark.last <= last) continue;
    const std::uint64_t from = std::max(last + 1, mark.first);
    missing.push_back({m_started, "missing", "", "", false, false, mark.last, mark.run, from});
    last = mark.last;
  }
  return missing;
}

/// The ends of what an earlier run has begun: of watching as of the time when that run was last alive, of events as of
/// now.
std::deque<EventRecord> EventRecorder::leftOpenIn(const JournalPast& past, const RunMarks& marks) const {
  std::deque<EventRecord> closed;
  if (!past.watching.empty() && past.watching.back().active) {
    EventRecord end{past.last_time, "watching", "", "", false, true};
    for (const RunMark& mark : marks.earlier()) {
      if (mark.run == past.watching.back().run) end.time = std::max(end.time, std::min(mark.alive, m_started));
    }
    closed.push_back(end);
  }
  for (const auto& [topic, event] : past.active) closed.push_back({m_started, "changed", event, topic, false, true});
  return closed;
}

void EventRecorder::writeSome(std::unique_lock<std::mutex>& lock) {
  const std::size_t count = std::min(m_batch, m_queue.size());
  std::vector<EventRecord> batch(m_queue.begin(), m_queue.begin() + static_cast<std::ptrdiff_t>(count));
  m_queue.erase(m_queue.begin(), m_queue.begin() + static_cast<std::ptrdiff_t>(count));
  m_in_work = count;
  m_asked_disk = Steady::now();
  lock.unlock();
  std::string failure;
  try {
    m_journal->append(batch);
  } catch (const std::exception& exception) {
    failure = exception.what();
  }
  lock.lock();
  if (!m_journal->damage().empty()) say(LOG_ERR, m_journal->damage());
  m_asked_disk.reset();
  m_in_work = 0;
  // A disk that has no room for all may have room for one.
  m_batch = failure.empty() ? kLargestBatch : 1;
  if (failure.empty()) {
    if (m_delay) m_delay->recorded_late += count;
    if (m_queue.empty()) noteCaughtUp();
  } else {
    m_queue.insert(m_queue.begin(), batch.begin(), batch.end());
    noteDelay(failure);
  }
  speak(lock);
  if (!failure.empty() && count == 1) pause(lock);
}

void EventRecorder::pause(std::unique_lock<std::mutex>& lock) {
  const bool was_stopping = m_stopping;
  m_changed.wait_for(lock, was_stopping ? std::chrono::milliseconds(kPauseAtEnd) : kPause,
                     [&] { return m_given_up || m_stopping != was_stopping; });
}

// Delays.

void EventRecorder::noteDelay(const std::string& why) {
  if (!m_delay) {
    say(LOG_ERR, why + "; events go out all the same and are recorded later");
    m_delay = {ticker_clock::now(), why};
    remember(true);
  }
  m_delay->why = why;
  reportDelay();
}

void EventRecorder::noteCaughtUp() {
  if (m_marks && std::exchange(m_has_earlier_marks, false)) {
    m_marking.post([marks = m_marks] { marks->forgetEarlier(); });
  }
  if (!m_delay) return;
  say(LOG_INFO, "events are recorded again, " + std::to_string(m_delay->recorded_late) + " of them late");
  m_delay.reset();
  endTrouble(Trouble::kAlarmsNotRecorded);
}

void EventRecorder::reportDelay() const {
  if (!m_delay || m_given_up) return;
  const std::size_t waiting = m_queue.size() + m_in_work;
  const std::string why = m_delay->why.substr(m_delay->why.rfind('/', m_delay->why.find(": ")) + 1);  // no folders
  reportTrouble(Trouble::kAlarmsNotRecorded, "Since " + localClock(m_delay->since) +
                                                 " alarms are shown but not recorded (" + std::to_string(waiting) +
                                                 (waiting == 1 ? " entry" : " entries") + "): " + why + ".");
}

void EventRecorder::say(int priority, std::string line) { m_unsaid.emplace_back(priority, std::move(line)); }

void EventRecorder::speak(std::unique_lock<std::mutex>& lock) {
  const auto lines = std::exchange(m_unsaid, {});
  const auto closed = std::exchange(m_closed_unsaid, {});
  if (lines.empty() && closed.empty()) return;
  lock.unlock();
  for (const auto& [priority, line] : lines) ::syslog(priority, "%s", line.c_str());
  for (const EventRecord& record : closed) m_closed(record);
  lock.lock();
}

// The thread that looks around.

void EventRecorder::lookAround() {
  std::unique_lock lock(m_mutex);
  while (!m_changed.wait_for(lock, kLook, [this] { return m_stopping; })) {
    if (m_asked_disk && Steady::now() - *m_asked_disk > kLongestAnswer) noteDelay("the disk does not answer");
    reportDelay();
    if (m_marks && m_first != 0) {
      m_marking.post([marks = m_marks, mark = RunMark{m_run, m_first, m_last, ticker_clock::now()}] {
        marks->store(mark, false);
      });
    }
    speak(lock);
    if (!m_stopping && !ticker_clock::isReplay()) lookWhetherWatching();
  }
  --m_threads;
  m_changed.notify_all();
}

/// With the lock held. On a machine whose cycles take seconds the last one is often older than a silence may be: as
/// long as they come, watching has not ceased for the journal. While they come, the camera may be blind.
void EventRecorder::lookWhetherWatching() {
  const Health health = currentHealth();
  const auto patience = std::max<std::chrono::nanoseconds>(kLongestSilence, 3 * health.beat.last_call);
  m_cycling = health.cycle_age && *health.cycle_age <= (m_cycling ? patience : kLongestSilence);
  const Health::Wrong* const reason = unwatchedBy(health, m_cycling);
  std::optional<std::string> why;
  if (reason != nullptr || !m_cycling) why = reason != nullptr ? nameOf(reason->what) : "";
  const bool has_begun = m_cycling || m_unwatched != "";  // before the first picture nobody was watched anyhow
  if (m_first == 0 || why == m_unwatched || !has_begun) return;
  m_unwatched = why;
  EventRecord record{m_cycling && reason != nullptr ? reason->since : lastCycle(health), "watching", "", "", !why};
  record.why = why.value_or("");
  give(record);
}

}  // namespace workstation
