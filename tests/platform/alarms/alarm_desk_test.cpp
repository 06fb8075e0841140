#include "platform/workstation/alarms/alarm_desk.h"

#include <cstdlib>
#include <ctime>

#include "tests/platform/alarms/alarm_room.h"

namespace {

using namespace workstation;
using namespace std::chrono_literals;

using AlarmDeskTest = AlarmRoom;

TEST_F(AlarmDeskTest, AFallCallsAtOnceAndLouderUntilSomebodyAnswers) {
  open();
  setCalls(kTwoLevels);
  const std::string id = begin(7, kFallEvent);
  EXPECT_EQ(state(id), "calling 1");
  EXPECT_EQ(m_desk->alarm(id)->next, m_clock->wall() + 60s);
  pass(59s);
  EXPECT_EQ(state(id), "calling 1");
  pass(1s);
  EXPECT_EQ(state(id), "calling 2");
  EXPECT_FALSE(alarm(id).wasCalledAgain());
  for (int repeat = 0; repeat < 3; ++repeat) {
    const auto before = alarm(id).called;
    pass(29s);
    EXPECT_EQ(alarm(id).called, before);
    pass(1s);
    EXPECT_EQ(alarm(id).called, m_clock->wall()) << "again at the last level";
    EXPECT_TRUE(alarm(id).wasCalledAgain());
  }
  EXPECT_EQ(state(id), "calling 2");
  ASSERT_TRUE(answer(id, AnswerKind::kComing));
  EXPECT_EQ(state(id), "coming");
  pass(299s);
  EXPECT_EQ(state(id), "coming");
  pass(1s);
  EXPECT_EQ(state(id), "calling 2") << "nobody has come";
  ASSERT_TRUE(answer(id, AnswerKind::kSeen));
  pass(1h);
  EXPECT_EQ(state(id), "seen");
  ASSERT_TRUE(answer(id, AnswerKind::kComing));
  pass(300s);
  EXPECT_EQ(state(id), "calling 2") << "who has seen it and is coming has to arrive as well";
  ASSERT_TRUE(answer(id, AnswerKind::kSeen));
  change(8, kFallEvent, false);
  EXPECT_EQ(state(id), "closed") << "seen, and over";
}

TEST_F(AlarmDeskTest, WhatEndsByItselfStaysUntilSomebodyHasSeenIt) {
  open();
  const std::string fall = begin(1, kFallEvent);
  const std::string exit = begin(2, kExitEvent);
  change(3, kFallEvent, false);
  change(4, kExitEvent, false);
  const auto exit_called = alarm(exit).called;
  const auto fall_called = alarm(fall).called;
  pass(1h);
  EXPECT_EQ(state(fall), "calling 1");
  EXPECT_GT(alarm(fall).called, fall_called) << "who has fallen and is out of sight needs help all the same";
  EXPECT_EQ(state(exit), "calling 1");
  EXPECT_EQ(alarm(exit).called, exit_called) << "who is back in bed needs no further call";
  EXPECT_TRUE(answer(fall, AnswerKind::kSeen) && answer(exit, AnswerKind::kComing));
  EXPECT_EQ(state(fall) + ", " + state(exit), "closed, coming");
  pass(1h);
  EXPECT_EQ(state(exit), "coming");
  EXPECT_TRUE(answer(exit, AnswerKind::kResolved));
  EXPECT_EQ(state(exit), "closed");
  const std::string next = begin(5, kFallEvent);
  ASSERT_TRUE(answer(next, AnswerKind::kFalseAlarm, "Anna", "a blanket"));
  EXPECT_EQ(state(next), "closed") << "while it goes on";
  change(6, kFallEvent, false);
  EXPECT_EQ(alarm(next).ended, m_clock->wall());
  EXPECT_NE(begin(7, "Something New"), "");
  EXPECT_EQ(alarm("run-7").kind, AlarmKind::kFall) << "what is not known is urgent";
}

/// Neither does a clock that is set call too early or too late.
TEST_F(AlarmDeskTest, AClockThatIsSetMovesNoCall) {
  open();
  setCalls(kTwoLevels);
  const std::string id = begin(1, kFallEvent);
  const TimeStamp now = m_clock->wall();
  m_clock->setWall(now + 24h);
  pass(59s);
  EXPECT_EQ(state(id), "calling 1");
  m_clock->setWall(now - 24h);
  pass(1s);
  EXPECT_EQ(state(id), "calling 2");
  EXPECT_EQ(m_desk->alarm(id)->next, m_clock->wall() + 30s) << "told on the clock that people see";
  m_desk->pause(5min, "Anna", "");
  m_clock->setWall(now);
  pass(299s);
  EXPECT_TRUE(m_desk->now().pause);
  pass(1s);
  EXPECT_FALSE(m_desk->now().pause);
}

TEST_F(AlarmDeskTest, AnExitThatEndsWithinItsDelayCallsNobodyAndIsTold) {
  open();
  setCalls(kTwoLevels);
  const std::string brief = begin(1, kExitEvent);
  EXPECT_EQ(state(brief), "held delay");
  EXPECT_EQ(m_desk->alarm(brief)->next, m_clock->wall() + 20s);
  pass(19s);
  change(2, kExitEvent, false);
  EXPECT_EQ(state(brief), "closed");
  pass(1h);
  EXPECT_FALSE(alarm(brief).called);
  EXPECT_EQ(m_desk->now().alarms.size(), 1U);
  const auto late = m_desk->answer(brief, AnswerKind::kSeen, "Anna", "");
  EXPECT_TRUE(late.how == DeskReply::How::kRefused && late.line.find("ended by itself") != std::string::npos);
  const std::string longer = begin(3, kExitEvent);
  pass(20s);
  EXPECT_EQ(state(longer), "calling 1");
  pass(90s);
  EXPECT_EQ(state(longer), "calling 2");
  const std::string expected = begin(5, kExitEvent);
  ASSERT_TRUE(answer(expected, AnswerKind::kComing));
  pass(30s);
  EXPECT_EQ(state(expected), "coming") << "who has answered is not called";
}

TEST_F(AlarmDeskTest, AFallThatEndsWithinItsDelayCallsAllTheSame) {
  open();
  setCalls(R"({"events":{"fall":{"delay_s":60}}})");
  const std::string fall = begin(1, kFallEvent);
  pass(30s);
  change(2, kFallEvent, false);
  EXPECT_EQ(state(fall), "held delay");
  restart();
  EXPECT_EQ(state(fall), "held delay");
  pass(30s);
  EXPECT_EQ(state(fall), "calling 1") << "who has fallen and is out of sight needs help";
}

TEST_F(AlarmDeskTest, WhoDoesNotComeIsMissedAlsoWhileNobodyIsCalled) {
  open();
  m_desk->pause(10min, "Anna", "");
  const std::string held = begin(1, kFallEvent);
  ASSERT_TRUE(answer(held, AnswerKind::kComing));
  struct Told : AlarmListener {
    void onAlarm(const AlarmView& view, std::uint64_t /*version*/) override { last = view.alarm.state(); }
    AlarmState last = AlarmState::kClosed;
  } told;
  m_desk->listen(told);
  pass(300s);
  EXPECT_EQ(state(held), "held pause");
  EXPECT_EQ(told.last, AlarmState::kHeld) << "and pages are told";
  m_desk->stopListening(told);
  const std::string exit = begin(2, kExitEvent);
  ASSERT_TRUE(answer(exit, AnswerKind::kComing));
  change(3, kExitEvent, false);
  restart();
  pass(1h);
  EXPECT_EQ(state(exit), "coming") << "who is back in bed needs nobody any more";
}

/// A time of the day, on the clock of the place.
TimeStamp localTime(int month, int day, int hour, int minute) {
  std::tm parts{};
  parts.tm_year = 126;
  parts.tm_mon = month - 1;
  parts.tm_mday = day;
  parts.tm_hour = hour;
  parts.tm_min = minute;
  parts.tm_isdst = -1;
  return TimeStamp(std::chrono::seconds(std::mktime(&parts)));
}

TEST_F(AlarmDeskTest, CallsAtTheHoursThatAreSetOnTheClockOfThePlace) {
  ::setenv("TZ", "Europe/Berlin", 1);
  open();
  setCalls(R"({"events":{"exit":{"hours":[{"from":"22:00","to":"06:00"}]}}})");
  m_clock->setWall(localTime(11, 20, 21, 58));
  const std::string evening = begin(1, kExitEvent);
  EXPECT_EQ(state(evening), "held hours");
  EXPECT_FALSE(m_desk->alarm(evening)->next);
  EXPECT_EQ(state(begin(2, kFallEvent)), "calling 1") << "a fall calls at all hours";
  pass(119s);
  EXPECT_EQ(state(evening), "held hours");
  pass(1s);
  EXPECT_EQ(state(evening), "calling 1") << "still out of bed when the night begins";
  m_clock->setWall(localTime(11, 21, 6, 0));
  const std::string morning = begin(3, kExitEvent);
  EXPECT_EQ(state(morning), "held hours");
  change(4, kExitEvent, false);
  EXPECT_EQ(state(morning), "closed");
  setCalls(R"({"events":{"fall":{"delay_s":60,"hours":[{"from":"22:00","to":"06:00"}]}}})");
  const auto briefAt = [&](int hour, int minute, std::uint64_t seq) {
    m_clock->setWall(localTime(11, 21, hour, minute) + 30s);
    const std::string brief = begin(seq, ("Fall " + std::to_string(seq)).c_str());
    pass(20s);
    change(seq + 1, ("Fall " + std::to_string(seq)).c_str(), false);
    pass(40s);
    return state(brief);
  };
  EXPECT_EQ(briefAt(5, 59, 5), "calling 1") << "a fall at the last minute of the night";
  EXPECT_EQ(briefAt(10, 0, 7), "closed") << "and one by day";
  const std::vector<CallHours> small_hours = {{2 * 60 + 30, 3 * 60 + 30}};
  // The clocks go on at 2:00 on March 29th and back at 3:00 on October 25th.
  EXPECT_FALSE(isWithin(small_hours, localTime(3, 29, 1, 59)));
  EXPECT_TRUE(isWithin(small_hours, localTime(3, 29, 1, 59) + 60s)) << "it is 3:00 then";
  EXPECT_FALSE(isWithin(small_hours, localTime(3, 29, 1, 59) + 31min));
  EXPECT_TRUE(isWithin(small_hours, localTime(10, 25, 1, 59) + 32min));
  EXPECT_FALSE(isWithin(small_hours, localTime(10, 25, 1, 59) + 62min)) << "2:01 once more";
  EXPECT_TRUE(isWithin(small_hours, localTime(10, 25, 1, 59) + 92min));
  EXPECT_TRUE(isWithin({{0, 24 * 60}}, localTime(10, 25, 23, 59)));
  ::unsetenv("TZ");
  ::tzset();
}

TEST_F(AlarmDeskTest, APauseHoldsWhatBeginsAndCallsWhatIsOpenAtItsEnd) {
  open();
  const std::string before = begin(1, kFallEvent);
  EXPECT_EQ(m_desk->pause(4min, "Anna", "").how, DeskReply::How::kRefused);
  EXPECT_EQ(m_desk->pause(61min, "Anna", "").how, DeskReply::How::kRefused);
  EXPECT_EQ(m_desk->unpause("Anna").how, DeskReply::How::kRefused);
  m_desk->pause(10min, "Anna", "washing");
  const std::string fall = begin(2, kFallEvent);
  EXPECT_EQ(state(fall), "held pause");
  change(3, kFallEvent, false);
  EXPECT_EQ(state(fall), "held pause") << "a fall that is over";
  const std::string exit = begin(4, kExitEvent);
  change(5, kExitEvent, false);
  EXPECT_EQ(state(exit), "closed") << "out of bed and back, with the carer";
  const std::string still_out = begin(6, kExitEvent);
  pass(599s);
  EXPECT_EQ(state(before), "calling 1") << "what called already goes on";
  EXPECT_EQ(state(fall) + ", " + state(still_out), "held pause, held pause");
  pass(1s);
  EXPECT_EQ(state(fall) + ", " + state(still_out), "calling 1, calling 1");
  EXPECT_FALSE(m_desk->now().pause);
  m_desk->pause(10min, "Anna", "");
  const std::string next = begin(8, kFallEvent);
  m_desk->unpause("Bert");
  EXPECT_EQ(state(next), "calling 1");
  ASSERT_TRUE(settles());
  const std::string journal = m_folder.read("alarms.jsonl");
  EXPECT_NE(journal.find(R"("by":"Anna","reason":"washing")"), std::string::npos) << journal;
  EXPECT_NE(journal.find(R"("kind":"unpaused","by":"")"), std::string::npos) << "by itself";
  EXPECT_NE(journal.find(R"("kind":"unpaused","by":"Bert")"), std::string::npos);
}

TEST_F(AlarmDeskTest, KeepsAllAnswersAndTheFirstWhoIsComing) {
  open();
  const std::string id = begin(1, kFallEvent);
  disk_fault = Fault::kHangs;
  EXPECT_EQ(m_desk->answer(id, AnswerKind::kComing, "Anna", "").how, DeskReply::How::kTaken);
  EXPECT_EQ(m_desk->answer(id, AnswerKind::kComing, "Bert", std::string(499, 'x') + "\xC3\xA4").how,
            DeskReply::How::kTaken);
  EXPECT_EQ(state(id), "calling 1") << "nothing counts before it is on disk";
  disk_fault = Fault::kNone;
  ASSERT_TRUE(comes([&] { return alarm(id).answers.at(1).stored; }));
  EXPECT_EQ(state(id), "coming");
  EXPECT_EQ(alarm(id).answers.at(0).by + alarm(id).answers.at(1).by, "AnnaBert");
  EXPECT_EQ(alarm(id).answers.at(1).reason.size(), 499U) << "cut between two characters";
  EXPECT_EQ(m_desk->answer("run-2", AnswerKind::kSeen, "Anna", "").how, DeskReply::How::kUnknown);
  for (std::size_t i = 2; i < AlarmDesk::kMostAnswers; ++i) m_desk->answer(id, AnswerKind::kComing, "Anna", "");
  EXPECT_EQ(m_desk->answer(id, AnswerKind::kSeen, "Anna", "").how, DeskReply::How::kRefused);
  ASSERT_TRUE(answer(id, AnswerKind::kResolved, "Bert")) << "the last answer is always taken";
  const auto late = m_desk->answer(id, AnswerKind::kSeen, "Anna", "");
  EXPECT_EQ(late.line, "It is closed already: resolved by Bert.");
}

TEST_F(AlarmDeskTest, OfTooManyThatNobodyAnswersTheOldestThatIsOverIsClosed) {
  open();
  const std::string first = begin(1, kFallEvent);
  begin(2, kExitEvent);
  change(3, kExitEvent, false);
  for (std::uint64_t seq = 4; seq < AlarmDesk::kMostOpen + 3; ++seq) begin(seq, "Another Event");
  m_desk->look();
  EXPECT_EQ(state(first), "calling 1");
  EXPECT_EQ(state("run-2"), "closed");
}

}  // namespace
