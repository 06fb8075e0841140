#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <functional>
#include <optional>

#include "platform/workstation/alarms/alarm_entry.h"
#include "tests/platform/alarms/alarm_room.h"
#include "tests/platform/event_sender.h"
#include "tests/platform/full_disk.h"

namespace {

using namespace workstation;
using namespace std::chrono_literals;

using AlarmJournalTest = AlarmRoom;

/// Every entry of the file; none of a line that is none.
std::vector<AlarmEntry> entriesIn(const std::string& text) {
  std::vector<AlarmEntry> entries;
  for (std::size_t begin = 0, end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
    if (auto entry = parseAlarmEntry(text.substr(begin, end - begin))) entries.push_back(std::move(*entry));
  }
  return entries;
}

TEST_F(AlarmJournalTest, AnEntryIsReadAsItWasWrittenAndDamageIsNone) {
  const AlarmEntry answered{.kind = AlarmEntry::Kind::kAnswered,
                            .number = 14,
                            .run = "r",
                            .time = TimeStamp(1'772'366'431'500ms),
                            .alarm = "a-b-7",
                            .what = AnswerKind::kFalseAlarm,
                            .by = "Anna",
                            .reason = "a \"blanket\"\n"};
  const std::string line = lineOf(answered);
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  const auto read = parseAlarmEntry(line);
  ASSERT_TRUE(read);
  EXPECT_EQ(lineOf(*read), line);
  EXPECT_EQ(read->reason + read->by + read->alarm, answered.reason + "Annaa-b-7");
  EXPECT_EQ(seqOf(read->alarm), 7U);
  for (const char* damage :
       {"", "[]", "{}", R"({"n":0,"kind":"test"})", R"({"n":1,"kind":"tested"})", R"({"n":1,"kind":"raised"})",
        R"({"n":1,"kind":"raised","alarm":"x-"})", R"({"n":1,"kind":"called","alarm":"x-1"})",
        R"({"n":1,"kind":"called","alarm":"x-1","level":101})", R"({"n":1,"kind":"answered","alarm":"x-1"})",
        R"({"n":99999999999999999,"kind":"test"})", R"({"n":"1","kind":"test"})"}) {
    EXPECT_FALSE(parseAlarmEntry(damage)) << damage;
  }
}

TEST_F(AlarmJournalTest, ARestartKnowsWhatWasAndGoesOnWithIt) {
  open();
  setCalls(kTwoLevels);
  const std::string answered = begin(1, kFallEvent);
  ASSERT_TRUE(answer(answered, AnswerKind::kComing, "Anna"));
  const std::string open_one = begin(2, kFallEvent);
  const std::string held = begin(3, kExitEvent);
  const std::string closed = begin(4, kFallEvent);
  ASSERT_TRUE(answer(closed, AnswerKind::kFalseAlarm, "Bert", "a chair"));
  pass(15s);
  ASSERT_TRUE(settles());
  const std::uint64_t last = m_desk->lastNumber();
  m_clock->pass(2s);
  restart();
  EXPECT_EQ(m_desk->calls(), parseCallSettings(kTwoLevels, {}));
  EXPECT_EQ(state(answered) + ", " + state(open_one) + ", " + state(held) + ", " + state(closed),
            "coming, calling 1, held delay, closed");
  EXPECT_EQ(alarm(closed).answers.at(0).by + alarm(closed).answers.at(0).reason, "Berta chair");
  EXPECT_TRUE(alarm(held).closed_at_start && alarm(held).ended) << "a restart is no way back to bed";
  EXPECT_GT(m_desk->lastNumber(), last) << "numbers go on";
  pass(3s);
  EXPECT_EQ(state(held), "calling 1") << "20 s after it has begun";
  pass(39s);
  EXPECT_EQ(state(open_one), "calling 1");
  m_clock->setWall(m_clock->wall() - 240h);
  restart();
  EXPECT_EQ(m_desk->alarm(open_one)->next, m_clock->wall() + 60s) << "a clock that was set makes nothing longer";
  pass(60s);
  EXPECT_EQ(state(open_one), "calling 2");
}

TEST_F(AlarmJournalTest, APauseEndsInTimeAlsoAfterARestart) {
  open();
  m_desk->pause(10min, "Anna", "");
  ASSERT_TRUE(settles());
  m_clock->pass(400s);
  restart();
  ASSERT_TRUE(m_desk->now().pause);
  pass(199s);
  EXPECT_TRUE(m_desk->now().pause);
  pass(1s);
  EXPECT_FALSE(m_desk->now().pause);
  m_desk->pause(10min, "Anna", "");
  ASSERT_TRUE(settles());
  m_clock->setWall(m_clock->wall() - 24h);
  restart();
  pass(600s);
  EXPECT_FALSE(m_desk->now().pause);
}

class AlarmDisk : public AlarmRoom, public testing::WithParamInterface<Fault> {
 protected:
  ~AlarmDisk() override { mend(); }

