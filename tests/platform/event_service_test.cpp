#include <axevent.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/workstation/events/event_journal.h"
#include "platform/workstation/system/health.h"
#include "tests/platform/state_folder.h"

namespace {

using nlohmann::json;
using workstation::EventJournal;
using namespace std::chrono_literals;

/// What the disk does to files in a test's state folder.
enum class Fault { kNone, kFull, kSyncFails, kHangs };
std::atomic<Fault> disk_fault{Fault::kNone};

bool isInStateFolder(int fd) {
  std::array<char, 256> path{};
  return ::readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path.data(), path.size() - 1) > 0 &&
         std::strstr(path.data(), "/velmor-test-") != nullptr;
}

void answerAsTheDisk(int fd) {
  while (disk_fault == Fault::kHangs && isInStateFolder(fd)) ::usleep(1000);
}

}  // namespace

// In the place of the C library's, with its names.
extern "C" ssize_t write(int __fd, const void* __buf, size_t __n) {
  answerAsTheDisk(__fd);
  return ::syscall(SYS_write, __fd, __buf, __n);
}
extern "C" ssize_t pwrite(int __fd, const void* __buf, size_t __n, off_t __offset) {
  answerAsTheDisk(__fd);
  return ::syscall(SYS_pwrite64, __fd, __buf, __n, __offset);
}
extern "C" int fdatasync(int __fildes) {
  answerAsTheDisk(__fildes);
  if (disk_fault != Fault::kSyncFails) return static_cast<int>(::syscall(SYS_fdatasync, __fildes));
  errno = EIO;
  return -1;
}

namespace {

TimeStamp at(std::chrono::milliseconds time) { return TimeStamp(time); }

template <auto Free>
struct Release {
  template <typename T>
  void operator()(T* handle) const {
    Free(handle);
  }
};
using KeyValueSet = std::unique_ptr<AXEventKeyValueSet, Release<ax_event_key_value_set_free>>;
using Handler = std::unique_ptr<AXEventHandler, Release<ax_event_handler_free>>;

KeyValueSet stateSet(bool active) {
  KeyValueSet set(ax_event_key_value_set_new());
  const gboolean state = active ? TRUE : FALSE;
  EXPECT_TRUE(ax_event_key_value_set_add_key_values(set.get(), nullptr, "active", nullptr, &state, AX_VALUE_TYPE_BOOL,
                                                    nullptr));
  return set;
}

class EventService : public testing::Test {
 protected:
  EventService() { ticker_clock::setReplayTime(at(0ms)); }
  ~EventService() override { ::unsetenv("VELMOR_OUTPUT"); }

  static guint declare(const Handler& handler, const char* key, const char* name) {
    const KeyValueSet set = stateSet(false);
    EXPECT_TRUE(ax_event_key_value_set_add_key_values(set.get(), nullptr, "topic0", "tnsaxis", "Base",
                                                      AX_VALUE_TYPE_STRING, "topic1", "tnsaxis", key,
                                                      AX_VALUE_TYPE_STRING, nullptr));
    EXPECT_TRUE(ax_event_key_value_set_mark_as_data(set.get(), "active", nullptr, nullptr));
    EXPECT_TRUE(ax_event_key_value_set_add_nice_names(set.get(), "topic1", "tnsaxis", "Group", name, nullptr));
    guint id = 0;
    EXPECT_TRUE(ax_event_handler_declare(handler.get(), set.get(), FALSE, &id, nullptr, nullptr, nullptr));
    return id;
  }

  static bool send(const Handler& handler, guint id, bool active) {
    const KeyValueSet set = stateSet(active);
    GDateTime* time = g_date_time_new_local(2026, 3, 1, 14, 3, 7.25);
    AXEvent* event = ax_event_new2(set.get(), time);
    g_date_time_unref(time);
    const bool sent = ax_event_handler_send_event(handler.get(), id, event, nullptr) == TRUE;
    ax_event_free(event);
    return sent;
  }

