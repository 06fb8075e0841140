#include "platform/workstation/trace/trace_output.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/clock/clock.h"
#include "tests/platform/conditions.h"
#include "tests/platform/disk_faults.h"
#include "tests/platform/event_sender.h"
#include "tests/platform/state_folder.h"

namespace {

using namespace std::chrono_literals;
using workstation::LiveTrace;
using workstation::TraceLimits;
namespace fs = std::filesystem;

const std::string kHeader = R"({"kind":"trace","version":1})";

const std::string kEnd = R"({"kind":"end","ns":0,"cycles":1})";

std::string settings(int number) {
  return R"({"kind": "settings","parameters":{"A":")" + std::to_string(number) + "\"}}";
}
std::string cycle(int number) {
  return R"({"kind":"cycle","number":)" + std::to_string(number) + R"(,"areas":[{"kind":"bed"}]})";
}

std::vector<std::string> linesOf(const std::string& text) {
  EXPECT_TRUE(text.empty() || text.back() == '\n') << "half a line: " << text;
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

mode_t modeOf(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 0777U;
}

/// 2026-03-01T12:00:00Z
constexpr TimeStamp kNoon(1772366400s);
/// For a disk that answers.
constexpr std::chrono::seconds kPatience = 30s;

class LiveTraceTest : public testing::Test {
 protected:
  LiveTraceTest() {
    ticker_clock::setReplayTime(kNoon);
    openlog("velmor_test", 0, LOG_USER);
  }
  ~LiveTraceTest() override { disk_fault = Fault::kNone; }

  fs::path directory() const { return m_folder / m_traces; }
  void open(std::size_t most_waiting = 100) {
    m_limits.pause = 1ms;
    m_limits.spare_bytes = spare;
    m_trace.emplace(directory(), m_limits, most_waiting);
    m_trace->take(kHeader + "\n" + settings(1) + "\n");
  }
  void take(int number) { m_trace->take(cycle(number) + "\n"); }
  /// The files' names after "trace-20260301T", in their order, with their lines.
  std::map<std::string, std::vector<std::string>> files() {
    m_trace->finish(kPatience);
    std::map<std::string, std::vector<std::string>> found;
    for (const auto& entry : fs::directory_iterator(directory())) {
      const std::string name = entry.path().filename();
      if (name.starts_with("trace-20260301T")) found[name.substr(15)] = linesOf(m_folder.read(m_traces + "/" + name));
    }
    return found;
  }

  StateFolder m_folder;
  std::string m_traces = "traces";
  TraceLimits m_limits;
  std::int64_t spare = 0;  ///< bytes of the disk that stay free
  std::optional<LiveTrace> m_trace;
};

TEST_F(LiveTraceTest, EachFileCanBeReadAloneAndNoneIsTooLongOrTooOld) {
  m_limits.file_bytes = 330;
  open();
  for (int number = 1; number <= 5; ++number) take(number);
  m_trace->take(cycle(6) + "\n" + settings(2) + "\n" + cycle(7) + "\n");
  ticker_clock::setReplayTime(kNoon + 1h - 1s);
  take(8);
  ticker_clock::setReplayTime(kNoon + 1h + 1s);
  take(9);
  m_trace->finish(kPatience);
  ticker_clock::setReplayTime(kNoon + 59min);
  take(10);
  using Lines = std::vector<std::string>;
  const std::map<std::string, Lines> expected = {
      {"120000Z.jsonl", {kHeader, settings(1), cycle(1), cycle(2), cycle(3), cycle(4)}},
      {"120001Z.jsonl", {kHeader, settings(1), cycle(5), cycle(6), settings(2), cycle(7), cycle(8)}},
      {"130001Z.jsonl", {kHeader, settings(2), cycle(9)}},
      {"125900Z.jsonl", {kHeader, settings(2), cycle(10)}}};
  EXPECT_EQ(files(), expected);
  EXPECT_EQ(modeOf(directory()), 0700U);
  EXPECT_EQ(modeOf(directory() / "trace-20260301T120000Z.jsonl"), 0600U);
}

TEST_F(LiveTraceTest, RemovesTheOldestOfItsOwnFilesAndNothingElse) {
  fs::create_directories(directory() / "trace-20200101T000000Z.jsonl");
  const std::vector<std::string> foreign = {"trace-20200101.jsonl", "trace-20201301T000000Z.jsonl", "demo.trace.jsonl",
                                            "trace-20200101T000001Z.jsonl.bak", "xtrace-20200101T000001Z.jsonl"};
  for (const std::string& name : foreign) m_folder.write("traces/" + name, "x");
  m_folder.write("traces/trace-20260222T115959Z.jsonl", "seven days and a second");
  m_folder.write("traces/trace-20260222T120000Z.jsonl", std::string(100, 'x'));
  m_folder.write("traces/trace-20260301T110000Z.jsonl", std::string(100, 'x'));
  m_folder.write("kept", "x");
  fs::create_symlink(m_folder / "kept", directory() / "trace-20200101T000002Z.jsonl");
  m_limits.file_bytes = 300;
  m_limits.all_bytes = 500;
  open();
  take(1);
  m_trace->finish(kPatience);
  EXPECT_FALSE(fs::exists(directory() / "trace-20260222T115959Z.jsonl"));
  EXPECT_TRUE(fs::exists(directory() / "trace-20260222T120000Z.jsonl")) << "there is room for it";
  for (int number = 2; number <= 40; ++number) take(number);
  std::size_t bytes = 0;
  for (const auto& [name, lines] : files()) bytes += fs::file_size(directory() / ("trace-20260301T" + name));
  EXPECT_LE(bytes, 500U);
  EXPECT_EQ(files().rbegin()->second.back(), cycle(40));
  EXPECT_FALSE(fs::exists(directory() / "trace-20260222T120000Z.jsonl"));
  for (const std::string& name : foreign) EXPECT_TRUE(fs::exists(directory() / name)) << name;
  EXPECT_TRUE(fs::exists(directory() / "trace-20200101T000000Z.jsonl"));
  EXPECT_TRUE(fs::is_symlink(directory() / "trace-20200101T000002Z.jsonl"));
}

/// What the system log said on standard error, between two points of a test.
int timesTold(const std::string& errors) {
  int times = 0;
  for (std::size_t at = 0; (at = errors.find("the trace cannot be written", at)) != std::string::npos; ++at) ++times;
  return times;
}

TEST_F(LiveTraceTest, AFullDiskLeavesWholeLinesAndTheTraceSaysWhatIsMissing) {
  testing::internal::CaptureStderr();
  open();
  take(1);
  m_trace->finish(kPatience);
  disk_fault = Fault::kNoRoom;
  for (int number = 2; number <= 4; ++number) take(number);
  m_trace->finish(kPatience);
  m_trace->take(settings(2) + "\n");
  disk_fault = Fault::kNone;
  std::this_thread::sleep_for(m_limits.pause);
  take(5);
  const std::vector<std::string> expected = {
      kHeader, settings(1), cycle(1), settings(2), R"({"kind":"missing","lines":3})", cycle(5)};
  EXPECT_EQ(files().at("120000Z.jsonl"), expected);
  EXPECT_EQ(timesTold(testing::internal::GetCapturedStderr()), 1);
  EXPECT_NE(m_folder.read("system.log").find("the trace goes on; 3 lines are missing"), std::string::npos);
}

TEST_F(LiveTraceTest, WhatIsLeftOfADiskIsForTheJournalAndOlderTracesGoFirst) {
  fs::create_directories(directory());
  m_folder.write("traces/trace-20260301T110000Z.jsonl", "x");
  m_folder.write("traces/mine.jsonl", "x");
  spare = std::int64_t{1} << 60;
  open();
  take(1);
  EXPECT_TRUE(files().empty() || files().begin()->second.empty());
  EXPECT_FALSE(fs::exists(directory() / "trace-20260301T110000Z.jsonl"));
  EXPECT_TRUE(fs::exists(directory() / "mine.jsonl"));
}

TEST_F(LiveTraceTest, AClockThatJumpsForAMomentMakesNothingOld) {
  open();
  take(1);
  m_trace->finish(kPatience);
  ticker_clock::setReplayTime(kNoon + 24h * 30);
  take(2);
  m_trace->finish(kPatience);
  ticker_clock::setReplayTime(kNoon + 1s);
  take(3);
  EXPECT_EQ(files().at("120000Z.jsonl").back(), cycle(1));
  EXPECT_EQ(files().at("120001Z.jsonl").back(), cycle(3));
}

TEST_F(LiveTraceTest, ADirectoryThatIsNotThereYetOrGoesAwayIsMadeWithThoseAboveIt) {
  m_traces = "mount/traces";
  m_folder.write("mount", "no folder");
  open();
  take(1);
  m_trace->finish(kPatience);
  fs::remove(m_folder / "mount");
  std::this_thread::sleep_for(m_limits.pause);
  take(2);
  const std::string missing = R"({"kind":"missing","lines":1})";
  EXPECT_EQ(files().at("120000Z.jsonl"), (std::vector<std::string>{kHeader, settings(1), missing, cycle(2)}));
  EXPECT_EQ(modeOf(directory()), 0700U);
  fs::remove_all(m_folder / "mount");
  take(3);
  EXPECT_EQ(files().at("120000Z.jsonl"), (std::vector<std::string>{kHeader, settings(1), cycle(3)}));
}

TEST_F(LiveTraceTest, ADiskThatDoesNotAnswerIsToldOfBeforeALineIsLost) {
  m_limits.hang = 1ms;
  open();
  take(1);
  m_trace->finish(kPatience);
  testing::internal::CaptureStderr();
  disk_fault = Fault::kHangs;
  const auto isSaid = [this](const char* what) { return m_folder.read("system.log").find(what) != std::string::npos; };
  take(2);
  for (int number = 3; number <= 5; ++number) {
    std::this_thread::sleep_for(m_limits.hang);
    take(number);
  }
  EXPECT_FALSE(isSaid("answers again"));
  disk_fault = Fault::kNone;
  m_trace->finish(kPatience);
  take(6);
  EXPECT_TRUE(comes([&] { return isSaid("the disk answers again; nothing is missing"); }));
  const std::string log = m_folder.read("system.log");
  const std::string waits = "the trace waits for the disk, which does not answer";
  EXPECT_NE(log.find(waits), std::string::npos);
  EXPECT_EQ(log.find(waits), log.rfind(waits)) << "once";
  EXPECT_EQ(files().at("120000Z.jsonl").size(), 8U) << "header, settings and all six";
  testing::internal::GetCapturedStderr();
}

TEST_F(LiveTraceTest, AHangingDiskKeepsNobodyWaiting) {
  testing::internal::CaptureStderr();
  open(2);
  take(1);
  m_trace->finish(kPatience);
  const Handler handler(ax_event_handler_new());
  const guint id = declare(handler, "Fall");
  disk_fault = Fault::kHangs;
  for (int number = 2; number <= 20; ++number) take(number);
  testing::internal::CaptureStdout();
  EXPECT_TRUE(send(handler, id, true));
  EXPECT_NE(testing::internal::GetCapturedStdout(), "");
  disk_fault = Fault::kNone;
  m_trace->finish(kPatience);
  take(21);
  // The thread may have taken one from the queue, or not yet.
  const auto lines = files().at("120000Z.jsonl");
  ASSERT_GE(lines.size(), 7U);
  const std::size_t written = lines.size() - 5;
  EXPECT_EQ(lines[2 + written], cycle(static_cast<int>(written) + 1)) << "those that waited, first";
  EXPECT_EQ(lines[3 + written], R"({"kind":"missing","lines":)" + std::to_string(19 - written) + "}");
  EXPECT_EQ(lines[4 + written], cycle(21));
  EXPECT_TRUE(
      comes([this] { return m_folder.read("system.log").find("does not answer; lines") != std::string::npos; }));
  EXPECT_EQ(timesTold(testing::internal::GetCapturedStderr()), 1);
}

/// A whole process: openTraceSink() gives the same for as long as one lives.
[[noreturn]] void replayTracedTo(const std::string& file, bool whole = true) {
  ::setenv("VELMOR_TRACE", file.c_str(), 1);
  ticker_clock::setReplayTime(TimeStamp(41500ms));
  {
    const Handler handler(ax_event_handler_new());
    const guint id = declare(handler, "Fall", "Fall Detected");
    openTraceSink()->take(kHeader + "\n");
    for (const bool active : {true, false}) EXPECT_TRUE(send(handler, id, active));
    openTraceSink()->take(cycle(1) + "\n");
    if (whole) openTraceSink()->take(kEnd + "\n");
  }
  std::exit(testing::Test::HasFailure() ? 2 : 0);
}

/// The process runs its test from the beginning.
TEST(ReplayTraceDeathTest, HoldsEveryLine) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const StateFolder folder;
  const std::string file = (fs::temp_directory_path() / ("velmor-trace-" + std::to_string(::getuid()))).string();
  std::ofstream(file) << "what stood there before";
  fs::permissions(file, fs::perms::all);
  EXPECT_EXIT(replayTracedTo(file), testing::ExitedWithCode(0), "^$");
  const auto lines = linesOf((std::stringstream() << std::ifstream(file).rdbuf()).str());
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_EQ(lines[0], kHeader);
  EXPECT_EQ(lines[1], R"({"kind":"event","seq":2,"ns":41500000000,"name":"Fall Detected","active":true})")
      << "the same bytes each time";
  EXPECT_TRUE(lines[2].ends_with(R"("active":false})")) << lines[2];
  EXPECT_EQ(lines[3], cycle(1));
  EXPECT_EQ(modeOf(file), 0600U);
  EXPECT_EXIT(replayTracedTo(file, false), testing::ExitedWithCode(1), "^$")
      << "who writes it has said why it broke off";
  fs::remove(file);
}

TEST(ReplayTraceDeathTest, EndsTheRunWithFailureAndOneLineWhenItCannotBeWritten) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const StateFolder folder;
  for (const auto& [path, why] :
       {std::pair{"/dev/full", "No space left on device"}, {"/dev/null/trace", "Not a directory"}}) {
    EXPECT_EXIT(replayTracedTo(path), testing::ExitedWithCode(1),
                "^[^\n]*: the trace cannot be written: " + std::string(why) + "; the replay goes on without\n$");
  }
}

TEST(ReplayOutputDeathTest, EndsTheRunWithFailureAndOneLineWhenItsEventsCannotBeShown) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const StateFolder folder;
  const auto replay = [&folder] {
    EXPECT_NE(std::freopen("/dev/full", "w", stdout), nullptr);
    replayTracedTo(folder / "t.jsonl");
  };
  EXPECT_EXIT(replay(), testing::ExitedWithCode(1),
              "^[^\n]*standard output cannot be written: No space left on device\n$");
}

}  // namespace
