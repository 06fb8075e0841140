// The whole program, through the launcher: the demo from its video to its events, starts that are refused, and cameras
// that fail.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "platform/scripted/stage/rtsp_camera.h"
#include "platform/workstation/parameters/stored_parameters.h"
#include "tests/platform/cameras/sockets.h"
#include "tests/platform/http_client.h"
#include "tests/reference/traced_cycles.h"

namespace {

namespace fs = std::filesystem;

struct Outcome {
  int status = -1;
  std::string output;  ///< standard output
  std::string errors;  ///< standard error
};

std::string contents(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// For programs built with sanitizers: leaks are told apart by their whole call stacks.
const std::string kSanitizers = "ASAN_OPTIONS=fast_unwind_on_malloc=0 LSAN_OPTIONS='suppressions=" SOURCE_DIRECTORY
                                "/tests/demo/leaks.supp:print_suppressions=0' ";

/// Where the standard error of a run is.
fs::path errorsFile() { return fs::path(testing::TempDir()) / ("demo-errors-" + std::to_string(getpid())); }

/// Runs the launcher with these words, through the command `through`.
Outcome run(const std::string& words, const std::string& through = "") {
  const fs::path errors = errorsFile();
  const std::string command = kSanitizers + "VELMOR_SOURCE_DIR='" SOURCE_DIRECTORY "' " + through +
                              " " PROGRAM_DIRECTORY "/velmor_run " + words + " 2>'" + errors.string() + "'";
  Outcome outcome;
  FILE* pipe = popen(command.c_str(), "r");
  std::array<char, 4096> chunk{};
  while (const std::size_t count = std::fread(chunk.data(), 1, chunk.size(), pipe)) {
    outcome.output.append(chunk.data(), count);
  }
  const int status = pclose(pipe);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  outcome.errors = contents(errors);
  fs::remove(errors);
  return outcome;
}

/// One JSON object a line.
std::vector<nlohmann::json> objectsOf(const std::string& lines) {
  std::vector<nlohmann::json> objects;
  std::istringstream in(lines);
  for (std::string line; std::getline(in, line);) objects.push_back(nlohmann::json::parse(line));
  return objects;
}

const fs::path kDemo = fs::path(SOURCE_DIRECTORY) / "simulator/demo";
const fs::path kGolden = fs::path(SOURCE_DIRECTORY) / "tests/demo/demo.golden.jsonl";

TEST(Demo, TrueKeypointsLeadToTheGoldenEvents) {
  const Outcome outcome = run("replay demo --json --truth '" + (kDemo / "demo.truth.jsonl").string() + "'");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, contents(kGolden));
}

/// The second replay takes the files one by one, as a user's own recording.
TEST(Demo, NetworksLeadToTheSameEventsEachWithinThreePicturesAndRepeatably) {
  const std::string trace = testing::TempDir() + "demo-" + std::to_string(getpid()) + ".trace.jsonl";
  const Outcome outcome = run("replay demo --json --trace '" + trace + "'");
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  const auto seen = objectsOf(outcome.output);
  const auto wanted = objectsOf(contents(kGolden));
  ASSERT_EQ(seen.size(), wanted.size()) << outcome.output;
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    EXPECT_EQ(seen[i]["event"], wanted[i]["event"]) << outcome.output;
    EXPECT_EQ(seen[i]["active"], wanted[i]["active"]) << outcome.output;
    EXPECT_NEAR(seen[i]["t"].get<double>(), wanted[i]["t"].get<double>(), 1.5) << outcome.output;
  }
  const std::string files =
      "'" + (kDemo / "demo.mp4").string() + "' --settings '" + (kDemo / "demo.settings.json").string() + "'";
  EXPECT_EQ(run("replay " + files + " --json").output, outcome.output);

  const Outcome again = run("replay '" + trace + "' --json --trace '" + trace + ".again'");
  EXPECT_EQ(again.output, outcome.output) << again.errors;
  EXPECT_EQ(cyclesOf(trace + ".again"), cyclesOf(trace)) << "what the networks' steps told is what a trace tells";
  const Outcome why = run("explain '" + trace + "'");
  for (const auto& change : seen) {
    EXPECT_NE(why.output.find(change["event"].get<std::string>()), std::string::npos) << why.output;
  }
  fs::remove(trace);
  fs::remove(trace + ".again");
}