  std::vector<json> journal(const std::string& file = "events.jsonl") const {
    std::istringstream lines(m_folder.read(file));
    std::vector<json> records;
    for (std::string line; std::getline(lines, line);) records.push_back(json::parse(line));
    return records;
  }
  std::vector<std::uint64_t> numbers(const std::string& file = "events.jsonl") const {
    std::vector<std::uint64_t> found;
    for (const json& record : journal(file)) found.push_back(record["seq"]);
    return found;
  }

  static bool waitFor(const std::function<bool()>& condition) {
    for (int i = 0; i < 6000 && !condition(); ++i) std::this_thread::sleep_for(10ms);
    return condition();
  }
  static std::string trouble() {
    for (const auto& wrong : workstation::currentHealth().wrong) {
      if (wrong.what == workstation::Trouble::kAlarmsNotRecorded) return wrong.text;
    }
    return "";
  }

  /// Two declarations and a fall that begins at 31.5 s, then the end; the fall goes on.
  void runAndDie() {
    const Handler handler(ax_event_handler_new());
    declare(handler, "Bed", "Patient Out of Bed");
    const guint fall = declare(handler, "Fall", "Fall Detected");
    ticker_clock::setReplayTime(at(31500ms));
    EXPECT_TRUE(send(handler, fall, true));
  }

  StateFolder m_folder;
};

TEST_F(EventService, WritesEachDeclarationAndChangeAsAFullRecordOfItsRun) {
  runAndDie();
  const std::string run = journal().at(0)["run"];
  const json expected = {{"seq", 3},
                         {"run", run},
                         {"time", "1970-01-01T00:00:31.500Z"},
                         {"t", 31.5},
                         {"kind", "changed"},
                         {"event", "Fall Detected"},
                         {"topic", "tnsaxis:Base/Fall"},
                         {"active", true}};
  EXPECT_EQ(journal().at(2), expected);
  EXPECT_EQ(journal().at(0)["kind"], "declared");
  EXPECT_EQ(journal().at(0)["event"], "Patient Out of Bed");
  runAndDie();
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{1, 2, 3, 4, 5, 6, 7}));
  EXPECT_NE(journal().at(3)["run"], run);
}

struct Format {
  const char* output;
  const char* lines;
};
class EventOutput : public EventService, public testing::WithParamInterface<Format> {};

TEST_P(EventOutput, ShowsTheChangesOfThisRunOnly) {
  runAndDie();
  ::setenv("VELMOR_OUTPUT", GetParam().output, 1);
  ticker_clock::setReplayTime(at(500ms));
  testing::internal::CaptureStdout();
  const Handler handler(ax_event_handler_new());
  const guint id = declare(handler, "Bed", "Patient \"Out\" of Bed");
  ticker_clock::setReplayTime(at(32s));
  send(handler, id, true);
  ticker_clock::setReplayTime(at(100500ms));
  send(handler, id, false);
  const std::string shown = testing::internal::GetCapturedStdout();
  const bool text = std::string(GetParam().output) == "text";
  EXPECT_EQ(text ? shown.substr(shown.find('\n') + 1) : shown, GetParam().lines);
  EXPECT_EQ(text, shown.find("Fall Detected  ended (left active by the run before)") == 10) << shown;
}
INSTANTIATE_TEST_SUITE_P(
    Formats, EventOutput,
    testing::Values(
        Format{"text", "14:03:07  Patient \"Out\" of Bed  active\n14:03:07  Patient \"Out\" of Bed  ended\n"},
        Format{"replay", "   32.0 s  Patient \"Out\" of Bed  active\n  100.5 s  Patient \"Out\" of Bed  ended\n"},
        Format{"json",
               "{\"t\": 32.0, \"event\": \"Patient \\\"Out\\\" of Bed\", \"active\": true}\n"
               "{\"t\": 100.5, \"event\": \"Patient \\\"Out\\\" of Bed\", \"active\": false}\n"}),
    [](const auto& format) { return format.param.output; });

