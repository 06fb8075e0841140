// Whole evaluations: of invented traces that a script hands out in the program's place, and of the demo by the program
// itself.
#include "evaluate/evaluation.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "evaluate/running/runs.h"
#include "evaluate/telling/markdown.h"
#include "evaluate/telling/report.h"
#include "evaluate/telling/tables.h"

namespace {

namespace fs = std::filesystem;
using evaluate::Event;
using nlohmann::json;

const std::string kOutOfBed = evaluate::nameOf(Event::kOutOfBed);
const std::string kFall = evaluate::nameOf(Event::kFall);
constexpr const char* kHappened = "length 30\n0 - 5 in bed\n5 - 20 out of bed\n20 - 30 in bed\n";

/// A trace of a recording of 30 s in which "Patient Out of Bed" is active within the interval; cut off after `until`.
std::string traceOf(double begin, double end, double until = 30) {
  std::string text = json{{"kind", "trace"},        {"version", 1},   {"program", "p"},
                          {"picture", {1280, 720}}, {"replay", true}, {"period_ms", 500}}
                         .dump() +
                     "\n" + json{{"kind", "settings"}, {"parameters", {{"Detection1Active", "true"}}}}.dump() + "\n";
  for (int number = 1; number / 2.0 <= until; ++number) {
    const double t = number / 2.0;
    const json out = {{"name", kOutOfBed}, {"active", t >= begin && t < end}, {"changed", t == begin || t == end}};
    text += json{{"kind", "cycle"},
                 {"ns", number * 500'000'000LL},
                 {"t", t},
                 {"number", number},
                 {"beds", {{{"area", 1}, {"occupied", t < 5}}}},
                 {"out_of_bed", {{"cycles", number}, {"limit", 10}}},
                 {"events", {out, {{"name", kFall}, {"active", false}}}}}
                .dump() +
            "\n";
  }
  return text;
}

/// Recordings, a program and a place for traces; removed at the end.
class Evaluating : public testing::Test {
 protected:
  Evaluating() {
    std::string name = (fs::temp_directory_path() / "velmor-evaluate-XXXXXX").string();
    m_path = ::mkdtemp(name.data());
    for (const char* folder : {"recordings", "tree/models", "tree/package", "bin"})
      fs::create_directories(m_path / folder);
    write("tree/package/manifest.json", "{}");
    request.folder = m_path / "recordings";
    request.source_tree = m_path / "tree";
    request.program = m_path / "bin" / "velmor_run";
    request.simulator = m_path / "bin" / "velmor_simulator";
    request.store = m_path / "store";
    request.recordings = m_path / "made";
    request.jobs = 2;
    program(R"(cp "$source.answer" "$trace")");
  }
  ~Evaluating() override { fs::remove_all(m_path); }

  void write(const std::string& name, const std::string& text) const { std::ofstream(m_path / name) << text; }
  [[nodiscard]] std::string read(const std::string& name) const {
    std::ifstream file(m_path / name);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  /// A video that is none: its length cannot be told, and the script knows its answer.
  void addRecording(const std::string& name, const std::string& answer, const std::string& happened = kHappened) const {
    write("recordings/" + name + ".mp4", name);
    write("recordings/" + name + ".mp4.answer", answer);
    write("recordings/" + name + ".happened.txt", happened);
  }

  /// The script notes what it is asked for; `body` makes $trace of $source.
  void program(const std::string& body, const std::string& name = "bin/velmor_run") const {
    write(name, "#!/bin/sh\necho \"$@\" >> " + (m_path / "calls").string() + "\nsource=$2\nfor trace; do :; done\n" +
                    body + "\n");
    fs::permissions(m_path / name, fs::perms::owner_all);
  }

  /// The calls since the last time.
  std::size_t calls() {
    const std::string all = read("calls");
    fs::remove(m_path / "calls");
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), '\n'));
  }

  evaluate::Request request;
  fs::path m_path;
};