/// A limit on the size of files: the journal, which is the largest of all, has no room for another line.
TEST(Demo, AFullDiskSwallowsNoAlarmAndTheNextStartSaysWhatIsMissing) {
  const fs::path state = fs::path(testing::TempDir()) / ("demo-full-" + std::to_string(getpid()));
  fs::create_directories(state);
  constexpr int kLines = 1000;
  std::ofstream journal(state / "events.jsonl");
  for (int line = 1; line <= kLines; ++line) {
    journal << R"({"seq": )" << line << R"(, "event": "e", "topic": "t", "active": false})"
            << "\n";
  }
  journal.close();
  const std::string room = std::to_string(fs::file_size(state / "events.jsonl") + 20);
  const std::string words =
      "replay demo --json --truth '" + (kDemo / "demo.truth.jsonl").string() + "' --state '" + state.string() + "'";
  const Outcome full = run(words, "prlimit --fsize=" + room);
  EXPECT_EQ(full.status, 0) << full.errors;
  EXPECT_EQ(full.output, contents(kGolden));
  EXPECT_NE(full.errors.find("events go out all the same and are recorded later\n"), std::string::npos) << full.errors;
  EXPECT_NE(full.errors.find(": 6 events have not been recorded: "), std::string::npos) << full.errors;
  EXPECT_EQ(run(words).output, full.output);
  auto records = objectsOf(contents(state / "events.jsonl"));
  ASSERT_EQ(records.size(), kLines + 7U);
  EXPECT_EQ(records[kLines]["kind"], "missing");
  EXPECT_EQ(records[kLines]["from"], kLines + 1);
  EXPECT_EQ(records[kLines]["to"], kLines + 6);
  EXPECT_EQ(records[kLines + 1]["seq"], kLines + 7);
  fs::remove_all(state);
}

class Refused : public testing::Test {
 protected:
  void SetUp() override { fs::create_directories(m_folder); }
  void TearDown() override { fs::remove_all(m_folder); }

  fs::path write(const std::string& name, const std::string& text) const {
    std::ofstream(m_folder / name) << text;
    return m_folder / name;
  }

  /// One line on standard error that contains `words`, nothing on standard output, and a status of failure.
  static void expectOneLine(const Outcome& outcome, const std::string& words) {
    EXPECT_GT(outcome.status, 0);
    EXPECT_LT(outcome.status, 128) << "ended by a signal";
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1) << outcome.errors;
    EXPECT_NE(outcome.errors.find(words), std::string::npos) << outcome.errors;
  }

  fs::path m_folder = fs::path(testing::TempDir()) / ("demo-refused-" + std::to_string(getpid()));
};

TEST_F(Refused, FilesThatHoldNoVideoEndInOneLine) {
  write("empty.mp4", "");
  write("text.mp4", std::string(5000, 'x'));
  for (const char* name : {"missing.mp4", "empty.mp4", "text.mp4"}) {
    expectOneLine(run("replay '" + (m_folder / name).string() + "' --json"), name);
  }
}

TEST_F(Refused, ALensThatHangsIsNamedAndKeepsNoStateWhenItIsLeftBehind) {
  const fs::path asked = m_folder / "asked";
  const fs::path busctl = write("busctl", "#!/bin/sh\necho $$ > '" + asked.string() + "'\nsleep 1000\n");
  fs::permissions(busctl, fs::perms::owner_all);
  const char* const known = std::getenv("PATH");
  const std::string path = known == nullptr ? "" : known;
  setenv("PATH", (m_folder.string() + ":" + path).c_str(), 1);
  const std::string state = " --state '" + (m_folder / "state").string() + "'";
  auto ended = std::async(std::launch::async, [&state] { return run("replay demo --json" + state); });
  while (ended.wait_for(std::chrono::milliseconds(50)) == std::future_status::timeout &&
         contents(errorsFile()).find("Still starting: ") == std::string::npos) {
  }
  const std::string log = contents(m_folder / "state" / "system.log");
  kill(std::stoi(log.substr(log.find('[') + 1)), SIGKILL);
  const Outcome outcome = ended.get();
  setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(outcome.status, 128 + SIGKILL);
  EXPECT_NE(outcome.errors.find("Still starting: waiting for the camera's lens (busctl)\n"), std::string::npos)
      << outcome.errors;
  const pid_t lens = getpgid(std::stoi(contents(asked)));
  ASSERT_GT(lens, 1) << "left behind";
  const Outcome next = run("--reset floor" + state);
  EXPECT_EQ(next.status, 0) << next.errors;
  kill(-lens, SIGKILL);
}