TEST_F(EventService, ClosesAStateThatAKilledRunLeftActiveOnce) {
  runAndDie();
  for (int start = 0; start < 2; ++start) {
    ticker_clock::setReplayTime(at(500ms));
    const Handler handler(ax_event_handler_new());
    ASSERT_NE(handler, nullptr);
  }
  const auto records = journal();
  ASSERT_EQ(records.size(), 4U);
  EXPECT_EQ(records[3]["seq"], 4);
  EXPECT_EQ(records[3]["event"], "Fall Detected");
  EXPECT_EQ(records[3]["active"], false);
  EXPECT_EQ(records[3]["closed_at_start"], true);
  EXPECT_EQ(records[3]["t"], 0.5);
}

TEST_F(EventService, CutsATornLineOffAndSaysThatItsNumberIsMissing) {
  runAndDie();
  const std::string whole = m_folder.read("events.jsonl");
  const std::string run = journal().at(0)["run"];
  const std::string state = m_folder.read("events.state");
  const size_t last = whole.rfind('\n', whole.size() - 2) + 1;
  for (size_t length = last; length < whole.size(); length += 7) {
    m_folder.write("events.jsonl", whole.substr(0, length));
    m_folder.write("events.state", state);
    declare(Handler(ax_event_handler_new()), "Bed", "Patient Out of Bed");
    ASSERT_EQ(numbers(), (std::vector<std::uint64_t>{1, 2, 3, 4})) << length;
    const json missing = {{"kind", "missing"}, {"seq", 3}, {"run", run}, {"from", 3}, {"to", 3}};
    json found = journal()[2];
    found.erase("t");
    found.erase("time");
    ASSERT_EQ(found, missing);
    ASSERT_FALSE(std::filesystem::exists(m_folder / "events.jsonl.damaged-1"));
  }
  for (const std::string& unknown : {std::string(), state.substr(0, 50), std::string(4096, 'x')}) {
    m_folder.write("events.jsonl", whole + std::string(200000, '\0'));
    m_folder.write("events.state", unknown);
    declare(Handler(ax_event_handler_new()), "Bed", "Patient Out of Bed");
    EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{1, 2, 3, 4, 5})) << "the fall ends, the bed is declared";
  }
}

TEST_F(EventService, PutsADamagedJournalAsideAndGoesOnCounting) {
  runAndDie();
  const std::string whole = m_folder.read("events.jsonl");
  const std::string first_line = whole.substr(0, whole.find('\n') + 1);
  const std::string of_another_run = R"(, "run": "b", "kind": "changed", "event": "e", "topic": "t", "active": true})";
  const std::string damages[] = {"not a record\n" + whole,
                                 first_line + std::string(9000, 'x') + "\n" + whole,
                                 first_line + whole,
                                 whole.substr(first_line.size() / 2),
                                 first_line + whole.substr(whole.find('\n', first_line.size()) + 1),
                                 whole + R"({"seq": 18446744073709551615)" + of_another_run + "\n",
                                 whole + R"({"seq": 2)" + of_another_run + "\n",
                                 whole + R"({"seq": 7, "run": "b", "kind": "missing", "from": 3, "to": 7})" + "\n"};
  int aside = 0;
  for (const std::string& damage : damages) {
    std::filesystem::remove(m_folder / "events.jsonl");
    m_folder.write("events.jsonl", damage);
    const EventJournal opened(m_folder.path());
    const std::string name = "events.jsonl.damaged-" + std::to_string(++aside);
    EXPECT_EQ(m_folder.read(name), damage);
    EXPECT_NE(opened.damage().find(name), std::string::npos) << opened.damage();
    EXPECT_TRUE(opened.past().last >= 3 && opened.past().active.contains("tnsaxis:Base/Fall"));
  }
  // Killed between the two steps: the old file has gone, the new one is still empty.
  m_folder.write("events.jsonl", "");
  EXPECT_EQ(EventJournal(m_folder.path()).past().last, 7U);
}

