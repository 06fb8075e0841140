#include <axevent.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/workstation/event_journal.h"
#include "tests/platform/state_folder.h"

namespace {

using nlohmann::json;
using workstation::EventJournal;
using namespace std::chrono_literals;

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

  /// Two declarations and a fall that begins at 31.5 s, then the end without warning.
  void runAndDie() {
    const Handler handler(ax_event_handler_new());
    declare(handler, "Bed", "Patient Out of Bed");
    const guint fall = declare(handler, "Fall", "Fall Detected");
    ticker_clock::setReplayTime(at(31500ms));
    EXPECT_TRUE(send(handler, fall, true));
  }

  StateFolder m_folder;
};

TEST_F(EventService, WritesEachDeclarationAndChangeAsAFullRecord) {
  runAndDie();
  const json expected = {{"seq", 3},          {"time", "1970-01-01T00:00:31.500Z"}, {"t", 31.5},
                         {"kind", "changed"}, {"event", "Fall Detected"},           {"topic", "tnsaxis:Base/Fall"},
                         {"active", true}};
  EXPECT_EQ(journal().at(2), expected);
  EXPECT_EQ(journal().at(0)["kind"], "declared");
  EXPECT_EQ(journal().at(0)["event"], "Patient Out of Bed");
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{1, 2, 3}));
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

TEST_F(EventService, CutsATornLineOffAndUsesItsNumberAgain) {
  runAndDie();
  const std::string whole = m_folder.read("events.jsonl");
  const size_t last = whole.rfind('\n', whole.size() - 2) + 1;
  for (size_t length = last; length < whole.size(); ++length) {
    m_folder.write("events.jsonl", whole.substr(0, length));
    const Handler handler(ax_event_handler_new());
    declare(handler, "Bed", "Patient Out of Bed");
    ASSERT_EQ(numbers(), (std::vector<std::uint64_t>{1, 2, 3})) << length;
    ASSERT_FALSE(std::filesystem::exists(m_folder / "events.jsonl.damaged-1"));
  }
  m_folder.write("events.jsonl", whole + std::string(200000, '\0'));
  declare(Handler(ax_event_handler_new()), "Bed", "Patient Out of Bed");
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{1, 2, 3, 4, 5})) << "the fall ends, the bed is declared";
}

TEST_F(EventService, PutsADamagedJournalAsideAndGoesOnCounting) {
  runAndDie();
  const std::string whole = m_folder.read("events.jsonl");
  const std::string first_line = whole.substr(0, whole.find('\n') + 1);
  const std::string damages[] = {"not a record\n" + whole,
                                 first_line + std::string(9000, 'x') + "\n" + whole,
                                 first_line + whole,
                                 whole.substr(first_line.size() / 2),
                                 first_line + whole.substr(whole.find('\n', first_line.size()) + 1),
                                 whole + R"({"seq": 18446744073709551615, "event": "e", "topic": "t", "active": true})"
                                         "\n"};
  int aside = 0;
  for (const std::string& damage : damages) {
    std::filesystem::remove(m_folder / "events.jsonl");
    m_folder.write("events.jsonl", damage);
    const EventJournal opened(m_folder.path(), at(0ms));
    const std::string name = "events.jsonl.damaged-" + std::to_string(++aside);
    EXPECT_EQ(m_folder.read(name), damage);
    EXPECT_NE(opened.damage().find(name), std::string::npos) << opened.damage();
    EXPECT_EQ(numbers(), std::vector<std::uint64_t>{4}) << "the fall was active and is closed";
  }
  // Killed between the two steps: the old file has gone, the new one is still empty.
  m_folder.write("events.jsonl", "");
  const EventJournal restarted(m_folder.path(), at(0ms));
  EXPECT_EQ(numbers(), std::vector<std::uint64_t>{4});
}

TEST_F(EventService, GivesNoNumberToWhatCannotBeSent) {
  const Handler handler(ax_event_handler_new());
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
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{1, 2})) << "declared, undeclared";
}

/// As on a full disk, room is left for a part of the next line only.
TEST_F(EventService, ALineThatFindsNoRoomLeavesNothingBehindAndSaysWhy) {
  const Handler handler(ax_event_handler_new());
  const guint id = declare(handler, "Bed", std::string(3'000, 'x').c_str());  // no other file grows as large
  rlimit unlimited{};
  ::getrlimit(RLIMIT_FSIZE, &unlimited);
  const auto ignored = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit full{m_folder.read("events.jsonl").size() + 50, unlimited.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &full);
  testing::internal::CaptureStderr();
  const bool sent = send(handler, id, true);
  const std::string shown = testing::internal::GetCapturedStderr();
  ::setrlimit(RLIMIT_FSIZE, &unlimited);
  std::signal(SIGXFSZ, ignored);
  EXPECT_FALSE(sent);
  EXPECT_NE(shown.find("events.jsonl: cannot be written: File too large\n"), std::string::npos) << shown;
  EXPECT_TRUE(send(handler, id, true));
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{1, 2}));
}

TEST_F(EventService, LetsOnlyOneProgramWriteAJournal) {
  const Handler first(ax_event_handler_new());
  EXPECT_THROW(EventJournal(m_folder.path(), at(0ms)), std::runtime_error);
  EXPECT_EQ(Handler(ax_event_handler_new()), nullptr);
}

}  // namespace