TEST_F(Refused, AnUncalibratableFloorNamesItsKeysAndIsRepaired) {
  const std::string state = " --state '" + m_folder.string() + "'";
  const std::string truth = " --truth '" + (kDemo / "demo.truth.jsonl").string() + "'";
  ASSERT_EQ(run("replay demo --json" + state + truth).status, 0);
  workstation::StoredParameters store(m_folder, "velmor_care");
  auto saved = store.load().value();
  saved.values["WRectM"] = "0.000000";
  saved.values["Detection10x"] = "640";
  for (auto& [name, value] : saved.values) {
    if (name.starts_with("FallCalibration")) value = "360";
  }
  store.save(saved);
  const std::string command = "./run --reset floor --state " + m_folder.string();
  const std::string stored = "replay demo --json" + state;
  for (const std::string& words : {stored, stored + truth}) {
    const Outcome stopped = run(words);
    EXPECT_NE(stopped.status, 0);
    for (const std::string& line :
         {std::string(": WRectM is 0.000000: must be above 0; "),
          std::string(": FallCalibration0x .. FallCalibration3y: the four points cannot be a rectangle on the floor\n"),
          std::string(": Failed init_3D\n"), command + "\n"}) {
      EXPECT_NE(stopped.errors.find(line), std::string::npos) << stopped.errors;
    }
  }
  const Outcome repaired = run(command.substr(command.find("--reset")));
  EXPECT_EQ(repaired.status, 0) << repaired.errors;
  EXPECT_NE(repaired.output.find("  WRectM: 0.000000 -> "), std::string::npos) << repaired.output;
  EXPECT_EQ(repaired.output.find("Sensitivity"), std::string::npos) << "nothing else is touched";
  const Outcome started = run("replay demo --json" + state + truth);
  EXPECT_EQ(started.status, 0) << started.errors;
  EXPECT_NE(contents(m_folder / "parameters.conf").find("Detection10x=640"), std::string::npos) << "still as saved";
}