TEST_F(EventService, GivesNoNumberToWhatCannotBeSent) {
  Handler handler(ax_event_handler_new());
  const guint id = declare(handler, "Bed", "Patient Out of Bed");
  EXPECT_FALSE(send(handler, id + 1, true));
  EXPECT_FALSE(send(handler, 0, true));
  const KeyValueSet no_topic = stateSet(false);
  ax_event_key_value_set_mark_as_data(no_topic.get(), "active", nullptr, nullptr);
  guint untouched = 99;
  EXPECT_FALSE(ax_event_handler_declare(handler.get(), no_topic.get(), FALSE, &untouched, nullptr, nullptr, nullptr));
  EXPECT_EQ(untouched, 99U);
  const gboolean state = TRUE;
  GError* error = nullptr;
  EXPECT_FALSE(
      ax_event_key_value_set_add_key_value(no_topic.get(), "active", nullptr, &state, AX_VALUE_TYPE_BOOL, &error));
  EXPECT_NE(error, nullptr);
  g_clear_error(&error);
  EXPECT_TRUE(ax_event_handler_undeclare(handler.get(), id, nullptr));
  EXPECT_FALSE(ax_event_handler_undeclare(handler.get(), id, nullptr));
  EXPECT_FALSE(send(handler, id, true));
  handler.reset();
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{1, 2})) << "declared, undeclared";
}

/// A disk that fails, before the run begins or within it.
class DiskFault : public EventService, public testing::WithParamInterface<std::tuple<Fault, bool>> {
 protected:
  ~DiskFault() override { mend(); }

  void spoil() {
    disk_fault = std::get<0>(GetParam());
    if (disk_fault != Fault::kFull) return;
    ::getrlimit(RLIMIT_FSIZE, &m_unlimited);
    // As on a full disk, room is left for a part of the next line only; no other file is as large as the journal.
    const rlimit full{m_folder.read("events.jsonl").size() + 50, m_unlimited.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &full);
    m_limited = true;
  }
  void mend() {
    if (std::exchange(m_limited, false)) ::setrlimit(RLIMIT_FSIZE, &m_unlimited);
    disk_fault = Fault::kNone;
  }

  rlimit m_unlimited{};
  bool m_limited = false;
};

TEST_P(DiskFault, DelaysNoAlarmAndIsMadeUpForInOrder) {
  const auto [fault, from_the_start] = GetParam();
  const std::string long_name(3'500, 'x');
  testing::internal::CaptureStdout();
  Handler handler(ax_event_handler_new());
  EXPECT_TRUE(send(handler, declare(handler, "Bed", long_name.c_str()), true));
  if (from_the_start) {
    handler.reset();
    spoil();
    handler.reset(ax_event_handler_new());
    ASSERT_NE(handler, nullptr);
  } else {
    ASSERT_TRUE(waitFor([&] { return numbers().size() == 2; }));
    spoil();
  }
  const size_t lines = numbers().size();
  testing::internal::GetCapturedStdout();
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const guint id = declare(handler, "Fall", "Fall Detected");
  EXPECT_NE(id, 0U);
  EXPECT_TRUE(send(handler, id, true));
  syslog(LOG_INFO, "a line of the log keeps nobody waiting either");
  EXPECT_TRUE(send(handler, id, false));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "14:03:07  Fall Detected  active\n14:03:07  Fall Detected  ended\n");
  const char* const why = fault == Fault::kFull        ? "cannot be written: File too large."
                          : fault == Fault::kSyncFails ? "cannot be written: Input/output error."
                                                       : "the disk does not answer.";
  EXPECT_TRUE(waitFor([&] { return trouble().ends_with(why); })) << trouble();
  EXPECT_NE(trouble().find("alarms are shown but not recorded ("), std::string::npos) << trouble();
  EXPECT_EQ(numbers().size(), lines);
  mend();
  EXPECT_TRUE(waitFor([&] { return trouble().empty(); }));
  handler.reset();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(log.find("recorded later"), log.rfind("recorded later")) << "said once: " << log;
  const std::vector<json> records = journal();
  std::vector<std::string> told;
  for (size_t i = 0; i < records.size(); ++i) {
    EXPECT_EQ(records[i]["seq"], i + 1);
    if (i >= 2) told.push_back(std::string(records[i]["kind"]) + (records[i]["active"] ? " active" : ""));
  }
  if (from_the_start) {
    ASSERT_FALSE(told.empty());
    EXPECT_EQ(records[2]["closed_at_start"], true);
    told.erase(told.begin());
  }
  EXPECT_EQ(told, (std::vector<std::string>{"declared", "changed active", "changed"}));
}
std::string nameOf(const testing::TestParamInfo<std::tuple<Fault, bool>>& test) {
  const char* const names[] = {"Works", "Full", "SyncFails", "Hangs"};
  return names[static_cast<int>(std::get<0>(test.param))] +
         std::string(std::get<1>(test.param) ? "FromTheStart" : "LaterOn");
}
INSTANTIATE_TEST_SUITE_P(Disks, DiskFault,
                         testing::Combine(testing::Values(Fault::kFull, Fault::kSyncFails, Fault::kHangs),
                                          testing::Bool()),
                         nameOf);

