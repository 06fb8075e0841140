#include <syslog.h>
#include <unistd.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/workstation/events/event_hub.h"
#include "platform/workstation/events/event_journal.h"
#include "platform/workstation/events/event_recorder.h"
#include "tests/platform/conditions.h"
#include "tests/platform/disk_faults.h"
#include "tests/platform/event_sender.h"
#include "tests/platform/full_disk.h"
#include "tests/platform/state_folder.h"

namespace {

using nlohmann::json;
using workstation::EventJournal;
using namespace std::chrono_literals;
using Numbers = std::vector<std::uint64_t>;

TimeStamp at(std::chrono::milliseconds time) { return TimeStamp(time); }

std::string trouble() { return textOf(workstation::Trouble::kAlarmsNotRecorded); }

class EventService : public testing::Test {
 protected:
  EventService() { ticker_clock::setReplayTime(at(0ms)); }
  ~EventService() override { ::unsetenv("VELMOR_OUTPUT"); }

  std::vector<json> journal() const {
    std::istringstream lines(m_folder.read("events.jsonl"));
    std::vector<json> records;
    for (std::string line; std::getline(lines, line);) {
      if (json record = json::parse(line, nullptr, false); record.is_object()) records.push_back(std::move(record));
    }
    return records;
  }
  Numbers numbers() const {
    Numbers found;
    for (const json& record : journal()) found.push_back(record["seq"]);
    return found;
  }
  /// Whether the first and the last number that a run has given are noted so.
  bool isNoted(const std::string& numbers) const {
    return m_folder.read("events.state").find(" " + numbers + " ") != std::string::npos;
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

TEST_F(EventService, WritesEachRecordInFullAndClosesOnceWhatAKilledRunLeftActive) {
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
  ticker_clock::setReplayTime(at(500ms));
  for (int start = 0; start < 2; ++start) ASSERT_NE(Handler(ax_event_handler_new()), nullptr);
  json closed = journal().back();
  EXPECT_NE(std::exchange(closed["run"], run), run);
  json end = expected;
  end.update(
      {{"seq", 4}, {"time", "1970-01-01T00:00:00.500Z"}, {"t", 0.5}, {"active", false}, {"closed_at_start", true}});
  EXPECT_EQ(closed, end);
  declare(Handler(ax_event_handler_new()), "Bed");
  EXPECT_EQ(numbers(), (Numbers{1, 2, 3, 4, 5}));
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
    ASSERT_EQ(numbers(), (Numbers{1, 2, 3, 4})) << length;
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
    EXPECT_EQ(numbers(), (Numbers{1, 2, 3, 4, 5})) << "the fall ends, the bed is declared";
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

TEST_F(EventService, AJournalThatSomebodyRemovesOrReplacesIsBegunAnew) {
  const auto file = m_folder / "events.jsonl";
  const auto has = [this](size_t lines) { return comes([&] { return numbers().size() == lines; }); };
  testing::internal::CaptureStderr();
  Handler handler(ax_event_handler_new());
  const guint fall = declare(handler, "Fall", "Fall Detected");
  ASSERT_TRUE(has(1));
  std::filesystem::remove(file);
  std::filesystem::create_directory(file);
  EXPECT_TRUE(send(handler, fall, true));
  EXPECT_TRUE(comes([] { return !trouble().empty(); })) << "where there can be none it is tried again";
  std::filesystem::remove(file);
  EXPECT_TRUE(has(1));
  std::filesystem::rename(file, m_folder / "moved");
  m_folder.write("events.jsonl", "somebody's notes");
  EXPECT_TRUE(send(handler, fall, false));
  EXPECT_TRUE(comes([&] { return m_folder.read("events.jsonl").find("\"seq\":3") != std::string::npos; }));
  EXPECT_EQ(m_folder.read("events.jsonl.damaged-1"), "somebody's notes");
  handler.reset();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("events.jsonl: has been removed; a new journal goes on"), std::string::npos) << log;
  EXPECT_NE(log.find("is another file than before; kept as events.jsonl.damaged-1"), std::string::npos) << log;
  const EventJournal next(m_folder.path());
  EXPECT_EQ(next.past().last, 3U);
  EXPECT_EQ(next.damage(), "");
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
  EXPECT_EQ(declare(handler, "Bed", std::string(5'000, 'x').c_str()), 0U) << "no line would hold it";
  handler.reset();
  EXPECT_EQ(numbers(), (Numbers{1, 2})) << "declared, undeclared";
}

/// A disk that fails, before the run begins or within it.
class DiskFault : public EventService, public testing::WithParamInterface<std::tuple<Fault, bool>> {
 protected:
  ~DiskFault() override { mend(); }

  void spoil() {
    disk_fault = std::get<0>(GetParam());
    // As on a full disk, room is left for a part of the next line only; no other file is as large as the journal.
    if (disk_fault == Fault::kFull) m_full.emplace(m_folder.read("events.jsonl").size() + 50);
  }
  void mend() {
    m_full.reset();
    disk_fault = Fault::kNone;
  }

  /// Of a run that was well before, or of the next one.
  Handler runOnASpoiltDisk(bool from_the_start) {
    Handler handler(ax_event_handler_new());
    EXPECT_TRUE(send(handler, declare(handler, "Bed", std::string(3'500, 'x').c_str()), true));
    EXPECT_TRUE(comes([this] { return numbers().size() == 2; }));
    if (from_the_start) handler.reset();
    spoil();
    if (from_the_start) handler.reset(ax_event_handler_new());
    return handler;
  }

  std::optional<FullDisk> m_full;
};

TEST_P(DiskFault, DelaysNoAlarmAndIsMadeUpForInOrder) {
  const auto [fault, from_the_start] = GetParam();
  testing::internal::CaptureStdout();
  Handler handler = runOnASpoiltDisk(from_the_start);
  ASSERT_NE(handler, nullptr);
  const size_t lines = numbers().size();
  testing::internal::GetCapturedStdout();
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const guint id = declare(handler, "Fall", "Fall Detected");
  EXPECT_TRUE(send(handler, id, true));
  syslog(LOG_INFO, "a line of the log keeps nobody waiting either");
  EXPECT_TRUE(send(handler, id, false));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "14:03:07  Fall Detected  active\n14:03:07  Fall Detected  ended\n");
  const char* const why = fault == Fault::kFull        ? "cannot be written: File too large."
                          : fault == Fault::kSyncFails ? "cannot be written: Input/output error."
                                                       : "the disk does not answer.";
  EXPECT_TRUE(comes([&] { return trouble().ends_with(why); })) << trouble();
  const std::string waiting = from_the_start ? "(4 entries)" : "(3 entries)";
  EXPECT_NE(trouble().find("alarms are shown but not recorded " + waiting), std::string::npos) << trouble();
  EXPECT_TRUE(comes([&] { return numbers().size() == lines; })) << "nothing is left of what failed";
  mend();
  EXPECT_TRUE(comes([] { return trouble().empty(); }));
  handler.reset();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(log.find("recorded later"), log.rfind("recorded later")) << "said once: " << log;
  std::vector<std::string> told;
  for (const json& record : journal()) {
    EXPECT_EQ(record["seq"], told.size() + 1);
    told.push_back(std::string(record["kind"]) + (record["active"] ? " active" : "") +
                   (record.contains("closed_at_start") ? " closed" : ""));
  }
  std::vector<std::string> expected = {"declared", "changed active", "declared", "changed active", "changed"};
  if (from_the_start) expected.insert(expected.begin() + 2, "changed closed");
  EXPECT_EQ(told, expected);
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

/// Whoever is killed while the journal hangs has noted its numbers; what the disk had not taken is not in the file.
TEST_F(EventService, SaysWhatIsMissingOfRunsThatWereKilledBeforeTheyCaughtUp) {
  runUntilKilled([this] {
    static const Handler handler(ax_event_handler_new());
    const guint id = declare(handler, "Fall", "Fall Detected");
    comes([this] { return numbers().size() == 1; });
    disk_fault = Fault::kHangs;
    send(handler, id, true);
    disk_fault = Fault::kJournalHangs;
    send(handler, id, false);
    send(handler, id, true);
    comes([this] { return isNoted("1 4"); });
  });
  runUntilKilled([this] {
    disk_fault = Fault::kJournalHangs;
    static const Handler handler(ax_event_handler_new());
    declare(handler, "Bed", "Patient Out of Bed");
    comes([this] { return isNoted("5 5"); });
  });
  for (int start = 0; start < 2; ++start) declare(Handler(ax_event_handler_new()), "Bed", "Patient Out of Bed");
  const auto records = journal();
  ASSERT_EQ(numbers(), (Numbers{1, 4, 5, 6, 7})) << m_folder.read("events.jsonl");
  EXPECT_EQ(records[1]["kind"], "missing");
  EXPECT_TRUE(records[1]["from"] == 2 && records[1]["to"] == 4) << records[1];
  EXPECT_EQ(records[1]["run"], records[0]["run"]);
  EXPECT_EQ(records[2]["from"], 5);
  EXPECT_NE(records[2]["run"], records[0]["run"]);
  EXPECT_NE(records[2]["run"], records[3]["run"]);
}

TEST_F(EventService, ANumberIsNotedBeforeAnybodyHearsOfIt) {
  struct Hearer : workstation::EventListener {
    std::function<bool(const std::string&)> is_noted;
    int noted = 0;
    void onEvent(const workstation::EventRecord& record) override {
      noted += is_noted("1 " + std::to_string(record.number)) ? 1 : 0;
    }
    void onPast() override {}
  } hearer, second;
  hearer.is_noted = second.is_noted = [this](const std::string& numbers) { return isNoted(numbers); };
  const Handler handler(ax_event_handler_new());
  const guint id = declare(handler, "Fall");
  workstation::listenToEvents(hearer);
  workstation::listenToEvents(second);
  for (int i = 0; i < 20; ++i) send(handler, id, i % 2 == 0);
  workstation::stopListeningToEvents(hearer);
  EXPECT_GT(hearer.noted, 0) << "unless the disk took too long";
  const int noted_before = hearer.noted;
  send(handler, id, true);
  workstation::stopListeningToEvents(second);
  EXPECT_EQ(hearer.noted, noted_before);
  EXPECT_GT(second.noted, 0) << "each is told";
}

TEST_F(EventService, OfTooManyThatWaitForTheDiskTheOldestBecomeOneLine) {
  const auto recorder = workstation::EventRecorder::begin([](const auto&) {}, 10);
  recorder->record({at(0ms), "declared", "e", "t"});
  ASSERT_TRUE(comes([this] { return numbers().size() == 1; }));
  disk_fault = Fault::kHangs;
  for (int i = 0; i < 40; ++i) recorder->record({at(0ms), "changed", "e", "t", true});
  disk_fault = Fault::kNone;
  recorder->finish();
  const auto records = journal();
  const auto missing =
      std::find_if(records.begin(), records.end(), [](const json& record) { return record["kind"] == "missing"; });
  ASSERT_NE(missing, records.end());
  EXPECT_EQ((missing - 1)->at("seq"), std::uint64_t((*missing)["from"]) - 1) << "from the last one before it";
  EXPECT_EQ((missing + 1)->at("seq"), std::uint64_t((*missing)["to"]) + 1);
  EXPECT_EQ(records.back()["seq"], 41);
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
  ASSERT_TRUE(comes([&] { return numbers().size() == 5; }));
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