/// The program while it watches a camera.
class Watching : public Refused {
 protected:
  void start(const std::string& source) {
    const std::string command = "exec env " + kSanitizers +
                                "VELMOR_SOURCE_DIR='" SOURCE_DIRECTORY "' " PROGRAM_DIRECTORY
                                "/velmor_run --listen 127.0.0.1:0 --state '" +
                                m_folder.string() + "' --source '" + source + "' >'" + m_output.string() + "' 2>&1";
    m_program = fork();
    if (m_program == 0) {
      execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
      _exit(127);
    }
    const std::string page = "Page: http://127.0.0.1:";
    for (int i = 0; i < 1200 && contents(m_output).find(page) == std::string::npos; ++i) usleep(100'000);
    const std::string output = contents(m_output);
    ASSERT_NE(output.find(page), std::string::npos) << output;
    m_port = static_cast<std::uint16_t>(std::stoi(output.substr(output.find(page) + page.size())));
  }

  /// Its status at the end that it is asked for.
  int end() const {
    kill(m_program, SIGTERM);
    int status = -1;
    waitpid(m_program, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  /// Waits for a heartbeat of the page's feed that tells what is wanted.
  static bool heartbeatTells(HttpClient& feed, bool is_there, bool has_watched,
                             const std::string& trouble = "camera-away") {
    for (int beat = 0; beat < 200;) {
      const std::string message = feed.receiveUntil("\n\n");
      if (message.empty()) return false;
      if (message.find("event: heartbeat") == std::string::npos) continue;
      ++beat;
      const auto told = nlohmann::json::parse(message.substr(message.find("data: ") + 6));
      const auto& wrong = told.at("wrong");
      const bool is_told = std::any_of(wrong.begin(), wrong.end(), [&trouble](const nlohmann::json& what) {
        return what.at("what") == trouble && what.dump().find("secret") == std::string::npos;
      });
      if (is_told == is_there && (told.at("cycle") > 0) == has_watched) return true;
    }
    return false;
  }

  fs::path m_output = m_folder / "output";
  pid_t m_program = 0;
  std::uint16_t m_port = 0;
};

/// The process that the launcher of these words has for trying its source; waits for it. 0 when there is none.
pid_t triedBy(const std::string& words) {
  const auto isLauncher = [&words](const fs::path& process) {
    return contents(process / "comm") == "velmor_run\n" &&
           contents(process / "cmdline").find(words) != std::string::npos;
  };
  for (int i = 0; i < 600; ++i, usleep(100'000)) {
    for (const auto& process : fs::directory_iterator("/proc")) {
      if (!isLauncher(process.path())) continue;
      std::istringstream status(contents(process.path() / "stat"));
      std::string id, name, state, parent;
      status >> id >> name >> state >> parent;
      if (isLauncher("/proc/" + parent)) return std::stoi(id);
    }
  }
  return 0;
}

TEST_F(Watching, TheLauncherTriesAVideoApart) {
  start((kDemo / "demo.mp4").string());
  EXPECT_EQ(contents("/proc/" + std::to_string(m_program) + "/maps").find("/gstreamer-1.0/"), std::string::npos)
      << "it would stay there for as long as the room is watched";
  EXPECT_EQ(end(), 0) << contents(m_output);

  std::uint16_t port = 0;
  const FileDescriptor silent = listenHere(port);
  const std::string source = "rtsp://127.0.0.1:" + std::to_string(port) + "/room";
  auto outcome = std::async(std::launch::async, [&source] { return run("replay " + source); });
  const pid_t trial = triedBy(source);
  ASSERT_GT(trial, 0);
  kill(trial, SIGKILL);
  const Outcome refused = outcome.get();
  EXPECT_EQ(refused.status, 2);
  EXPECT_EQ(refused.errors, source + ": cannot be played: what tries it was ended by signal 9 (Killed)\n");
}

TEST_F(Watching, ACameraThatComesLateAndDiesIsToldAsSuch) {
  scripted::RtspCamera camera;
  std::ofstream(m_folder / "room.json") << R"({"source": ")" << camera.uri("ward:secret@") << "\"}";
  start((m_folder / "room.json").string());
  HttpClient feed(m_port);
  feed.send("GET /platform/events HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(m_port) + "\r\n\r\n");
  EXPECT_TRUE(heartbeatTells(feed, true, false)) << contents(m_output);
  camera.plug({.luma = 90});
  EXPECT_TRUE(heartbeatTells(feed, false, true)) << contents(m_output);
  EXPECT_TRUE(heartbeatTells(feed, true, true, "lens-covered")) << "it shows nothing but grey";
  EXPECT_EQ(request(m_port, "GET", "/platform/sight?show=now").status, 200);
  EXPECT_EQ(request(m_port, "GET", "/platform/sight?show=everything").status, 400);
  const char* const form = "X-Requested-With: test\r\nContent-Type: application/x-www-form-urlencoded\r\n";
  EXPECT_EQ(request(m_port, "POST", "/platform/sight", form, "action=accept").status, 200);
  EXPECT_NE(request(m_port, "GET", "/platform/changes").body.find("\"camera.view\""), std::string::npos);
  camera.unplug();
  EXPECT_TRUE(heartbeatTells(feed, true, true)) << contents(m_output);
  EXPECT_EQ(request(m_port, "GET", "/axis-cgi/jpg/image.cgi").status, 503);
  EXPECT_EQ(end(), 0) << contents(m_output);
  EXPECT_NE(contents(m_output).find("The camera has given no picture since "), std::string::npos);
  EXPECT_NE(contents(m_folder / "events.jsonl").find("\"why\":\"lens-covered\""), std::string::npos);
  EXPECT_EQ((contents(m_output) + contents(m_folder / "system.log")).find("secret"), std::string::npos);
}

}  // namespace