TEST_F(Evaluating, GoesOnWhereItWas) {
  addRecording("a", traceOf(11, 20));
  addRecording("b", traceOf(11, 20));
  addRecording("c", traceOf(11, 20, 15));  // as of a disk that was full
  addRecording("d", "no trace\n");
  write("recordings/b.mp4.fails", "");
  program(R"(cp "$source.answer" "$trace"; ! test -e "$source.fails" || { echo so >&2; echo "no bed" >&2; exit 3; })");
  const evaluate::Evaluation first = evaluateFolder(request);
  ASSERT_EQ(first.recordings.size(), 1U);
  EXPECT_EQ(first.recordings[0].name, "a");
  std::string problems;
  for (const std::string& line : first.problems) problems += line + "\n";
  EXPECT_EQ(first.problems.size(), 3U);
  EXPECT_NE(problems.find("b.mp4, networks: the run failed with status 3: no bed\n"), std::string::npos) << problems;
  EXPECT_NE(problems.find("the trace ends at 15.0 s of 30.0 s; is there room"), std::string::npos) << problems;
  EXPECT_NE(problems.find("is no trace"), std::string::npos) << problems;
  EXPECT_EQ(calls(), 4U);

  // Nothing of those that failed has stayed; what a run that was killed has left behind goes.
  write("store/x.999999999.draft", "half");
  fs::remove(m_path / "recordings/b.mp4.fails");
  addRecording("c", traceOf(11, 20));
  fs::remove(m_path / "recordings/d.happened.txt");
  EXPECT_EQ(evaluateFolder(request).recordings.size(), 3U);
  EXPECT_EQ(calls(), 2U) << "a is there";
  EXPECT_FALSE(fs::exists(m_path / "store/x.999999999.draft"));
}

TEST_F(Evaluating, DoesAgainWhatHasChanged) {
  addRecording("a", traceOf(11, 20));
  const auto callsOf = [&] {
    evaluateFolder(request);
    return calls();
  };
  EXPECT_EQ(callsOf(), 1U);
  EXPECT_EQ(callsOf(), 0U);
  write("recordings/a.happened.txt", std::string(kHappened) + "1 - 3 carer present\n");
  EXPECT_EQ(callsOf(), 0U) << "what happened is no part of a run";
  for (const char* file : {"recordings/a.mp4", "recordings/a.settings.json", "tree/models/new.onnx",
                           "tree/package/manifest.json", "bin/velmor_care"}) {
    write(file, "other");
    EXPECT_EQ(callsOf(), 1U) << file;
    EXPECT_EQ(callsOf(), 0U) << file;
  }
  request.eyes = "sharp";
  evaluateFolder(request);
  EXPECT_NE(read("calls").find(" --eyes sharp "), std::string::npos) << read("calls");
  EXPECT_EQ(calls(), 1U);
  request.eyes.clear();
  EXPECT_EQ(callsOf(), 0U) << "fast ones are known";
  ::setenv("VELMOR_EYES", "sharp", 1);
  EXPECT_EQ(callsOf(), 0U) << "the program looks into the environment";
  ::setenv("VELMOR_PRECISION", "int8", 1);
  EXPECT_EQ(callsOf(), 1U);
  ::unsetenv("VELMOR_EYES");
  ::unsetenv("VELMOR_PRECISION");
  for (const auto& entry : fs::directory_iterator(request.store)) {
    fs::resize_file(entry.path(), fs::file_size(entry.path()) - 9);
  }
  EXPECT_EQ(callsOf(), 1U) << "a trace that is cut off is made anew";
  addRecording("b", traceOf(11, 20));
  write("recordings/b.mp4", "other");
  write("recordings/b.settings.json", "other");
  EXPECT_EQ(callsOf(), 0U) << "the same video under another name";
}

