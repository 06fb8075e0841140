// A room whose alarms are called by a clock of the test's, in a state directory of its own.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "platform/workstation/alarms/alarm_desk.h"
#include "platform/workstation/events/event_hub.h"
#include "tests/platform/conditions.h"
#include "tests/platform/disk_faults.h"
#include "tests/platform/state_folder.h"

inline constexpr const char* kFallEvent = "Fall Detected";
inline constexpr const char* kExitEvent = "Patient Out of Bed";

class FakeClock : public workstation::AlarmClock {
 public:
  [[nodiscard]] TimeStamp wall() const override { return TimeStamp(m_wall.load()); }
  [[nodiscard]] std::chrono::nanoseconds steady() const override { return m_steady; }

  void pass(std::chrono::seconds span) {
    m_wall = m_wall.load() + span;
    m_steady = m_steady.load() + span;
  }
  void setWall(TimeStamp time) { m_wall = time.time_since_epoch(); }

 private:
  std::atomic<std::chrono::nanoseconds> m_wall{std::chrono::hours(492'000)};
  std::atomic<std::chrono::nanoseconds> m_steady{std::chrono::hours(3)};
};

class AlarmRoom : public testing::Test {
 protected:
  AlarmRoom() { workstation::resetEvents("run"); }
  ~AlarmRoom() override {
    disk_fault = Fault::kNone;
    if (m_desk) m_desk->close();
  }

  void open(std::chrono::milliseconds patience = std::chrono::seconds(30)) {
    workstation::AlarmDeskSettings settings;
    settings.clock = m_clock;
    settings.floor = m_floor;
    settings.has_thread = false;
    settings.patience_at_start = patience;
    settings.limits = m_limits;
    m_desk = workstation::AlarmDesk::open(std::move(settings));
  }
  /// The program ends and starts anew.
  void restart() {
    m_desk->close();
    m_desk.reset();
    workstation::resetEvents("run2");
    open();
  }
  void pass(std::chrono::seconds span) {
    m_clock->pass(span);
    m_desk->look();
  }
  /// The id of the alarm.
  std::string begin(std::uint64_t seq, const char* event) const {
    change(seq, event, true);
    return "run-" + std::to_string(seq);
  }
  void change(std::uint64_t seq, const char* event, bool active) const {
    workstation::publishEvent({m_clock->wall(), "changed", event, event, active, false, seq, "run", 0});
  }
  workstation::Alarm alarm(const std::string& id) const { return m_desk->alarm(id).value().alarm; }
  std::string state(const std::string& id) const {
    const workstation::Alarm known = alarm(id);
    std::string words = nameOf(known.state());
    if (known.state() == workstation::AlarmState::kHeld) words += " " + known.held_why;
    if (known.state() == workstation::AlarmState::kCalling) words += " " + std::to_string(known.level);
    return words;
  }
  /// Whether the answer is taken and comes to the disk.
  bool answer(const std::string& id, workstation::AnswerKind what, const std::string& by = "Anna",
              const std::string& reason = "") const {
    if (m_desk->answer(id, what, by, reason).how != workstation::DeskReply::How::kTaken) return false;
    return comes([&] { return alarm(id).answers.back().stored; });
  }
  /// Everything is on disk.
  bool settles() const {
    return comes([this] {
      m_desk->look();
      return m_folder.read("alarms.jsonl").find("\"n\":" + std::to_string(m_desk->lastNumber()) + ",") !=
             std::string::npos;
    });
  }
  void setCalls(const std::string& document) const {
    std::atomic<int> done = 0;
    m_desk->setCalls(workstation::parseCallSettings(document, m_desk->calls()), [&done](const std::string& failure) {
      EXPECT_EQ(failure, "");
      done = 1;
    });
    ASSERT_TRUE(comes([&done] { return done == 1; }));
  }

  StateFolder m_folder;
  std::function<std::uint64_t()> m_floor;
  workstation::AlarmLimits m_limits;
  std::shared_ptr<FakeClock> m_clock = std::make_shared<FakeClock>();
  std::shared_ptr<workstation::AlarmDesk> m_desk;
};

/// Two levels, and times that differ from each other.
inline constexpr const char* kTwoLevels =
    R"({"events":{"fall":{"escalate_s":60,"repeat_s":30,"coming_s":300},"exit":{"delay_s":20,"escalate_s":90}},
        "levels":[[{"kind":"people"}],
                  [{"kind":"webhook","name":"ward","url":"http://127.0.0.1:9/","secret":"0123456789abcdef"}]]})";