  void spoil() {
    disk_fault = GetParam();
    if (disk_fault == Fault::kFull) m_full.emplace(m_folder.read("alarms.jsonl").size() + 50);
  }
  void mend() {
    m_full.reset();
    disk_fault = Fault::kNone;
  }

  std::optional<FullDisk> m_full;
};

TEST_P(AlarmDisk, ThatFailsDelaysNoCallAndAnAnswerCountsOnceItIsWritten) {
  open();
  setCalls(kTwoLevels);
  for (std::uint64_t seq = 1; seq < 10; ++seq) begin(seq, kFallEvent);
  ASSERT_TRUE(settles());
  spoil();
  const std::string id = begin(10, kFallEvent);
  EXPECT_EQ(state(id), "calling 1");
  m_desk->answer(id, AnswerKind::kComing, "Anna", "");
  const auto trouble = [this] {
    m_desk->look();
    return textOf(Trouble::kAlarmsNotStored);
  };
  EXPECT_TRUE(comes([&] { return !trouble().empty(); }));
  EXPECT_NE(trouble().find(GetParam() == Fault::kFull        ? "File too large"
                           : GetParam() == Fault::kSyncFails ? "Input/output error"
                                                             : "the disk does not answer"),
            std::string::npos)
      << trouble();
  pass(60s);
  EXPECT_EQ(state(id), "calling 2") << "an answer that is not on disk does not count";
  EXPECT_FALSE(alarm(id).answers.at(0).stored);
  mend();
  EXPECT_TRUE(comes([&] {
    m_desk->look();
    return alarm(id).answers.at(0).stored;
  }));
  EXPECT_EQ(state(id), "coming");
  ASSERT_TRUE(settles());
  EXPECT_EQ(trouble(), "");
  std::uint64_t number = 0;
  for (const AlarmEntry& entry : entriesIn(m_folder.read("alarms.jsonl"))) EXPECT_EQ(entry.number, ++number);
  EXPECT_EQ(number, m_desk->lastNumber());
  restart();
  EXPECT_EQ(state(id), "coming");
}
INSTANTIATE_TEST_SUITE_P(Disks, AlarmDisk, testing::Values(Fault::kFull, Fault::kSyncFails, Fault::kHangs),
                         [](const auto& fault) {
                           return std::string(fault.param == Fault::kFull        ? "Full"
                                              : fault.param == Fault::kSyncFails ? "SyncFails"
                                                                                 : "Hangs");
                         });

TEST_F(AlarmJournalTest, AJournalThatCannotBeReadIsTakenUpLater) {
  open();
  const std::string before = begin(1, kFallEvent);
  ASSERT_TRUE(settles());
  m_desk->close();
  m_desk.reset();
  std::filesystem::rename(m_folder / "alarms.jsonl", m_folder / "away");
  std::filesystem::create_directory(m_folder / "alarms.jsonl");
  resetEvents("run2");
  open(0ms);
  change(2, kFallEvent, true);
  EXPECT_EQ(state("run-2"), "calling 1");
  EXPECT_TRUE(comes([this] {
    m_desk->look();
    return textOf(Trouble::kAlarmsNotStored).ends_with("alarms.jsonl: is not a file.");
  }));
  // In one step: between two there would be no journal, which is an empty one.
  ASSERT_EQ(::renameat2(AT_FDCWD, (m_folder / "away").c_str(), AT_FDCWD, (m_folder / "alarms.jsonl").c_str(),
                        RENAME_EXCHANGE),
            0);
  ASSERT_TRUE(settles());
  EXPECT_EQ(state(before) + ", " + state("run-2"), "calling 1, calling 1");
  EXPECT_EQ(m_desk->now().alarms.at(0).alarm.id, "run-2") << "the newest first";
  restart();
  EXPECT_EQ(state(before) + ", " + state("run-2"), "calling 1, calling 1");
}

TEST_F(AlarmJournalTest, OneThatIsRemovedOrReplacedIsWrittenAnewWithAllThatIsKnown) {
  open();
  const std::string before = begin(1, kFallEvent);
  ASSERT_TRUE(settles());
  std::filesystem::remove(m_folder / "alarms.jsonl");
  const std::string after = begin(2, kExitEvent);
  ASSERT_TRUE(settles());
  ASSERT_TRUE(answer(after, AnswerKind::kComing));
  restart();
  EXPECT_EQ(state(before) + ", " + state(after), "calling 1, coming");
  std::filesystem::rename(m_folder / "alarms.jsonl", m_folder / "moved");
  m_folder.write("alarms.jsonl", "somebody's notes");
  ASSERT_TRUE(answer(before, AnswerKind::kComing));
  restart();
  EXPECT_EQ(state(before) + ", " + state(after), "coming, coming");
  EXPECT_EQ(m_folder.read("alarms.jsonl.damaged-1"), "somebody's notes");
}

TEST_F(AlarmJournalTest, ATornLineIsCutOffAndDamagedOnesAreLeftOut) {
  open();
  begin(1, kFallEvent);
  begin(2, kFallEvent);
  ASSERT_TRUE(settles());
  m_desk->close();
  const std::string whole = m_folder.read("alarms.jsonl");
  for (const std::size_t torn : {std::size_t{1}, std::size_t{30}}) {
    m_folder.write("alarms.jsonl", whole.substr(0, whole.size() - torn));
    resetEvents("run2");
    open();
    change(3, kFallEvent, true);
    ASSERT_TRUE(settles());
    EXPECT_EQ(state("run-2"), "calling 1") << "called anew";
    m_desk->close();
    const std::string text = m_folder.read("alarms.jsonl");
    EXPECT_EQ(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')), entriesIn(text).size()) << text;
    EXPECT_FALSE(std::filesystem::exists(m_folder / "alarms.jsonl.damaged-1"));
  }
  const std::string damaged = "garbage\n" + whole.substr(0, whole.find('\n') + 1) + std::string(10'000, 'x') + "\n" +
                              whole.substr(whole.find('\n') + 1);
  m_folder.write("alarms.jsonl", damaged);
  std::filesystem::create_directory(m_folder / "alarms.jsonl.new");
  open();
  change(4, kFallEvent, true);
  ASSERT_TRUE(settles());
  EXPECT_TRUE(m_folder.read("alarms.jsonl").starts_with(damaged)) << "no room for another file: this one goes on";
  m_desk->close();
  std::filesystem::remove(m_folder / "alarms.jsonl.new");
  m_folder.write("alarms.jsonl", damaged);
  open();
  ASSERT_TRUE(settles());
  EXPECT_EQ(state("run-1") + state("run-2"), "calling 1calling 1");
  EXPECT_EQ(m_folder.read("alarms.jsonl.damaged-2"), damaged);
  EXPECT_EQ(m_folder.read("alarms.jsonl").find("garbage"), std::string::npos);
  m_desk->close();
  m_folder.write("alarms.jsonl", "garbage\n");
  resetEvents("run3");
  for (int start = 0; start < 2; ++start) {
    open();
    m_desk->close();
  }
  EXPECT_EQ(m_folder.read("alarms.jsonl.damaged-3"), "garbage\n");
  EXPECT_FALSE(std::filesystem::exists(m_folder / "alarms.jsonl.damaged-4")) << "not once more at each start";
}

TEST(AlarmBookTest, ForgetsTheOldestThatAreClosedAndOnlyTooManyOfThoseThatSomebodyWaitsFor) {
  AlarmBook book({.closed = 100, .waiting = 1000, .entries = 2000});
  constexpr std::uint64_t kTold = 600;  // three entries each of 200 alarms
  std::uint64_t alarms = 0;
  const auto fill = [&](std::uint64_t up_to) {
    while (alarms < up_to) {
      const std::string id = alarmId("run", ++alarms);
      for (const auto kind : {AlarmEntry::Kind::kRaised, AlarmEntry::Kind::kCalled, AlarmEntry::Kind::kClosed}) {
        book.apply({.kind = kind, .run = "run", .alarm = id, .event = kFallEvent, .level = 1});
      }
    }
  };
  const auto knows = [&book](std::uint64_t seq) { return book.find(alarmId("run", seq)) != nullptr; };
  fill(600);
  EXPECT_EQ(book.trim(), std::nullopt);
  fill(1100);
  book.keepAbove(kTold);
  EXPECT_EQ(book.trim(), 0U);
  EXPECT_TRUE(!knows(200) && knows(201) && knows(1100)) << "what was told already goes first";
  ASSERT_NE(book.nextFor(kTold, 0, 1), nullptr);
  EXPECT_EQ(book.nextFor(kTold, 0, 1)->alarm, "run-201");
  fill(1600);
  EXPECT_EQ(book.trim(), 400U) << "not without end";
  EXPECT_TRUE(!knows(600) && knows(601));
  book.keepAbove(book.last());
  EXPECT_EQ(book.trim(), 0U) << "nobody waits any more";
  EXPECT_TRUE(!knows(1500) && knows(1501));
}

TEST(AlarmBookTest, WithManyThatAreOpenTheJournalIsNotWrittenAnewForEach) {
  AlarmBook book({.closed = 10, .waiting = 10, .entries = 100});
  std::size_t written = 0;
  for (std::uint64_t alarm = 1; alarm <= 300; ++alarm) {
    book.apply({.kind = AlarmEntry::Kind::kRaised, .run = "run", .alarm = alarmId("run", alarm), .event = kFallEvent});
    book.keepAbove(book.last());
    written += book.trim() ? 1 : 0;
  }
  EXPECT_EQ(written, 4U) << "after each 50";
}

/// Runs killed by SIGKILL, with the real journal of events.
class KilledRun : public AlarmRoom {
 protected:
  /// A run whose fall begins; its id.
  std::string fall(bool with_desk = true) {
    static Handler handler;
    handler.reset(ax_event_handler_new());
    if (with_desk) open();
    const guint id = declare(handler, "Fall", kFallEvent);
    send(handler, id, true);
    return with_desk ? m_desk->now().alarms.at(0).alarm.id : "";
  }
  /// So many beginnings are in the journal of events.
  bool areWritten(std::size_t beginnings) const {
    return comes([&] {
      const std::string text = m_folder.read("events.jsonl");
      std::size_t found = 0;
      for (std::size_t at = 0; (at = text.find(R"("active":true)", at)) != std::string::npos; ++at) ++found;
      return found == beginnings;
    });
  }
};

TEST_F(KilledRun, BetweenRaiseAndAnswerItsAlarmStaysOpen) {
  runUntilKilled([this] {
    fall();
    settles();
  });
  const Handler handler(ax_event_handler_new());
  open();
  ASSERT_EQ(m_desk->now().alarms.size(), 1U);
  const Alarm alarm = m_desk->now().alarms[0].alarm;
  EXPECT_EQ(state(alarm.id), "calling 1");
  EXPECT_TRUE(alarm.closed_at_start && alarm.ended);
  EXPECT_TRUE(answer(alarm.id, AnswerKind::kSeen));
  EXPECT_EQ(state(alarm.id), "closed");
}

TEST_F(KilledRun, BeforeItsAlarmIsWrittenTheEventsTellIt) {
  m_folder.write("alarms.jsonl", lineOf({.kind = AlarmEntry::Kind::kTest, .number = 1, .run = "old"}));
  for (const std::size_t falls : {1U, 2U}) {
    runUntilKilled([this, falls] {
      disk_fault = Fault::kAlarmsHang;
      fall();
      areWritten(falls);
    });
    const Handler handler(ax_event_handler_new());
    open();
    EXPECT_EQ(m_desk->now().alarms.size(), falls);
    const Alarm newest = m_desk->now().alarms.at(0).alarm;
    EXPECT_EQ(state(newest.id), "calling 1");
    EXPECT_TRUE(newest.closed_at_start);
    ASSERT_TRUE(settles());
    m_desk->close();
    m_desk.reset();
  }
}

TEST_F(KilledRun, BetweenAnswerAndStoreTheAnswerDoesNotCount) {
  runUntilKilled([this] {
    const std::string id = fall();
    settles();
    disk_fault = Fault::kAlarmsHang;
    m_desk->answer(id, AnswerKind::kResolved, "Anna", "");
  });
  const Handler handler(ax_event_handler_new());
  open();
  const Alarm alarm = m_desk->now().alarms.at(0).alarm;
  EXPECT_EQ(state(alarm.id), "calling 1");
  EXPECT_TRUE(alarm.answers.empty());
}

TEST_F(KilledRun, WhatWasOverBeforeAlarmsWereKeptIsNoAlarm) {
  const auto change = [this](std::uint64_t number, bool active) {
    return EventRecord{m_clock->wall(), "changed", kFallEvent, "t", active, false, number, "old", 0};
  };
  EventJournal(m_folder.path()).append({change(1, true), change(2, false)});
  Handler handler(ax_event_handler_new());
  open();
  EXPECT_TRUE(m_desk->now().alarms.empty());
  m_desk->close();
  m_desk.reset();
  handler.reset();
  EventJournal(m_folder.path()).append({change(3, true)});
  handler.reset(ax_event_handler_new());
  open();
  ASSERT_EQ(m_desk->now().alarms.size(), 1U) << "what was left active is";
  EXPECT_EQ(m_desk->now().alarms[0].alarm.id, "old-3");
}

}  // namespace