TEST_F(Evaluating, TriesOtherSettingsOnTheTrace) {
  addRecording("a", traceOf(11, 20));
  write("recordings/a.truth.jsonl", "{}");
  write("recordings/a.settings.json", "{}");
  request.sets = {{{"MaxDisappeared", "2"}, {"Sensitivity", "0.5"}}, {{"LarodChipType", "3"}}};
  program(R"(cp "$0.answer" "$trace"; case "$*" in *--truth*) ;; *Sensitivity*) cp "$0.set" "$trace";; esac)");
  write("bin/velmor_run.answer", traceOf(11, 20));
  write("bin/velmor_run.set", traceOf(14, 16));
  const evaluate::Evaluation evaluation = evaluateFolder(request);
  const std::string asked = read("calls");
  const std::string folder = request.folder.string();
  const std::string store = request.store.string();
  const std::string own = folder + "/a.mp4 --json --settings " + folder + "/a.settings.json";
  EXPECT_NE(asked.find("replay " + own + " --trace " + store), std::string::npos) << asked;
  EXPECT_NE(asked.find("replay " + own + " --truth " + folder + "/a.truth.jsonl --trace"), std::string::npos) << asked;
  EXPECT_NE(asked.find("replay " + own + " --set LarodChipType=3 --trace"), std::string::npos) << asked;
  EXPECT_NE(asked.find("trace.jsonl --json --set MaxDisappeared=2 Sensitivity=0.5 --trace"), std::string::npos)
      << asked;
  EXPECT_EQ(calls(), 6U);
  ASSERT_EQ(evaluation.recordings.size(), 1U);
  const std::string table = tableOf(evaluation);
  EXPECT_NE(table.find("networks, MaxDisappeared=2 Sensitivity=0.5"), std::string::npos) << table;
  const json result = json::parse(jsonOf(evaluation));
  const json& columns = result.at("recordings").at(0).at("columns");
  ASSERT_EQ(columns.size(), 6U);
  EXPECT_EQ(columns[0]["events"][kOutOfBed]["delay_worst_s"], 6);
  EXPECT_EQ(columns[0]["differences"], json::array());
  EXPECT_EQ(columns[2]["set"]["Sensitivity"], "0.5");
  EXPECT_EQ(columns[2]["events"][kOutOfBed]["alarms"], json({{14, 16}}));
  ASSERT_EQ(columns[2]["differences"].size(), 2U);
  EXPECT_EQ(columns[2]["differences"][0]["kind"], "later");
  EXPECT_EQ(columns[2]["differences"][0]["because"],
            "Bed 1 has been empty for 11 s, and more than 5 s raise the event; nobody is tracked.");
  EXPECT_EQ(columns[2]["differences"][1]["kind"], "gap");
  evaluateFolder(request);
  EXPECT_EQ(calls(), 1U) << "only the rules are asked again";
}

TEST_F(Evaluating, MakesTheRecordingsOfScriptsOnce) {
  // A script's first line has the answer that its video will have; that of a bad one cannot be.
  program(R"(name=$(basename "$source" .json)
! grep -q bad "$source" || { echo "$source: room: cannot be" >&2; exit 1; }
mkdir "$trace" && cp "$source" "$trace/$name.mp4"
printf 'length 30\n0 - 5 in bed\n5 - 20 out of bed\n20 - 30 in bed\n' > "$trace/$name.happened.txt")",
          "bin/velmor_simulator");
  program("cp " + (m_path / "answer").string() + R"( "$trace")");
  write("answer", traceOf(11, 20));
  addRecording("own", traceOf(11, 20));
  write("recordings/own.json", R"({"room": 1, "camera": 2})");  // has been rendered
  write("recordings/own.settings.json", R"({"parameters": {}})");
  write("recordings/notes.json", R"({"about": "something else"})");
  for (const char* name : {"night/falls/lamp", "night/exits/dark", "bad"}) {
    fs::create_directories((request.folder / name).parent_path());
    write("recordings/" + std::string(name) + ".json", R"({"camera": 2, "room": ")" + std::string(name) + "\"}");
  }
  const evaluate::Evaluation first = evaluateFolder(request);
  ASSERT_EQ(first.problems.size(), 1U);
  EXPECT_EQ(first.problems[0],
            "bad: the run failed with status 1: " + request.folder.string() + "/bad.json: room: cannot be");
  ASSERT_EQ(first.recordings.size(), 3U);
  EXPECT_EQ(first.recordings[0].name, "night/exits/dark");
  EXPECT_EQ(first.groups(), (std::vector<std::string>{"night/", "night/exits/", "night/falls/", ""}));
  EXPECT_EQ(first.sum(0, Event::kOutOfBed, "night/").found, 2);
  EXPECT_EQ(first.sum(0, Event::kOutOfBed, "").found, 3);
  EXPECT_EQ(calls(), 3U + 3U);
  evaluateFolder(request);
  EXPECT_EQ(calls(), 1U) << "only the bad one is tried again";
  write("recordings/night/falls/lamp.json", R"({"camera": 2, "room": "another"})");
  evaluateFolder(request);
  EXPECT_EQ(calls(), 2U + 1U) << "the other video is another run";
  fs::remove(request.simulator);
  EXPECT_THROW(evaluateFolder(request), std::runtime_error);

  // On a page, between its marks and nowhere else.
  const std::string text = evaluate::markdownOf(first, "./run evaluate");
  EXPECT_NE(text.find("| night/falls/ (1) | networks | Patient Out of Bed | 1 of 1 |"), std::string::npos) << text;
  const std::string page = "a\n<!-- evaluation: begin -->\nold\n<!-- evaluation: end -->\nz\n";
  EXPECT_EQ(evaluate::placedIn(page, "new|"), "a\n<!-- evaluation: begin -->\n\nnew|\n<!-- evaluation: end -->\nz\n");
  EXPECT_EQ(evaluate::placedIn(evaluate::placedIn(page, "old"), "new"), evaluate::placedIn(page, "new"));
  EXPECT_THROW(evaluate::placedIn(page + page, ""), std::runtime_error);
  EXPECT_THROW(evaluate::placedIn("<!-- evaluation: begin -->\n", ""), std::runtime_error);
}

