// The analysis on the poses of a trace, as the launcher starts it, and the trace that it writes of that.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/platform/state_folder.h"
#include "tests/reference/traced_cycles.h"

namespace {

using nlohmann::json;

/// A pose that fills a box upright or, turned by a quarter, lies in it with the head to the right; `skewed` mixes the
/// feet of one with the shoulders of another.
json pose(double score, int left, int top, int right, int bottom, bool lies = false) {
  constexpr std::array<double, 17> kAlong{1,   0.99, 0.99, 0.98, 0.98, 0.85, 0.85, 0.7, 0.7,
                                          0.6, 0.6,  0.5,  0.5,  0.25, 0.25, 0,    0};
  constexpr std::array<double, 17> kAcross{0.5, 0.45, 0.55, 0.4, 0.6, 0, 1, 0, 1, 0, 1, 0.1, 0.9, 0.1, 0.9, 0.2, 0.8};
  json points = json::array();
  for (std::size_t i = 0; i < kAlong.size(); ++i) {
    const double along = kAlong[i];
    const double across = kAcross[i];
    const double x = lies ? left + along * (right - left) : left + across * (right - left);
    const double y = lies ? top + across * (bottom - top) : bottom - along * (bottom - top);
    points.push_back({static_cast<int>(x), static_cast<int>(y), 0.75});
  }
  return {{"score", score}, {"points", points}};
}

json patientInBed() { return pose(0.75, 120, 200, 400, 260, true); }
json patientOnFloor() { return pose(0.75, 620, 450, 900, 520, true); }

/// What the runs at 0, 180, 90 and 270 degrees see.
struct Seen {
  json upright = json::array();
  json head_down = json::array();
  json left = json::array();
  json right = json::array();
};

json cycleOf(const Seen& seen, int number) {
  const auto run = [](int rotation, const json& poses) {
    const json size = rotation % 180 == 0 ? json{1280, 720} : json{720, 1280};
    return json{{"rotation", rotation}, {"size", size}, {"limit", 0.15}, {"poses", poses}};
  };
  return {{"kind", "cycle"},
          {"ns", 500'000'000LL * number},
          {"runs", {run(0, seen.upright), run(180, seen.head_down), run(90, seen.left), run(270, seen.right)}}};
}

class Retrace : public testing::Test {
 protected:
  Retrace() {
    folder.write("video.mp4", "");
    folder.write("camera.json", json{{"source", "video.mp4"},
                                     {"product_name", "AXIS P3255-LVE"},
                                     {"focal_length_um", 3700},
                                     {"parameters", kParameters}}
                                    .dump());
    setenv("VELMOR_MANIFEST", VELMOR_SOURCE_DIR "/package/manifest.json", 1);
    setenv("VELMOR_RETRACE", (folder / "trace.jsonl").c_str(), 1);
    setenv("VELMOR_TRACE", (folder / "again.jsonl").c_str(), 1);
    setenv("VELMOR_CLOCK", "replay", 1);
    setenv("VELMOR_OUTPUT", "json", 1);
    add(kHeader);
    add({{"kind", "settings"}, {"ns", 0}, {"parameters", kParameters}});
  }
  ~Retrace() override {
    for (const char* name : {"VELMOR_RETRACE", "VELMOR_TRACE", "VELMOR_CLOCK", "VELMOR_OUTPUT", "VELMOR_SET"}) {
      unsetenv(name);
    }
  }

  void add(const json& line) { trace += line.dump() + "\n"; }
  void see(const Seen& seen, int cycles = 1) {
    for (int i = 0; i < cycles; ++i) add(cycleOf(seen, ++number));
  }

  int run() const {
    for (const char* stored : {"parameters.conf", "parameters.conf.1"}) std::filesystem::remove(folder / stored);
    folder.write("trace.jsonl", trace);
    const std::string command =
        VELMOR_RETRACE " >" + (folder / "events").string() + " 2>" + (folder / "errors").string();
    return WEXITSTATUS(std::system(command.c_str()));
  }
  std::string events() const {
    EXPECT_EQ(run(), 0) << folder.read("errors");
    return folder.read("events");
  }
  /// The cycles of the trace that the last run wrote.
  std::vector<json> cycles() const { return cyclesOf(folder / "again.jsonl"); }

