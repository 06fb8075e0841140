#include "evaluate/judging/happened.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

using evaluate::Happened;
using evaluate::parseHappened;

std::string mistakesIn(const std::string& text) {
  try {
    parseHappened(text, "a.txt");
    return "none";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

std::string textOf(const evaluate::Intervals& intervals) {
  std::ostringstream text;
  for (const auto& [begin, end] : intervals) text << begin << ' ' << end << "; ";
  return text.str();
}

TEST(Happened, IsReadAsSomebodyWroteIt) {
  const Happened happened = parseHappened(
      "\xEF\xBB\xBF# by hand\r\n"
      "length 1:32.5   # the whole of it\r\n"
      "\r\n"
      "67 is back,  tired # at last\r\n"
      "0 - 16.25\t in   bed\n"
      "16.25 - 67 out of bed\n"
      "67 - 1:22 in bed 1\n"
      "0 - 1:01 out of bed 3\n"
      "59 - 60 fallen\n"
      "60 - 61 fallen\n"
      "48 - 1:19 carer present\n"
      "82.5 - 92.5 nobody\n"
      "16.25 gets up",
      "a.txt");
  EXPECT_DOUBLE_EQ(happened.length_s, 92.5);
  EXPECT_EQ(textOf(happened.in_bed.at(1)), "0 16.25; 67 82; ");
  EXPECT_EQ(textOf(happened.out_of_bed.at(1)), "16.25 67; ");
  EXPECT_EQ(textOf(happened.out_of_bed.at(3)), "0 61; ");
  EXPECT_EQ(textOf(happened.fallen), "59 60; 60 61; ");
  EXPECT_EQ(textOf(happened.carer), "48 79; ");
  EXPECT_EQ(textOf(happened.nobody), "82.5 92.5; ");
  ASSERT_EQ(happened.moments.size(), 2U);
  EXPECT_EQ(happened.moments[0].text, "gets up");
  EXPECT_EQ(happened.moments[1].text, "is back, tired");
}

TEST(Happened, EveryMistakeIsALine) {
  const std::string kStart = "length 92\n";
  const std::pair<std::string, std::string> kMistakes[] = {
      {"", "a.txt line 1: the length is missing"},
      {"0 - 5 fallen\n7 - 6 fallen", "a.txt line 1: the length is missing; allowed is \"length TIME\" before"},
      {"length soon", "a.txt line 1: \"soon\" is no time; allowed are \"length TIME\""},
      {"length 0", "a.txt line 1: a length of 0"},
      {"length 92 s", "a.txt line 1: the length is no time"},
      {kStart + "length 93", "a.txt line 2: the length comes again"},
      {"length 99999999", "a.txt line 1: \"99999999\" is too long; allowed are seven days"},
      {kStart + "0 5 - in bed\n1 - 2", "a.txt line 3: an interval lacks its end or its state"},
      {kStart + "12", "a.txt line 2: says nothing about its time"},
      {kStart + "-1 - 5 fallen", "a.txt line 2: \"-1\" is no time"},
      {kStart + "1e1 - 20 fallen", "a.txt line 2: \"1e1\" is no time"},
      {kStart + "1:5 falls", "a.txt line 2: \"1:5\" is no time"},
      {kStart + "0:60 falls", "a.txt line 2: \"0:60\" is no time"},
      {kStart + "nan falls", "a.txt line 2: \"nan\" is no time"},
      {kStart + "0 - 5 asleep", "a.txt line 2: \"asleep\" is no state; allowed are in bed, out of bed"},
      {kStart + "0 - 5 in bed 4", "a.txt line 2: \"in bed 4\" is no state"},
      {kStart + "5 - 5 fallen", "a.txt line 2: begins at 5 s and ends at 5 s"},
      {kStart + "0 - 92.1 fallen", "a.txt line 2: 92.1 s lies behind the recording's end; allowed are times up to"},
      {kStart + "93 ends", "a.txt line 2: 93 s lies behind"},
      {kStart + "5 - 9 fallen\n8 - 12 fallen", "a.txt line 3: begins before the \"fallen\" of line 2 ends"},
      {kStart + "5 - 9 in bed 2\n1 - 2 in bed 2", "a.txt line 3: begins before the \"in bed 2\" of line 2"},
      {kStart + "5 - 9 out of bed 2\n8 - 12 in bed 2",
       "a.txt line 3: \"in bed 2\" and \"out of bed 2\" at once, with line 2"},
      {kStart + "5 - 9 nobody\n8 - 12 in bed 3", "a.txt line 3: \"in bed 3\" and \"nobody\" at once"},
      {kStart + "5 - 9 nobody\n8 - 12 fallen", "a.txt line 3: \"fallen\" and \"nobody\" at once"},
      {kStart + "8 - 12 carer present\n5 - 9 nobody", "a.txt line 3: \"carer present\" and \"nobody\" at once"},
      {kStart + "5 - 9 in bed\n9 - 12 out of bed\n5 - 12 in bed 2\n5 - 9 fallen", "none"},
      {kStart + "3 falls \xFF", "a.txt line 2: is no UTF-8 text"},
      {kStart + "x\n1 - 2 y\n",
       "a.txt line 2: \"x\" is no time; allowed are \"length TIME\", \"FROM - TO STATE\" and "
       "\"TIME TEXT\", a time as 41.5 or 1:02.5\na.txt line 3: \"y\" is no state"},
  };
  for (const auto& [text, mistake] : kMistakes) EXPECT_EQ(mistakesIn(text).substr(0, mistake.size()), mistake) << text;
  std::string many = kStart;
  for (int i = 0; i < 1000; ++i) many += "x\n";
  const std::string told = mistakesIn(many);
  EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 20);
  EXPECT_TRUE(told.ends_with("a.txt: and 980 mistakes more")) << told;
}

}  // namespace
