#include "platform/workstation/trace/explain_trace.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/workstation/trace/live_explanation.h"
#include "tests/platform/conditions.h"
#include "tests/platform/state_folder.h"

namespace {

using nlohmann::json;

const std::string kOutOfBed = "Patient Out of Bed";
const std::string kFall = "Fall Detected";

json settings() {
  return {{"Sensitivity", "0.379999995"},  {"MaxDisappeared", "8"}, {"DetectPatientOutOfBed", "true"},
          {"DetectFallenPersons", "true"}, {"FeetOnFloor", "true"}, {"Detection1Active", "true"},
          {"Detection10x", "100"},         {"Detection10y", "100"}, {"Detection11x", "300"},
          {"Detection11y", "100"},         {"Detection12x", "300"}, {"Detection12y", "200"},
          {"Detection13x", "100"},         {"Detection13y", "200"}};
}

json header(bool replay) {
  return {{"kind", "trace"},        {"version", 1},     {"program", "velmor_care"},
          {"picture", {1280, 720}}, {"replay", replay}, {"period_ms", 500}};
}

/// A cycle in which nobody is seen, bed 1 is empty and nothing is active.
json cycle(int number, std::int64_t begin_ns = 0) {
  const std::int64_t ns = begin_ns + number * std::int64_t{500'000'000};
  return {{"kind", "cycle"},
          {"ns", ns},
          {"t", number / 2.0},
          {"number", number},
          {"beds", {{{"area", 1}, {"occupied", false}}}},
          {"out_of_bed", {{"cycles", 3}, {"limit", 10}}},
          {"fallen", nullptr},
          {"events", {{{"name", kOutOfBed}, {"active", false}}, {{"name", kFall}, {"active", false}}}}};
}

/// A body upright at that place whose shoulders are sure.
json pose(int n, int x, int y, double score = 0.5) {
  json points = json::array();
  for (int part = 0; part < 17; ++part) points.push_back({x, y + (part < 11 ? 0 : part < 13 ? 60 : 160), 0.6});
  return {{"n", n}, {"score", score}, {"points", points}};
}

/// Somebody who lies still on the floor, one finding short of a fall.
json person(int id) {
  return {{"id", id},
          {"n", 0},
          {"place", {400, 150}},
          {"footing", "floor"},
          {"areas", {{{"kind", "bed"}, {"area", 1}, {"distance", 100.4}}}},
          {"findings", 12},
          {"depth", 12},
          {"activity", "lying"},
          {"off", 220.0},
          {"limit", 120.0},
          {"metre", 200.0},
          {"torso_to_legs", 0.6},
          {"torso_to_legs_limit", 0.5},
          {"movement", 2.5},
          {"movement_limit", 10.0},
          {"lying_for", 5},
          {"needed", 6},
          {"against", {{"rule", "moving"}, {"back", 5}}}};
}

json with(json object, const json& changes) {
  if (!changes.is_null()) object.update(changes);
  return object;
}

class ExplainTrace : public testing::Test {
 protected:
  /// With header and settings before.
  std::string write(const std::vector<json>& lines, bool replay = true, const std::string& name = "a.jsonl") {
    std::string text =
        header(replay).dump() + "\n" + json{{"kind", "settings"}, {"ns", 0}, {"parameters", m_settings}}.dump() + "\n";
    for (const json& line : lines) text += line.dump() + "\n";
    if (m_ends)
      text += R"({"kind": "end", "ns": 0, "cycles": 1})"
              "\n";
    m_folder.write(name, text);
    return (m_folder / name).string();
  }

  /// Without the folder's name, an error as one.
  std::string explain(const workstation::ExplainRequest& request) {
    std::string text;
    try {
      text = workstation::explainTrace(request);
    } catch (const std::runtime_error& error) {
      text = std::string("error: ") + error.what();
    }
    const std::string folder = m_folder.path().string() + "/";
    for (std::size_t at = 0; (at = text.find(folder)) != std::string::npos;) text.erase(at, folder.size());
    return text;
  }

  /// The sentence on this event at the only cycle's time.
  std::string noAlarm(const std::string& event, const json& changes) {
    std::string text = explain({write({with(cycle(1), changes)}), "0.5", {}});
    const std::string begin = "  " + event + ", no alarm: ";
    const std::size_t from = text.find(begin);
    if (from == std::string::npos) return text;
    return text.substr(from + begin.size(), text.find('\n', from) - from - begin.size());
  }