TEST_F(Evaluating, TriesOtherSettingsFiles) {
  addRecording("a", traceOf(11, 20));
  addRecording("b", traceOf(11, 20));
  write("recordings/a.truth.jsonl", "{}");
  const std::string own = R"({"focal_length_um": 3700, "parameters": {"Sensitivity": "0.3", "MaxDisappeared": "8"}})";
  const auto set = [&](const char* file, const std::string& from, const std::string& to) {
    std::string text = own;
    text.replace(text.find(from), from.size(), to);
    write(std::string("recordings/") + file, text);
  };
  set("a.settings.json", "", "");
  set("b.settings.json", "", "");
  set("a.wide.settings.json", "\"8\"", "\"4\"");
  set("a.lens.settings.json", "3700", "4000");
  request.settings = {"wide", "lens"};
  write("bin/velmor_run.answer", traceOf(11, 20));
  program(R"(cp "$0.answer" "$trace")");
  const evaluate::Evaluation evaluation = evaluateFolder(request);
  EXPECT_EQ(evaluation.recordings.size(), 2U);
  EXPECT_EQ(evaluation.count(2, ""), 1) << "b has no such settings";
  EXPECT_EQ(evaluation.columns[2].name(), "networks, wide settings");
  const std::string asked = read("calls");
  const std::string folder = request.folder.string();
  EXPECT_NE(asked.find("trace.jsonl --json --set MaxDisappeared=4 --trace"), std::string::npos) << asked;
  EXPECT_NE(asked.find("a.mp4 --json --settings " + folder + "/a.wide.settings.json --truth"), std::string::npos);
  EXPECT_NE(asked.find("a.mp4 --json --settings " + folder + "/a.lens.settings.json --trace"), std::string::npos)
      << "another lens needs the pictures";
  request.settings = {"wdie"};
  EXPECT_THROW(evaluateFolder(request), std::runtime_error);
}

TEST_F(Evaluating, RefusesTruthThatFitsNoVideo) {
  EXPECT_THROW(evaluateFolder(request), std::runtime_error);
  addRecording("ok", traceOf(11, 20));
  addRecording("torn", "", "length 30\n5 - 4 fallen\n");
  addRecording("twice", "");
  write("recordings/twice.mkv", "");
  write("recordings/alone.happened.txt", kHappened);
  fs::copy_file(fs::path(SOURCE_DIRECTORY) / "simulator/demo/demo.mp4", request.folder / "other.mp4");
  write("recordings/other.happened.txt", kHappened);
  const evaluate::Evaluation evaluation = evaluateFolder(request);
  const std::string folder = request.folder.string() + "/";
  EXPECT_EQ(evaluation.recordings.size(), 1U);
  EXPECT_EQ(evaluation.problems,
            (std::vector<std::string>{
                folder + "alone.happened.txt: there is no video of this name beside it",
                folder + "other.happened.txt: the length is 30 s, and the video's 92.0 s; allowed is what is told of "
                         "this video",
                folder + "torn.happened.txt line 2: begins at 5 s and ends at 4 s; allowed is an end after the "
                         "beginning",
                folder + "twice.happened.txt: twice.mp4 and twice.mkv stand beside it; allowed is one video"}));
}

