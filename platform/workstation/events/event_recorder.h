// Numbers what happens, tells it at once, and writes it down as soon as the disk takes it: what helps somebody comes
// first, what documents it second.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/workstation/events/event_journal.h"
#include "platform/workstation/events/run_marks.h"
#include "platform/workstation/system/side_thread.h"

namespace workstation {

/// One run's numbers and its part of the journal. Only threads of its own touch the disk, so a disk that is full, fails
/// or hangs delays nobody; until the journal has caught up, that is a trouble (health.h).
class EventRecorder : public std::enable_shared_from_this<EventRecorder> {
 public:
  /// Is told, on any thread, of each state that an earlier run left active and that ends with this start.
  using Closed = std::function<void(const EventRecord&)>;

  static constexpr std::size_t kMostUnwritten = 100'000;

  /// Begins a run: opens the journal, closes what the run before left open, and notes whether somebody is watched. When
  /// the journal cannot be had within 2 s, the run goes on without and takes it up as soon as that is possible.
  /// Of more than `most_unwritten` that wait for the disk the oldest become one entry that says which are missing.
  static std::shared_ptr<EventRecorder> begin(Closed closed, std::size_t most_unwritten = kMostUnwritten);
  /// Give it up with finish(): the threads hold a share.
  ~EventRecorder() = default;
  EventRecorder(const EventRecorder&) = delete;
  EventRecorder& operator=(const EventRecorder&) = delete;

  /// Gives the record its number and publishes it; it is written down later. From any thread.
  void record(EventRecord record);
  /// Writes down what is left, with patience for 2 s (10 s in a replay whose disk has not failed); what then remains is
  /// logged. Nothing may be recorded afterwards. Once.
  void finish();
  /// finish() for all that still live: at the process's end.
  static void finishAll();

 private:
  using Steady = std::chrono::steady_clock;

  struct Delay {
    TimeStamp since;
    std::string why;
    std::uint64_t recorded_late = 0;
  };

  EventRecorder(Closed closed, std::size_t most_unwritten);
  void start();

  // With the lock held.
  void give(EventRecord record);
  void begin(std::uint64_t last);
  void remember(bool durable);
  void bound();
  void adopt(EventJournal& journal, const RunMarks& marks);
  std::deque<EventRecord> missingIn(const RunMarks& marks, std::uint64_t& last) const;
  std::deque<EventRecord> leftOpenIn(const JournalPast& past, const RunMarks& marks) const;
  void noteDelay(const std::string& why);
  void noteCaughtUp();
  void reportDelay() const;
  void say(int priority, std::string line);

  // The writing thread.
  void write();
  void open(std::unique_lock<std::mutex>& lock);
  void writeSome(std::unique_lock<std::mutex>& lock);
  void pause(std::unique_lock<std::mutex>& lock);

  // The thread that looks around once a second and never touches the disk.
  void lookAround();
  void lookWhetherWatching();

  /// Logs what was to be said, without the lock.
  void speak(std::unique_lock<std::mutex>& lock);

  const TimeStamp m_started;
  const std::string m_run;
  const Closed m_closed;
  const std::size_t m_most_unwritten;

  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::uint64_t m_first = 0;  ///< of this run; 0: nothing has a number yet
  std::uint64_t m_last = 0;
  std::deque<EventRecord> m_queue;                 ///< not written down
  std::size_t m_in_work = 0;                       ///< taken from it by the writing thread
  std::optional<Steady::time_point> m_asked_disk;  ///< has not answered since
  std::unique_ptr<EventJournal> m_journal;         ///< none while it cannot be had; the writing thread's
  std::shared_ptr<RunMarks> m_marks;               ///< the marking thread's
  SideThread m_marking;
  bool m_has_earlier_marks = false;
  bool m_tried = false;  ///< to open the journal
  std::size_t m_batch = 1;
  std::optional<Delay> m_delay;
  std::deque<std::pair<int, std::string>> m_unsaid;
  std::deque<EventRecord> m_closed_unsaid;
  bool m_cycling = false;                       ///< pictures are analysed
  std::optional<std::string> m_unwatched = "";  ///< why nobody is watched; nothing while somebody is
  bool m_stopping = false;
  bool m_given_up = false;
  int m_threads = 0;
};

}  // namespace workstation