/// In a process of its own.
void runUntilKilled(const std::function<void()>& run) {
  const pid_t child = ::fork();
  if (child == 0) {
    run();
    ::kill(::getpid(), SIGKILL);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

TEST_F(EventService, SaysWhatIsMissingOfRunsThatWereKilledBeforeTheyCaughtUp) {
  runUntilKilled([this] {
    static const Handler handler(ax_event_handler_new());
    const guint id = declare(handler, "Fall", "Fall Detected");
    waitFor([&] { return numbers().size() == 1; });
    disk_fault = Fault::kHangs;
    send(handler, id, true);
    disk_fault = Fault::kSyncFails;
    send(handler, id, false);
    send(handler, id, true);
  });
  runUntilKilled([] {
    disk_fault = Fault::kSyncFails;
    static const Handler handler(ax_event_handler_new());
    declare(handler, "Bed", "Patient Out of Bed");
  });
  for (int start = 0; start < 2; ++start) declare(Handler(ax_event_handler_new()), "Bed", "Patient Out of Bed");
  const auto records = journal();
  ASSERT_EQ(records.size(), 5U) << m_folder.read("events.jsonl");
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{1, 4, 5, 6, 7}));
  EXPECT_EQ(records[1]["kind"], "missing");
  EXPECT_EQ(records[1]["from"], 2);
  EXPECT_EQ(records[1]["to"], 4);
  EXPECT_EQ(records[1]["run"], records[0]["run"]);
  EXPECT_EQ(records[2]["from"], 5);
  EXPECT_NE(records[2]["run"], records[0]["run"]);
  EXPECT_NE(records[2]["run"], records[3]["run"]);
}

/// Another program holds the journal: this run begins without it.
TEST_F(EventService, AJournalThatCannotBeHadAtTheStartIsTakenUpLater) {
  Handler first(ax_event_handler_new());
  EXPECT_TRUE(send(first, declare(first, "Fall", "Fall Detected"), true));
  EXPECT_THROW(EventJournal{m_folder.path()}, std::runtime_error);
  Handler second(ax_event_handler_new());
  ASSERT_NE(second, nullptr);
  EXPECT_TRUE(send(second, declare(second, "Fall", "Fall Detected"), true));
  EXPECT_TRUE(trouble().ends_with("events.jsonl: is in use by another program.")) << trouble();
  first.reset();
  ASSERT_TRUE(waitFor([&] { return numbers().size() == 5; }));
  second.reset();
  declare(Handler(ax_event_handler_new()), "Bed", "Patient Out of Bed");
  const auto records = journal();
  ASSERT_EQ(records.size(), 7U) << "nothing is put aside";
  EXPECT_EQ(records[2]["closed_at_start"], true) << "the first one's fall, before the second one's";
  EXPECT_EQ(records[2]["run"], records[4]["run"]);
  EXPECT_EQ(records[4]["active"], true);
  EXPECT_GT(records[2]["seq"], 1'000'000'000'000U) << "above all that a journal may hold";
  for (size_t i = 3; i < 7; ++i) EXPECT_EQ(records[i]["seq"], records[2]["seq"].get<std::uint64_t>() + i - 2);
}

}  // namespace