/// The true people stand for the networks, which would take minutes: the rules, traces, reasons and pictures are real.
TEST_F(Evaluating, TellsTheDemo) {
  const fs::path demo = fs::path(SOURCE_DIRECTORY) / "simulator" / "demo";
  for (const char* ending : {".mp4", ".truth.jsonl", ".settings.json"}) {
    fs::copy_file(demo / (std::string("demo") + ending), request.folder / (std::string("<demo>") + ending));
  }
  std::string happened = [&] {
    std::ifstream file(demo / "demo.happened.txt");
    return std::string{std::istreambuf_iterator<char>(file), {}};
  }();
  happened.replace(happened.find("31 - 57.5"), 9, "75 - 90");  // somebody has written it down wrongly
  write("recordings/<demo>.happened.txt", happened);
  ::setenv("VELMOR_SOURCE_DIR", SOURCE_DIRECTORY, 1);
  program(std::string("case \"$*\" in *--truth*) ;; *) set -- \"$@\" --truth ") + demo.string() +
          "/demo.truth.jsonl ;; esac\nexport ASAN_OPTIONS=detect_leaks=0\nexec " PROGRAM_DIRECTORY
          "/velmor_run \"$@\"");
  const evaluate::Evaluation evaluation = evaluateFolder(request);
  ASSERT_TRUE(evaluation.problems.empty()) << evaluation.problems[0];
  const std::string table = tableOf(evaluation);
  EXPECT_NE(table.find("1 of 1       0      0    0.0     0         0  4.5 s  4.5 s"), std::string::npos) << table;
  EXPECT_NE(table.find("networks: Fall Detected without a cause, from 0:41.0 to 1:01.5, with true people as well. "
                       "Person 0 has lain still on the floor for 3 s"),
            std::string::npos)
      << table;
  const std::string page = reportOf(evaluation, "<folder>");
  EXPECT_EQ(page.find("<demo>"), std::string::npos);
  EXPECT_EQ(page.find("<script"), std::string::npos);
  EXPECT_NE(page.find("&lt;demo&gt;"), std::string::npos);
  EXPECT_NE(page.find("personal data"), std::string::npos);
  EXPECT_NE(page.find("<a href=\"#d4\""), std::string::npos);
  EXPECT_NE(page.find("<li id=\"d4\""), std::string::npos);
  EXPECT_NE(page.find("src=\"data:image/jpeg;base64,/9j/"), std::string::npos);
  EXPECT_EQ(page.find("no picture"), std::string::npos);
}

TEST(EvaluateCommand, SaysWhatItWasNotGiven) {
  const auto answer = [](const std::string& words) {
    ::setenv("VELMOR_SOURCE_DIR", SOURCE_DIRECTORY, 1);
    std::FILE* out = ::popen((PROGRAM_DIRECTORY "/velmor_run evaluate " + words + " 2>&1").c_str(), "r");
    std::array<char, 4096> text{};
    const std::size_t size = std::fread(text.data(), 1, text.size() - 1, out);
    return std::string(text.data(), size) + std::to_string(WEXITSTATUS(::pclose(out)));
  };
  EXPECT_EQ(answer("/ --into /nowhere.md"), "/nowhere.md: cannot be read\n2");
  EXPECT_EQ(answer("/nowhere"), "/nowhere: there is no such folder\n2");
  EXPECT_EQ(answer("/ --jobs 0"), "--jobs needs a whole number from 1 to 256, not \"0\"\n2");
  EXPECT_EQ(answer("/ --precision fp8"), "--precision takes fp32, bf16 or int8, not \"fp8\"\n2");
  EXPECT_EQ(answer("/ --eyes keen"), "--eyes takes fast or sharp, not \"keen\"\n2");
  EXPECT_EQ(answer("/ --report /"), "/: is a directory; a file's name is needed\n2");
  EXPECT_EQ(answer("/ --set Sensitivity=2"), "--set Sensitivity=2: must be a number from 0 to 1\n2");
}

}  // namespace