  StateFolder m_folder;
  json m_settings = settings();
  bool m_ends = true;  ///< in order
};

json changed(const std::string& name, bool active) {
  return {{"events", {{{"name", name}, {"active", active}, {"changed", true}}}}};
}

const std::string kShoulders =
    "the shoulders are 1.1 m from where they would be if upright above these feet (limit 0.6 m)";

TEST_F(ExplainTrace, EachChangeOfAnEventIsToldWithItsReason) {
  const json fallen = with(person(3), {{"activity", "fallen"}, {"lying_for", 6}});
  const json empty = {{"people", {person(3)}}, {"out_of_bed", {{"cycles", 11}, {"limit", 10}}}};
  const json in_bed = with(
      person(5), {{"footing", "bed"}, {"area", 1}, {"areas", {{{"kind", "bed"}, {"area", 1}, {"distance", -38.2}}}}});
  const std::string file =
      write({cycle(1),
             with(with(cycle(2), empty), changed(kOutOfBed, true)),
             {{"kind", "event"}, {"seq", 7}, {"run", "9f"}, {"ns", 1'500'000'000}, {"name", kFall}, {"active", true}},
             with(with(cycle(3), {{"people", {fallen}}}), changed(kFall, true)),
             with(cycle(4), {{"failed", true}}),
             with(with(cycle(5), {{"people", json::array()}, {"forgotten", {3}}}), changed(kFall, false)),
             with(with(cycle(8), {{"people", {in_bed}}, {"beds", {{{"area", 1}, {"occupied", true}, {"by", 5}}}}}),
                  changed(kOutOfBed, false))});
  EXPECT_EQ(explain({file, {}, {}}),
            "a.jsonl: a recording, 6 cycles from 0.5 s to 4.0 s, by velmor_care.\n"
            "Settings at the end: Sensitivity 0.38, MaxDisappeared 8; beds in use: 1; exclusion areas in use: none.\n"
            "1 cycle failed, the first at 2.0 s: no picture or no network.\n"
            "2 cycles are missing: they were never written.\n"
            "  1  1.0 s  Patient Out of Bed: bed 1 has been empty for 5.5 s, and more than 5 s raise the event; "
            "the nearest is person 3, whose shoulders are 100 px outside its outline.\n"
            "  2  1.5 s  Fall Detected: person 3 has lain still on the floor for 3 s; " +
                kShoulders +
                ".\n"
                "  3  2.5 s  Fall Detected ended: person 3 has not been seen for more than 4 s and is forgotten.\n"
                "  4  4.0 s  Patient Out of Bed ended: bed 1 counts as occupied by person 5, whose shoulders are 38 px "
                "inside "
                "its outline.\n");
  EXPECT_EQ(explain({file, {}, 2}),
            "2  1.5 s  Fall Detected: person 3 has lain still on the floor for 3 s; " + kShoulders +
                ".\n"
                "What led to it:\n"
                "  Person 3\n"
                "    1.0 s: lies still on the floor, for 2.5 s of 3 s so far; before that this person moved; " +
                kShoulders +
                ".\n"
                "    1.5 s: has lain still on the floor for 3 s; " +
                kShoulders + ".\n");
  EXPECT_EQ(explain({file, {}, 5}), "error: a.jsonl: has no change 5; allowed are 1 to 4");
  EXPECT_EQ(
      explain({file, "2", {}}),
      "2.0 s, cycle 4\n  The cycle failed: there was no picture or no network. Nothing was decided, and all stayed as "
      "it was.\n");
}

TEST_F(ExplainTrace, WhenNobodyWasWatchedIsToldWithTheReason) {
  const auto watching = [](double s, bool active, const std::string& why) {
    return json{{"kind", "watching"}, {"seq", 1}, {"ns", std::llround(s * 1e9)}, {"active", active}, {"why", why}};
  };
  const std::string file =
      write({cycle(1), watching(0.5, true, ""), cycle(2), cycle(3), watching(1.0, false, "lens-covered"), cycle(4),
             watching(2.0, false, "too-dark"), cycle(5), watching(2.5, true, ""), cycle(6),
             watching(3.0, false, "something-new"), watching(3.0, false, "camera-moved")});
  const std::string all = explain({file, {}, {}});
  EXPECT_NE(all.find("     1.0 s to 2.0 s: nobody was watched: the lens was covered.\n"
                     "     2.0 s to 2.5 s: nobody was watched: it was too dark to see anybody.\n"
                     "     3.0 s on: nobody was watched: the camera had been moved since the floor was calibrated.\n"),
            std::string::npos)
      << all;
  EXPECT_NE(explain({file, "1.5", {}}).find("Nobody was watched: the lens was covered."), std::string::npos);
  EXPECT_NE(explain({file, "3", {}}).find("Nobody was watched: the camera had been moved"), std::string::npos);
  EXPECT_EQ(explain({file, "2.5", {}}).find("Nobody was watched"), std::string::npos);
}

TEST_F(ExplainTrace, NoFallSaysWhatStandsAgainstIt) {
  const auto of = [this](const json& changes) { return noAlarm(kFall, {{"people", {with(person(3), changes)}}}); };
  const auto against = [&of](const std::string& rule) {
    return of({{"lying_for", 0}, {"against", {{"rule", rule}, {"back", 0}}}});
  };
  EXPECT_EQ(noAlarm(kFall, {}), "nobody is tracked.");
  EXPECT_EQ(of({{"activity", "standing"}}), "person 3 stands.");
  EXPECT_EQ(of({{"activity", "standing"}, {"movement", 11}}),
            "person 3 stands; over the last 6 s the body moved on average by 11 % of its height a second "
            "(limit 10 %).");
  EXPECT_EQ(of({{"activity", "fallen"}, {"lying_for", 12}, {"needed", 12}}),
            "person 3 has lain still on the floor for 6 s or more; " + kShoulders + ".");
  EXPECT_EQ(noAlarm(kFall, {{"people", {with(person(3), {{"activity", "standing"}, {"n", nullptr}})}},
                            {"tracks", {{{"id", 3}, {"missing", 6}}}}}),
            "person 3 has not been seen for 3 s; last seen standing.");
  EXPECT_EQ(of({{"footing", "bed"}, {"area", 2}}), "person 3 is in bed 2.");
  EXPECT_EQ(of({{"footing", "exclusion"}, {"area", 1}}), "person 3 is in exclusion area 1.");
  EXPECT_EQ(of({{"activity", "unknown"}, {"findings", 1}}),
            "person 3 is outside the beds, known for 0.5 s, and judged from 5.5 s on.");
  EXPECT_EQ(of({{"activity", "unknown"}}),
            "person 3 is outside the beds, and whether this person stands or lies cannot be told.");
  EXPECT_EQ(against("near edge"), "person 3 lies on the floor but reaches the picture's edge, where no fall is told.");
  EXPECT_EQ(of({{"movement", 10.04}, {"against", {{"rule", "moving"}, {"back", 0}}}}),
            "person 3 lies on the floor; over the last 6 s the body moved on average by 10.04 % of its height "
            "a second (limit 10.00 %).");
  const std::string lies = "person 3 lies still on the floor, for 0.5 s of 3 s so far; before that this person ";
  const std::vector<std::pair<std::string, std::string>> before = {{"bed", "was in a bed"},
                                                                   {"exclusion", "was in an exclusion area"},
                                                                   {"unknown", "could not be judged yet"},
                                                                   {"standing", "stood"},
                                                                   {"sitting", "sat"},
                                                                   {"near edge", "reached the picture's edge"},
                                                                   {"moving", "moved"}};
  for (const auto& [rule, was] : before) {
    EXPECT_EQ(of({{"lying_for", 1}, {"against", {{"rule", rule}, {"back", 1}}}}), lies + was + ".");
  }
  m_settings["DetectFallenPersons"] = "false";
  EXPECT_EQ(of({}), "the event is switched off in the settings.");
}

TEST_F(ExplainTrace, NoExitSaysWhoIsInWhichBedAndHowLongOneWasEmpty) {
  const auto inside = [](int id, int area, double distance) {
    return with(
        person(id),
        {{"footing", "bed"},
         {"area", area},
         {"areas",
          {{{"kind", "bed"}, {"area", 1}, {"distance", distance}}, {{"kind", "bed"}, {"area", 2}, {"distance", -5}}}}});
  };
  json missing = inside(5, 1, -12);
  missing.erase("n");
  const json occupied = {{"area", 1}, {"occupied", true}, {"by", 5}};
  EXPECT_EQ(
      noAlarm(kOutOfBed, {{"beds", {occupied}}, {"people", {missing}}, {"tracks", {{{"id", 5}, {"missing", 1}}}}}),
      "bed 1 counts as occupied by person 5, whose place where last seen is 12 px inside its outline; not seen for 0.5 "
      "s, and counted where last seen for up to 4 s.");
  EXPECT_EQ(
      noAlarm(kOutOfBed, {{"beds", {occupied, {{"area", 2}, {"occupied", false}}}}, {"people", {inside(5, 1, -12)}}}),
      "a bed has been empty for only 1.5 s, and more than 5 s raise the event; bed 2 is empty: person 5 "
      "counts in bed 1.");
  json head = pose(0, 400, 150);
  for (const int part : {5, 6}) head["points"][static_cast<std::size_t>(part)][2] = 0.1;
  EXPECT_EQ(noAlarm(kOutOfBed, {{"people", {person(5)}}, {"runs", {{{"rotation", 0}, {"poses", {head}}}}}}),
            "bed 1 has been empty for only 1.5 s, and more than 5 s raise the event; the nearest is person "
            "5, whose head is 100 px outside its outline.");
  EXPECT_EQ(noAlarm(kOutOfBed, {{"beds", json::array()}}), "no bed area is in use.");
  m_settings["DetectPatientOutOfBed"] = "false";
  EXPECT_EQ(noAlarm(kOutOfBed, {}), "the event is switched off in the settings.");
}

TEST_F(ExplainTrace, WhoWasLeftOutIsToldWithTheRuleAndItsNumbers) {
  const auto dropped = [](json one, const json& why) { return with(std::move(one), {{"dropped", why}}); };
  const auto rule = [](const char* name, double value, double limit) {
    return json{{"rule", name}, {"value", value}, {"limit", limit}};
  };
  json mixed = pose(7, 600, 300);  // upright there, while the run before saw somebody far to the right
  json made = with(pose(8, 700, 300), {{"of", {6, 7}}, {"distance", 40.0}, {"made", 8}, {"score", 1.1}});
  const json runs = {
      {{"rotation", 0},
       {"poses",
        {dropped(pose(0, 900, 50), rule("too small", 0.0066, 0.007)), dropped(pose(1, 900, 50), rule("turned", 180, 0)),
         pose(6, 800, 300)}}},
      {{"rotation", 180},
       {"poses",
        {dropped(pose(2, 200, 150), {{"rule", "not confirmed"}, {"value", nullptr}, {"limit", 0.38}}),
         dropped(pose(3, 200, 150, 0.05), rule("pose score", 0.05, 0.15)),
         dropped(pose(4, 200, 150, 0.1499), rule("pose score", 0.1499, 0.15))}}},
      {{"rotation", 90}, {"poses", {pose(5, 900, 60, 0.31), mixed, pose(9, 950, 60), pose(10, 960, 60)}}}};
  const json changes = {{"runs", runs},
                        {"fusion", {made, {{"of", {9, 10}}, {"distance", 2.0}, {"dropped", 10}}}},
                        {"filtered", {with(rule("score", 0.31, 0.38), {{"n", 5}})}},
                        {"suppressed", {{{"n", 9}, {"by", 8}, {"share", 0.45}, {"limit", 0.2}}}},
                        {"confirmation", "no picture"},
                        {"people", {with(person(3), {{"n", 8}, {"activity", "standing"}})}}};
  EXPECT_EQ(
      explain({write({with(cycle(1), changes)}), "0.5", {}}),
      "0.5 s, cycle 1\n"
      "  Patient Out of Bed, no alarm: bed 1 has been empty for only 1.5 s, and more than 5 s raise "
      "the event; "
      "the nearest is person 3, whose shoulders are 100 px outside its outline; 1 possible person inside its outline "
      "was left out: not "
      "confirmed: the detector saw no person there; 2 possible persons scored too low, the best of them: score 0.1499 "
      "under 0.1500.\n"
      "  Fall Detected, no alarm: person 3 stands.\n"
      "  Person 3 stands; the shoulders are 1.1 m from where they would be if upright above these feet (more "
      "than 0.6 m would "
      "count as lying); seen by the runs at 0 and 90 degrees, scores together 1.10; shoulders and ankles of two "
      "people may have "
      "been mixed.\n"
      "Left out:\n"
      "  There was no picture to confirm people in: all count as confirmed.\n"
      "  Skeleton 0 at (900, 50), seen by the run at 0 degrees: the body takes 0.66 % of the picture, less than "
      "0.70 %.\n"
      "  Skeleton 1 at (900, 50), seen by the run at 0 degrees: the body is head down in the "
      "picture that this run saw.\n"
      "  Skeleton 2 at (200, 150), inside bed 1, seen by the run at 180 degrees: not confirmed: the detector saw "
      "no person there.\n"
      "  Skeleton 10 at (960, 60), seen by the run at 90 degrees: taken for the same person as skeleton 9.\n"
      "  Skeleton 5 at (900, 60), seen by the run at 90 degrees: its score 0.31 is not above 0.38.\n"
      "  Skeleton 9 at (950, 60), seen by the run at 90 degrees: person 3 covers it: 45 % of the smaller box in "
      "common, more than 20 %.\n"
      "  The run at 180 degrees: 2 skeletons scored too low, the best of them: score 0.1499 under 0.1500.\n");
}

TEST_F(ExplainTrace, WhatIsWrongWithATraceIsOneLine) {
  const std::string begin = header(true).dump() + "\n";
  const std::string settled = begin + R"({"kind": "settings", "parameters": {}})" + "\n";
  const auto of = [&](const std::string& text) {
    m_folder.write("a.jsonl", text);
    return explain({(m_folder / "a.jsonl").string(), {}, {}});
  };
  const auto bad = [&](const json& changes) { return of(begin + with(cycle(1), changes).dump() + "\n"); };
  EXPECT_EQ(of("not a trace\n"), "error: a.jsonl line 1: is not valid JSON; allowed is one JSON object a line");
  EXPECT_EQ(of(cycle(1).dump() + "\n"),
            "error: a.jsonl line 1: is no header; allowed is a trace, which begins with {\"kind\": \"trace\", "
            "\"version\": 1, ...}");
  EXPECT_EQ(of(with(header(true), {{"version", 2}}).dump() + "\n"),
            "error: a.jsonl line 1: version is 2; allowed is 1; make the trace anew");
  EXPECT_EQ(of(begin + "[]\n"), "error: a.jsonl line 2: is no object; allowed is one JSON object a line");
  EXPECT_EQ(of(begin + std::string(100, '[') + "\n"),
            "error: a.jsonl line 2: is nested too deep; allowed is what a trace holds");
  EXPECT_EQ(of(begin + std::string((4 << 20) + 1, ' ') + "\n"),
            "error: a.jsonl line 2: is too long; allowed are lines of 4 MiB");
  EXPECT_EQ(of(begin), "error: a.jsonl: holds no cycle; allowed is a trace of a run that has seen pictures");
  EXPECT_EQ(of(settled + cycle(2).dump() + "\n" + cycle(1).dump() + "\n"),
            "error: a.jsonl line 4: cycle 1 comes after cycle 2; allowed is a trace whose lines stand in their order");
  EXPECT_EQ(of(settled + cycle(2).dump() + "\n" + with(cycle(3), {{"ns", 1}}).dump() + "\n"),
            "error: a.jsonl line 4: ns is 1 after 1000000000; allowed is time that goes on");
  EXPECT_EQ(bad({{"number", -1}}),
            "error: a.jsonl line 2: number is -1; allowed is a whole number from 0 to 9007199254740992");
  EXPECT_EQ(bad({{"people", {{{"place", {1, 2}}}}}}),
            "error: a.jsonl line 2: people[0].id is missing; allowed is a trace of which no key was taken away");
  EXPECT_EQ(bad({{"t", nullptr}}), "error: a.jsonl line 2: t is missing; allowed is a number of at most 10000000000.0");
  EXPECT_EQ(bad({{"events", {{{"name", "\x1b[2J"}, {"active", true}}}}}),
            "error: a.jsonl line 2: events[0].name is \"\\u001b[2J\"; allowed is a text of one line");
  EXPECT_EQ(bad({{"runs", {{{"rotation", 0}, {"poses", {with(pose(0, 1, 1), {{"points", {1, 2}}})}}}}}}),
            "error: a.jsonl line 2: runs[0].poses[0].points is a list; allowed is a list of 17 places [x, y, score]");
  EXPECT_EQ(bad({{"runs", {{{"rotation", 45}}}}}),
            "error: a.jsonl line 2: runs[0].rotation is 45; allowed is 0, 90, 180 or 270");
  EXPECT_EQ(bad({}),
            "error: a.jsonl line 2: a cycle comes before the settings; allowed is a trace whose second line "
            "tells them");
  const auto head = [&](const json& changes) { return of(with(header(true), changes).dump() + "\n"); };
  EXPECT_EQ(head({{"rotation", 45}}), "error: a.jsonl line 1: rotation is 45; allowed is 0, 90, 180 or 270");
  EXPECT_EQ(head({{"focal_length_um", 0}}),
            "error: a.jsonl line 1: focal_length_um is 0; allowed is a number from 1 to 1000000");
  EXPECT_EQ(head({{"picture", {8193, 1}}}),
            "error: a.jsonl line 1: picture is a list; allowed is a width and a height from 1 to 8192");
  m_folder.write("a.mp4", "ftyp");
  EXPECT_EQ(explain({(m_folder / "a.mp4").string(), {}, {}}),
            "error: a.mp4: is no trace; make one: ./run replay a.mp4 --trace FILE");
  EXPECT_EQ(explain({(m_folder / "none").string(), {}, {}}), "error: none: there is no such file");
  m_folder.write("a.jsonl", settled + cycle(1).dump() + "\n" + cycle(2).dump().substr(0, 50));
  EXPECT_EQ(explain({(m_folder / "a.jsonl").string(), {}, {}}),
            "a.jsonl: a recording, 1 cycle from 0.5 s to 0.5 s, by velmor_care.\nNo event began or ended; --at TIME "
            "tells why.\n"
            "a.jsonl: the last line is cut off, as in a run that was killed; what comes before it counts\n");
  m_folder.write("a.jsonl", settled + cycle(1).dump());
  EXPECT_EQ(explain({(m_folder / "a.jsonl").string(), {}, {}}),
            "a.jsonl: a recording, 1 cycle from 0.5 s to 0.5 s, by velmor_care.\nNo event began or ended; --at TIME "
            "tells why.\n"
            "a.jsonl: ends without its end line: the program was killed or the disk was full\n");
}

TEST_F(ExplainTrace, ABadNumberThatIsOnlyToldCountsAsAbsent) {
  const auto of = [this](const json& changes) { return noAlarm(kFall, {{"people", {with(person(3), changes)}}}); };
  const std::string lies = "person 3 lies still on the floor, for 2.5 s of 3 s so far; before that this person moved.";
  EXPECT_EQ(of({{"metre", 1e300}, {"movement", "fast"}, {"depth", -1}}), lies);
  EXPECT_EQ(of({{"lying_for", 1e300}, {"needed", nullptr}}),
            "person 3 lies still on the floor, for 0 s of 0 s so far; before that this person moved.");
  json unsure = pose(0, 400, 150);
  unsure["score"] = nullptr;
  unsure["points"][9] = {1, 1e300, nullptr};
  const json tracks = {{{"id", 3}, {"n", 0}, {"age", 26}, {"distance", "far"}}};
  const std::string text = explain({write({with(cycle(1), {{"people", {with(person(3), {{"off", 1e300}})}},
                                                           {"out_of_bed", {{"cycles", nullptr}, {"limit", 10}}},
                                                           {"runs", {{{"rotation", 0}, {"poses", {unsure}}}}},
                                                           {"tracks", tracks}})}),
                                    "0.5",
                                    {}});
  EXPECT_NE(
      text.find("before that this person moved; tracked for 13 s (26 cycles); seen by the run at 0 degrees, score "
                "unknown.\n"),
      std::string::npos)
      << text;
}

TEST_F(ExplainTrace, SecondsAreThoseBetweenCyclesHoweverSlow) {
  const auto counted = [](int number, int count) {
    return with(cycle(number),
                {{"ns", number * std::int64_t{2'000'000'000}}, {"out_of_bed", {{"cycles", count}, {"limit", 10}}}});
  };
  const auto at = [this](const std::string& file, const char* time) {
    const std::string text = explain({file, time, {}});
    const std::size_t from = text.find("only ");
    return text.substr(from, text.find(',', from) - from);
  };
  const std::string file =
      write({counted(1, 4), counted(2, 5), counted(3, 1), with(cycle(4), {{"ns", 8'000'000'000}, {"failed", true}}),
             counted(5, 2), counted(6, 3), counted(8, 5), counted(12, 4)});
  EXPECT_NE(explain({file, {}, {}}).find("Cycles were on average 2.00 s apart, not 0.50 s.\n"), std::string::npos);
  EXPECT_EQ(at(file, "4"), "only 10 s");
  EXPECT_EQ(at(file, "6"), "only 2 s");
  EXPECT_EQ(at(file, "12"), "only 6 s") << "the failed one counts for nothing";
  EXPECT_EQ(at(file, "24"), "only 8 s");
}

TEST_F(ExplainTrace, ADirectoryIsOneStoryAskedByTheTimeOfDay) {
  ::setenv("TZ", "XXX-1", 1);
  ::tzset();
  const std::int64_t evening = 1'772'402'399'000'000'000;  // 2026-03-01T21:59:59Z, an hour later where the reader is
  m_ends = false;
  write({cycle(1, evening), cycle(2, evening)}, false, "trace-20260301T215959Z.jsonl");
  m_settings["Sensitivity"] = "0.45";
  write({cycle(3, evening), with(cycle(4, evening), changed(kFall, true))}, false, "trace-20260301T220000Z.jsonl");
  const std::string folder = m_folder.path().string();
  const std::string all = explain({folder, {}, {}});
  EXPECT_NE(all.find(" Fall Detected: nobody is tracked. (Its own line is missing; a cycle tells it.)\n"),
            std::string::npos)
      << all;
  EXPECT_TRUE(
      all.ends_with(": ends without its end line: the program was killed or the disk was full; or it is running "
                    "still, or goes on in another file\n"))
      << all;
  EXPECT_NE(all.find("watched live, 4 cycles from 2026-03-01 22:59:59.5 to 2026-03-01 23:00:01.0, by"),
            std::string::npos)
      << all;
  EXPECT_NE(all.find("after 2026-03-01 23:00:00.0  Settings were changed: Sensitivity from 0.379999995 to 0.45."),
            std::string::npos)
      << all;
  EXPECT_EQ(explain({folder, "23:00:00", {}}).substr(0, 30), "2026-03-01 23:00:00.5, cycle 3");
  EXPECT_EQ(explain({folder, "23:00:00.0", {}}).substr(0, 30), "2026-03-01 23:00:00.0, cycle 2");
  EXPECT_EQ(explain({folder, "22:59", {}}).substr(0, 30), "2026-03-01 22:59:59.5, cycle 1");
  EXPECT_EQ(explain({folder, "23:30", {}}).substr(0, 82),
            "The trace ends at 2026-03-01 23:00:01.0. The cycle before:\n2026-03-01 23:00:01.0, ");
  EXPECT_EQ(explain({folder, "1", {}}).substr(0, 30), "2026-03-01 23:00:00.5, cycle 3");
  EXPECT_NE(explain({folder, "08:00:00", {}})
                .find("has no cycle at 08:00:00; allowed is 2026-03-01 22:59:59.5 to 2026-03-01 23:00:01.0"),
            std::string::npos);
  for (const char* time : {"soon", "25:00:00", "-1", "1e99", "10:00:00x"}) {
    EXPECT_EQ(explain({folder, time, {}}),
              "error: --at " + std::string(time) +
                  ": is no time; allowed are seconds, as 41.5, and of what was watched live the time of day, as 14:03, "
                  "14:03:07 or 14:03:07.5");
  }
  m_ends = true;
  const std::int64_t later = evening + 60'000'000'000;
  const json fallen = {{"events", {{{"name", kFall}, {"active", true}}}}};
  write({cycle(1, later), {{"kind", "missing"}, {"lines", 9}}, with(cycle(11, later), fallen)}, false,
        "trace-20260301T220100Z.jsonl");
  m_folder.write("trace-20260301T220200Z.jsonl", "{");
  m_folder.write("trace-foo.jsonl", "nor is this one read");
  const std::string more = explain({folder, {}, {}});
  for (const char* said :
       {"     2026-03-01 23:00:01.0 to 2026-03-01 23:00:59.5: not running. The run before ends without its end line: "
        "the program was killed or the disk was full.\n",
        "     2026-03-01 23:00:59.5 to 2026-03-01 23:01:04.5: 9 lines are missing: the disk was full or did not "
        "answer.\n"
        "     2026-03-01 23:00:59.5 to 2026-03-01 23:01:04.5: Fall Detected began in what is missing.\n",
        "\ntrace-20260301T220200Z.jsonl line 1: is not valid JSON; allowed is one JSON object a line; "
        "the rest of this file is left out\n"}) {
    EXPECT_NE(more.find(said), std::string::npos) << more;
  }
  EXPECT_EQ(more.find("trace-foo"), std::string::npos) << more;
  const auto firstLine = [&](const char* time) { return explain({folder, time, {}}).substr(0, 105); };
  EXPECT_NE(firstLine("23:01:02").find("between 2026-03-01 23:00:59.5 and 2026-03-01 23:01:04.5: 9 lines are missing."),
            std::string::npos)
      << firstLine("23:01:02");
  EXPECT_NE(firstLine("23:00:30").find("between 2026-03-01 23:00:01.0 and 2026-03-01 23:00:59.5: not running."),
            std::string::npos)
      << firstLine("23:00:30");
  write({cycle(1)}, true, "trace-20260301T220300Z.jsonl");
  EXPECT_EQ(explain({folder, {}, {}}).find("holds the trace of a recording beside another; name one file") ==
                std::string::npos,
            false);
  ::unsetenv("TZ");
  ::tzset();
}

TEST(LiveExplanation, TellsPeopleBedsAndWhyTheLastChangesCame) {
  EXPECT_EQ(json::parse(workstation::liveExplanation()),
            json::parse(R"({"time": null, "cycle": 0, "people": [], "beds": [], "events": []})"));
  const auto tell = [](const json& line) { workstation::tellLiveExplanation(line.dump() + "\n"); };
  const std::int64_t begin = 1'772'366'431'000'000'000;
  const json fallen = with(person(3), {{"activity", "fallen"}, {"lying_for", 6}});
  const auto event = [](int seq, bool active) {
    return json{{"kind", "event"}, {"seq", seq}, {"run", "9f"}, {"ns", 0}, {"name", kFall}, {"active", active}};
  };
  tell(header(false));
  tell({{"kind", "settings"}, {"parameters", settings()}});
  std::string lines = "damaged\n" + event(1, false).dump() + "\n";
  for (int seq = 2; seq <= 201; ++seq) {
    const json now = with(with(cycle(seq, begin), {{"people", {fallen}}}), changed(kFall, seq % 2 == 1));
    lines += event(seq, seq % 2 == 1).dump() + "\n" + now.dump() + "\n";
  }
  workstation::tellLiveExplanation(lines);
  ASSERT_TRUE(comes([] { return json::parse(workstation::liveExplanation())["cycle"] == 201; }));
  const json document = json::parse(workstation::liveExplanation());
  EXPECT_EQ(document["time"], "2026-03-01T12:02:11.500Z");
  EXPECT_EQ(document["people"], json::parse(R"([{"id": 3, "text": "Person 3 has lain still on the floor for 3 s; )" +
                                            kShoulders + R"(."}])"));
  EXPECT_EQ(
      document["beds"],
      json::parse(
          R"([{"area": 1, "text": "Bed 1 is empty: the nearest is person 3, whose shoulders are 100 px outside its outline."}])"));
  ASSERT_EQ(document["events"].size(), 200u);
  EXPECT_EQ(document["events"][0]["seq"], 2);
  EXPECT_EQ(
      document["events"][199],
      json::parse(
          R"({"seq": 201, "run": "9f", "name": "Fall Detected", "active": true, "because": "person 3 has lain still on the floor for 3 s; )" +
          kShoulders + R"("})"));
  tell({{"kind", "cycle"}, {"number", 202}, {"ns", begin}, {"t", 1}, {"failed", true}});
  ASSERT_TRUE(comes([] { return json::parse(workstation::liveExplanation())["cycle"] == 202; }));
  const json failed = json::parse(workstation::liveExplanation());
  EXPECT_TRUE(failed["time"].is_null() && failed["people"].empty() && failed["events"].size() == 200U)
      << "nobody is not what was seen: " << failed;
}

}  // namespace
