#include "evaluate/judging/scoring.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

namespace {

using evaluate::Event;
using evaluate::Intervals;
using evaluate::Kind;
using evaluate::Score;

/// "1 of 1, delay 6; false 5-8 @5": what was found, with the delays, and the differences with what is asked.
std::string inWords(const Score& score) {
  const evaluate::Sum sum = evaluate::sumOf(score, 100);
  std::ostringstream text;
  text << sum.found << " of " << sum.needed;
  for (const double delay : sum.delays_s) text << ", delay " << delay;
  for (const evaluate::Difference& one : score.differences) {
    text << "; " << nameOf(one.kind) << ' ' << one.when.begin << '-' << one.when.end << " @" << one.ask;
  }
  return text.str();
}

Score scored(Event event, const std::string& happened, const Intervals& alarms, const std::set<int>& beds = {1}) {
  return score(event, truthOf(event, evaluate::parseHappened("length 100\n" + happened, "story"), beds), alarms);
}

struct Case {
  const char* about;
  Event event;
  const char* happened;
  Intervals alarms;
  const char* expected;
  std::set<int> beds = {1};
};

TEST(Scoring, TellsEachKindOfDifference) {
  const char* const kExit = "0 - 16 in bed\n18 - 60 out of bed\n62 - 100 in bed";
  const char* const kFall = "30 - 60 fallen";
  const char* const kTwo =
      "0 - 20 in bed\n0 - 30 in bed 2\n20 - 50 out of bed\n50 - 100 in bed\n30 - 60 out of bed 2\n60 - 100 in bed 2";
  const Event out = Event::kOutOfBed;
  const Event fall = Event::kFall;
  const Case kCases[] = {
      {"found", out, kExit, {{24, 61}}, "1 of 1, delay 6"},
      {"missed, and asked when it was due", out, kExit, {}, "0 of 1; missed 18-60 @24.5"},
      {"false, and the true one is still missed", out, kExit, {{5, 8}}, "0 of 1; false 5-8 @5; missed 18-60 @24.5"},
      {"false at the very beginning", out, kExit, {{1, 2}, {24, 60}}, "1 of 1, delay 6; false 1-2 @1"},
      {"false at the very end", out, kExit, {{24, 60}, {99.5, 100}}, "1 of 1, delay 6; false 99.5-100 @99.5"},
      {"a stopwatch's second too early", out, "0 - 18 in bed\n18 - 60 out of bed", {{17.5, 60}}, "1 of 1, delay 0"},
      {"in the undecided time either is right", out, kExit, {{16.5, 17.5}}, "0 of 1; missed 18-60 @24.5"},
      {"shortly after its cause", out, kExit, {{24, 60}, {64, 66}}, "1 of 1, delay 6"},
      {"too late after its cause", out, kExit, {{24, 60}, {66, 68}}, "1 of 1, delay 6; false 66-68 @66"},
      {"a gap, and a second alarm", out, kExit, {{24, 40}, {45.5, 60}}, "1 of 1, delay 6; gap 40-45.5 @40"},
      {"it ends too early", out, kExit, {{24, 40}}, "1 of 1, delay 6; gap 40-60 @40"},
      {"it ends a little early", out, kExit, {{24, 58}}, "1 of 1, delay 6"},
      {"it goes on for long", out, kExit, {{24, 80}}, "1 of 1, delay 6; too long 62-80 @72"},
      {"it goes on for a little", out, kExit, {{24, 71}}, "1 of 1, delay 6"},
      {"a false one that goes on into the true one", out, kExit, {{5, 61}}, "1 of 1; false 5-61 @5"},
      {"too short for the rules", out, "0 - 20 in bed\n20 - 27 out of bed\n27 - 100 in bed", {}, "0 of 0"},
      {"long enough for them",
       out,
       "0 - 20 in bed\n20 - 27.5 out of bed\n27.5 - 100 in bed",
       {},
       "0 of 1; missed 20-27.5 @26.5"},
      {"too short, and told all the same",
       out,
       "0 - 20 in bed\n20 - 27 out of bed\n27 - 100 in bed",
       {{26, 28}},
       "0 of 0"},
      {"two beds are one event", out, kTwo, {{26, 60}}, "1 of 1, delay 6", {1, 2}},
      {"the second bed alone keeps it up", out, kTwo, {{26, 50}}, "1 of 1, delay 6; gap 50-60 @50", {1, 2}},
      {"a bed not in use counts for nothing", out, kTwo, {{26, 50}}, "1 of 1, delay 6", {1}},
      {"a bed of which nothing is said: either is right", out, "0 - 100 in bed", {{30, 60}}, "0 of 0", {1, 2}},
      {"a fall", fall, kFall, {{40, 62.5}}, "1 of 1, delay 10"},
      {"told as soon as somebody is up again", fall, kFall, {{62, 65}}, "1 of 1, delay 32"},
      {"of somebody who sits", fall, kFall, {{10, 20}, {40, 60}}, "1 of 1, delay 10; false 10-20 @10"},
      {"too short a fall", fall, "30 - 40 fallen", {}, "0 of 0"},
      {"a long enough one", fall, "30 - 40.5 fallen", {}, "0 of 1; missed 30-40.5 @39.5"},
      {"two falls, an alarm",
       fall,
       "10 - 30 fallen\n60 - 80 fallen",
       {{20, 31}},
       "1 of 2, delay 10; missed 60-80 @69.5"},
      {"one alarm over two falls is too long",
       fall,
       "10 - 30 fallen\n60 - 80 fallen",
       {{20, 80}},
       "2 of 2, delay 10; too long 30-60 @40"},
  };
  for (const Case& one : kCases) {
    EXPECT_EQ(inWords(scored(one.event, one.happened, one.alarms, one.beds)), one.expected) << one.about;
  }
}

TEST(Scoring, StandsBesideTheTruePeople) {
  const std::string kFalls = "10 - 30 fallen\n60 - 80 fallen";
  const Score reference = scored(Event::kFall, kFalls, {{20, 30}, {72, 80}, {90, 95}});
  Score later = scored(Event::kFall, kFalls, {{21.5, 30}, {74, 80}, {92, 95}});
  compareWith(reference, later);
  EXPECT_EQ(inWords(later), "2 of 2, delay 11.5, delay 14; later 72-74 @72; false 92-95 @92");
  EXPECT_TRUE(hasAlike(reference, later.differences[1]));
  EXPECT_FALSE(hasAlike(reference, later.differences[0]));
  Score missed = scored(Event::kFall, kFalls, {{20, 30}});
  compareWith(reference, missed);
  EXPECT_EQ(inWords(missed), "1 of 2, delay 10; missed 60-80 @72");
}

TEST(Scoring, AddsUp) {
  const evaluate::Sum one = evaluate::sumOf(scored(Event::kFall, "10 - 30 fallen", {{20, 25}, {50, 60}}), 43200);
  const evaluate::Sum other =
      evaluate::sumOf(scored(Event::kFall, "10 - 30 fallen\n60 - 80 fallen", {{13, 30}, {75, 80}}), 43200);
  const evaluate::Sum none = evaluate::sumOf(scored(Event::kFall, "10 - 30 fallen", {}), 86400);
  const evaluate::Sum all = one + other + none;
  EXPECT_EQ(all.needed, 4);
  EXPECT_EQ(all.missed(), 1);
  EXPECT_EQ(all.gaps, 1);
  EXPECT_DOUBLE_EQ(all.gaps_s, 5);
  EXPECT_DOUBLE_EQ(all.falseADay(), 0.5);
  EXPECT_DOUBLE_EQ(all.medianDelay().value(), 10);
  EXPECT_DOUBLE_EQ(other.medianDelay().value(), 9);
  EXPECT_DOUBLE_EQ(all.worstDelay().value(), 15);
  EXPECT_FALSE(none.medianDelay());
}

}  // namespace