  inline static const json kParameters = {
      {"Sensitivity", "0.38"},          {"MaxDisappeared", "2"}, {"Detection1Active", "true"},
      {"Detection10x", "100"},          {"Detection10y", "150"}, {"Detection11x", "500"},
      {"Detection11y", "150"},          {"Detection12x", "500"}, {"Detection12y", "350"},
      {"Detection13x", "100"},          {"Detection13y", "350"}, {"DetectFallenPersons", "true"},
      {"DetectPatientOutOfBed", "true"}};
  inline static const json kHeader = {{"kind", "trace"}, {"version", 1}, {"replay", true}, {"period_ms", 500}};

  StateFolder folder;
  std::string trace;
  int number = 0;
};

std::string line(double t, const std::string& event, bool active) {
  return "{\"t\": " + json(t).dump() + ", \"event\": \"" + event + "\", \"active\": " + (active ? "true" : "false") +
         "}\n";
}

TEST_F(Retrace, DecidesAgainUnderTheSettingsOfTheirTimeAndThoseThatAreSetInstead) {
  see({.right = {patientInBed()}}, 4);
  see({.right = {patientOnFloor()}}, 40);
  json saved = kParameters;
  saved["DetectFallenPersons"] = "false";
  add({{"kind", "settings"}, {"ns", 0}, {"parameters", saved}});
  see({.right = {patientOnFloor()}}, 2);
  const std::string out = line(7.5, "Patient Out of Bed", true);
  const std::string fall = line(15, "Fall Detected", true);
  EXPECT_EQ(events(), out + fall + line(22.5, "Fall Detected", false));
  const std::string first = folder.read("again.jsonl");
  const std::vector<json> decided = cycles();

  setenv("VELMOR_SET", R"({"DetectFallenPersons": "true"})", 1);
  EXPECT_EQ(events(), out + fall) << "what is set counts in spite of what was saved later";
  unsetenv("VELMOR_SET");
  trace = first;
  EXPECT_EQ(events(), out + fall + line(22.5, "Fall Detected", false));
  EXPECT_TRUE(cycles() == decided) << "the trace of a trace is the same";
}

/// The numbers of those in a list of records.
std::vector<int> numbersIn(const json& records) {
  std::vector<int> numbers;
  for (const json& record : records) numbers.push_back(record["n"]);
  return numbers;
}

TEST_F(Retrace, TellsByWhichRuleAndNumbersEachIsDropped) {
  json unsure = pose(0.9, 600, 100, 680, 300);
  for (json& point : unsure["points"]) point[2] = 0.05;
  json head_down = pose(0.5, 800, 420, 900, 100);  // feet above the head
  head_down["confirmation"] = 0.3;
  json below_the_top = pose(0.5, 1000, 250, 1100, 20);
  below_the_top["confirmation"] = 0.9;
  see({.upright = {pose(0.75, 100, 200, 180, 500), unsure, pose(0.7, 400, 200, 410, 210), pose(0.6, 0, 0, 1279, 719),
                   pose(0.5, 800, 420, 900, 100), pose(0.1, 300, 200, 380, 500), pose(0.9, 300, 200, 380, 500)},
       .head_down = {head_down, below_the_top},
       .left = {pose(0.5, 104, 204, 184, 504), pose(0.2, 900, 300, 980, 600)},
       .right = {pose(0.9, 110, 300, 150, 600)}});
  see({.upright = {pose(0.9, 700, 200, 900, 700), pose(0.8, 845, 340, 1045, 740)}});
  ASSERT_EQ(run(), 0) << folder.read("errors");
  const json overlapping = cycles().at(1);
  EXPECT_EQ(numbersIn(overlapping["suppressed"]), std::vector{1});
  EXPECT_EQ(overlapping["suppressed"][0]["by"], 0);
  EXPECT_NEAR(overlapping["suppressed"][0]["share"], 55.0 * 360 / (200 * 400), 0.01);
  EXPECT_EQ(overlapping["suppressed"][0]["limit"], 0.2);
  EXPECT_EQ(numbersIn(overlapping["tracks"]), std::vector{0});

  const json cycle = cycles().at(0);
  const auto dropped = [&](std::size_t run, std::size_t index) {
    return cycle["runs"][run]["poses"][index].value("dropped", json());
  };
  EXPECT_EQ(dropped(0, 0), json());
  EXPECT_EQ(dropped(0, 2)["rule"], "too small");
  EXPECT_NEAR(dropped(0, 2)["value"], 10 * 10 / (1280.0 * 720), 3e-5);
  EXPECT_EQ(dropped(0, 2)["limit"], 0.007);
  EXPECT_EQ(dropped(0, 3)["rule"], "too large");
  EXPECT_EQ(dropped(0, 4), (json{{"rule", "turned"}, {"value", 180.0}, {"limit", 0.0}}));
  EXPECT_EQ(dropped(0, 5), (json{{"rule", "pose score"}, {"value", 0.1}, {"limit", 0.15}}));
  EXPECT_EQ(dropped(0, 6), (json{{"rule", "pose score"}, {"value", 0.9}, {"limit", 0.15}})) << "after the list's end";
  EXPECT_EQ(dropped(1, 0), (json{{"rule", "not confirmed"}, {"value", 0.3}, {"limit", 0.38}}));
  EXPECT_EQ(dropped(1, 1), (json{{"rule", "upside down at the top"}, {"value", 20.0}, {"limit", 50.0}}));
  EXPECT_EQ(cycle["fusion"].size(), 2U);
  EXPECT_EQ(cycle["fusion"][0]["of"], (json{0, 9}));
  EXPECT_EQ(cycle["fusion"][0]["made"], 12);
  EXPECT_EQ(cycle["fusion"][0]["score"], 1.25);
  EXPECT_EQ(numbersIn(cycle["filtered"]), (std::vector{1, 10}));
  EXPECT_EQ(cycle["filtered"][0]["rule"], "no top");
  EXPECT_EQ(cycle["filtered"][1], (json{{"rule", "score"}, {"value", 0.2}, {"limit", 0.38}, {"n", 10}}));
}

TEST_F(Retrace, TellsWhatDecidedAboutAPerson) {
  see({.right = {patientInBed()}}, 11);
  see({.right = {patientOnFloor()}}, 30);
  see({}, 3);
  ASSERT_EQ(run(), 0) << folder.read("errors");
  const std::vector<json> told = cycles();

  const json& in_bed = told[10]["people"][0];
  EXPECT_EQ(in_bed["footing"], "bed");
  EXPECT_EQ(in_bed["area"], 1);
  EXPECT_EQ(in_bed["areas"], (json{{{"kind", "bed"}, {"area", 1}, {"distance", -80.0}, {"edge", 1}}}));
  EXPECT_EQ(told[10]["beds"], (json{{{"area", 1}, {"occupied", true}, {"by", 0}}}));
  EXPECT_FALSE(told[8]["people"][0].contains("activity")) << "nine findings are too few";
  EXPECT_EQ(told[11]["people"][0]["against"], (json{{"rule", "bed"}, {"back", 1}}));

  const json& moved = told[20]["people"][0];
  EXPECT_GT(moved["movement"], moved["movement_limit"]);
  EXPECT_EQ(moved["against"], (json{{"rule", "moving"}, {"back", 0}}));
  EXPECT_EQ(moved["lying_for"], 0);

  const json& fallen = told[40]["people"][0];
  EXPECT_EQ(fallen["activity"], "fallen");
  EXPECT_EQ(fallen["needed"], 6);
  EXPECT_GE(fallen["lying_for"], 6);
  EXPECT_EQ(fallen["areas"][0]["edge"], 2);
  EXPECT_EQ(fallen["place"], (json{858, 485}));
  EXPECT_EQ(fallen["areas"][0]["distance"], 382.6);
  EXPECT_GT(fallen["off"], fallen["limit"]);
  const double metre = fallen["metre"];
  EXPECT_GT(metre, 100) << "of a person who stands some metres from the camera";
  EXPECT_LT(metre, 500);
  EXPECT_EQ(told[40]["fallen"], 0);
  EXPECT_EQ(told[40]["out_of_bed"], (json{{"cycles", 30}, {"limit", 10}}));

  EXPECT_EQ(told[0]["tracks"][0]["age"], 1);
  EXPECT_EQ(told[40]["tracks"][0]["age"], 41);
  EXPECT_EQ(told[42]["tracks"], (json{{{"id", 0}, {"missing", 2}, {"age", 43}}}));
  EXPECT_FALSE(told[42]["people"][0].contains("n")) << "who is missing stays where he was last seen";
  EXPECT_EQ(told[43]["forgotten"], (json{0}));
  EXPECT_TRUE(told[43]["people"].empty());
  EXPECT_TRUE(folder.read("again.jsonl").ends_with("\n{\"kind\":\"end\",\"ns\":22000000000,\"cycles\":44}\n"));
}

TEST_F(Retrace, ByHandItSaysWhereCyclesAreMissingAndATraceThatBreaksOffHasNoEndLine) {
  for (const int cycle : {1, 2, 5, 9}) {
    json line = cycleOf({}, cycle);
    line["number"] = cycle;
    add(line);
  }
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(folder.read("errors"),
            (folder / "trace.jsonl").string() +
                " line 5: cycle 5 follows cycle 2: from there on events may differ from what was told then\n");
  trace += "{";
  EXPECT_EQ(run(), 2);
  EXPECT_EQ(folder.read("again.jsonl").find("\"end\""), std::string::npos);
}

TEST_F(Retrace, AFailedCycleDecidesNothingAndNoPictureConfirmsEverybody) {
  json unconfirmed = pose(0.9, 800, 420, 900, 160);
  see({.head_down = {unconfirmed}});
  json failed = {{"kind", "cycle"}, {"ns", 1'000'000'000}, {"failed", true}};
  add(failed);
  number = 2;
  json unchecked = cycleOf({.head_down = {unconfirmed}}, ++number);
  unchecked["confirmation"] = "no picture";
  add(unchecked);
  ASSERT_EQ(run(), 0) << folder.read("errors");
  const std::vector<json> told = cycles();
  EXPECT_TRUE(told[0]["people"].empty());
  EXPECT_EQ(told[0]["runs"][1]["poses"][0]["dropped"],
            (json{{"rule", "not confirmed"}, {"value", nullptr}, {"limit", 0.38}}));
  EXPECT_EQ(told[1]["failed"], true);
  EXPECT_FALSE(told[1].contains("people"));
  EXPECT_EQ(told[2]["people"].size(), 1U);
  EXPECT_EQ(told[2]["out_of_bed"]["cycles"], 2) << "the failed one does not count";
}

TEST_F(Retrace, ABadLineIsNamed) {
  see({.upright = {pose(0.9, 100, 200, 180, 500)}});
  const std::string good = trace;
  json other_rotation = cycleOf({}, 2);
  other_rotation["runs"][0]["rotation"] = 45;
  json few_points = cycleOf({.upright = {pose(0.9, 100, 200, 180, 500)}}, 2);
  few_points["runs"][0]["poses"][0]["points"].erase(0);
  json far = cycleOf({.upright = {pose(0.9, 100, 200, 180, 500)}}, 2);
  far["runs"][0]["poses"][0]["points"][5][0] = 1e12;
  const std::string whole = cycleOf({}, 2).dump();
  for (const auto& [bad, complaint] :
       {std::pair{whole.substr(0, whole.size() / 2), std::string("is cut off; remove it to replay the lines before")},
        {whole.substr(0, whole.size() / 2) + "\n", "is no JSON object"},
        {cycleOf({}, 1).dump() + "\n", "\"ns\" must be later than in the cycle before"},
        {other_rotation.dump() + "\n", "a run's \"rotation\" must be 0, 90, 180 or 270"},
        {few_points.dump() + "\n", "a pose: \"points\" must have 17 rows, not 16"},
        {far.dump() + "\n", "a pose's Left Shoulder x must be a number from -1000000 to 1000000"},
        {R"({"kind": "settings", "parameters": {"Sensitivity": 0.5}})"
         "\n",
         "parameter \"Sensitivity\" must be a text"},
        {kHeader.dump() + "\n", "a second header; replay one trace at a time"}}) {
    trace = good + bad;
    EXPECT_EQ(run(), 2) << bad;
    EXPECT_EQ(folder.read("errors"), (folder / "trace.jsonl").string() + " line 4: " + complaint + "\n");
  }
  json newer = kHeader;
  newer["version"] = 2;
  trace = newer.dump() + "\n";
  EXPECT_EQ(run(), 2);
  EXPECT_EQ(folder.read("errors"),
            (folder / "trace.jsonl").string() + " line 1: this trace is of version 2; this program reads version 1\n");
  trace = kHeader.dump() + "\n";
  EXPECT_EQ(run(), 2);
  EXPECT_EQ(folder.read("errors"), (folder / "trace.jsonl").string() + ": no cycle in it\n");
}

}  // namespace
