// Who is called for what, and who has answered. Above the events, which know nothing of it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/workstation/alarms/alarm_book.h"
#include "platform/workstation/alarms/alarm_clock.h"
#include "platform/workstation/alarms/alarm_store.h"
#include "platform/workstation/alarms/call_settings.h"
#include "platform/workstation/events/event_hub.h"

namespace workstation {

/// An alarm as it is at this moment.
struct AlarmView {
  Alarm alarm;
  std::optional<TimeStamp> next;  ///< of the next call, if nobody answers
};

/// Is told on any thread, one thing after the other. With the desk's lock held: it must hand on and not ask back. What
/// is told twice has a version; a higher one is newer.
class AlarmListener {
 public:
  AlarmListener() = default;
  virtual ~AlarmListener() = default;
  AlarmListener(const AlarmListener&) = delete;
  AlarmListener& operator=(const AlarmListener&) = delete;

  /// Something has happened: it has got its number, and may not be on disk yet.
  virtual void onEntry(const AlarmEntry& /*entry*/) {}
  virtual void onAlarm(const AlarmView& /*alarm*/, std::uint64_t /*version*/) {}
  virtual void onPause(const std::optional<Pause>& /*pause*/, std::uint64_t /*version*/) {}
  /// All numbers up to this one are on disk.
  virtual void onStored(std::uint64_t /*number*/) {}
  /// What is set for calls is new.
  virtual void onCalls(const CallSettings& /*calls*/) {}
  /// The past has become known: everything may be different.
  virtual void onPast(std::uint64_t /*version*/) {}
};

/// All that is known.
struct AlarmsNow {
  TimeStamp time;
  std::string run;
  std::uint64_t version = 0;
  std::vector<AlarmView> alarms;  ///< the open ones, newest first, then those closed last, newest first
  std::optional<Pause> pause;
  std::optional<AlarmEntry> test;  ///< the last one of this run
};

/// What has come of a request.
struct DeskReply {
  enum class How { kTaken, kUnknown, kRefused };
  How how = How::kTaken;
  std::uint64_t number = 0;  ///< of the entry; it counts once that is on disk
  std::string line = {};     ///< why it was refused
};

struct AlarmDeskSettings {
  std::shared_ptr<const AlarmClock> clock = std::make_shared<AlarmClock>();
  std::function<std::uint64_t()> floor = {};          ///< numbers up to this one were given out; may ask the disk
  bool has_thread = true;                             ///< looks by itself; else look() has to be called
  std::chrono::milliseconds patience_at_start{2000};  ///< for the disk
  AlarmLimits limits = {};
};

class AlarmDesk : public EventListener, public std::enable_shared_from_this<AlarmDesk> {
 public:
  static constexpr std::size_t kMostOpen = 1000;
  static constexpr std::size_t kMostAnswers = 20;  ///< of an alarm
  static constexpr std::chrono::minutes kShortestPause{5};
  static constexpr std::chrono::minutes kLongestPause{60};

  /// Begins to listen to the events. What the disk does not tell in time is taken up later.
  static std::shared_ptr<AlarmDesk> open(AlarmDeskSettings settings = {});
  /// Gives the disk 2 s more. Once.
  void close();
  ~AlarmDesk() override = default;
  AlarmDesk(const AlarmDesk&) = delete;
  AlarmDesk& operator=(const AlarmDesk&) = delete;

  void listen(AlarmListener& listener);
  void stopListening(AlarmListener& listener);

  /// Somebody answers; the words are cut at kLongestWords.
  DeskReply answer(const std::string& id, AnswerKind what, const std::string& by, const std::string& reason);
  /// Nobody is called for what begins from now on. Takes the place of a pause before it.
  DeskReply pause(std::chrono::minutes length, const std::string& by, const std::string& reason);
  DeskReply unpause(const std::string& by);
  /// Calls everybody to try the way.
  DeskReply test(const std::string& by);

  [[nodiscard]] AlarmsNow now() const;
  /// None for an id that is not known.
  [[nodiscard]] std::optional<AlarmView> alarm(const std::string& id) const;
  [[nodiscard]] CallSettings calls() const;
  /// A line where what was set cannot be used; empty while all is well.
  [[nodiscard]] std::string callsProblem() const;
  /// Counts once it is on disk. `done` is called on any thread, with a line when that has failed.
  void setCalls(const CallSettings& calls, std::function<void(const std::string& failure)> done);
  [[nodiscard]] std::uint64_t lastNumber() const;
  /// Of the entry that has raised the oldest alarm that is open; none without one.
  [[nodiscard]] std::optional<std::uint64_t> firstOpen() const;
  /// Whether the journal of before has been read.
  [[nodiscard]] bool isPastKnown() const;
  /// Whether what is set for calls has been; that comes first.
  [[nodiscard]] bool areCallsKnown() const;

  /// What goes out next to a receiver: AlarmBook::nextFor.
  struct Outgoing {
    AlarmEntry entry;
    std::optional<Alarm> alarm;  ///< none of a test
  };
  [[nodiscard]] std::optional<Outgoing> nextFor(std::uint64_t after, std::uint64_t begins, int level) const;

  /// Of what is closed nothing above this number is forgotten, up to AlarmLimits::waiting: it has still to go out.
  void keepAbove(std::uint64_t number);

  /// Calls whom it is time to call.
  void look();

  void onEvent(const EventRecord& record) override;
  void onPast() override;

 private:
  explicit AlarmDesk(AlarmDeskSettings settings);
  void start();
  void run();

  // With the lock held.
  void adopt(StoredCalls calls);
  void adopt(AlarmPast past);
  void takeUp(Alarm& alarm);
  void reconcile(const EventsNow& now);
  const AlarmEntry& make(AlarmEntry entry);
  void raise(const EventRecord& record);
  void end(Alarm& alarm, TimeStamp time, bool closed_at_start);
  void close(Alarm& alarm);
  void call(Alarm& alarm, int level, bool repeat);
  void decide(Alarm& alarm);
  void lookAt(Alarm& alarm);
  void lookAtPause();
  void bound();
  void trim();
  void count(std::uint64_t number);
  void tell(const Alarm& alarm);
  void tellPause();
  void reportTrouble();
  [[nodiscard]] std::string holds(const Alarm& alarm) const;
  [[nodiscard]] std::chrono::nanoseconds left(std::chrono::nanoseconds span, TimeStamp since) const;
  [[nodiscard]] Alarm* openOf(const std::string& event);
  [[nodiscard]] AlarmView viewOf(const Alarm& alarm) const;

  const AlarmDeskSettings m_settings;
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<AlarmListener*> m_listeners;
  std::unique_ptr<AlarmStore> m_store;
  AlarmBook m_book;
  CallSettings m_calls;
  std::string m_run;
  std::string m_calls_problem;
  std::optional<AlarmEntry> m_test;
  std::optional<TimeStamp> m_unstored_since;
  std::uint64_t m_version = 0;
  std::uint64_t m_watermark = 0;  ///< the highest number of an event that the journal knew
  bool m_calls_known = false;
  bool m_past_known = false;
  bool m_events_new = true;  ///< the events' past is to be compared
  bool m_stopping = false;
  std::thread m_thread;
};

}  // namespace workstation
