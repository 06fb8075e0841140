#include "platform/workstation/web/event_feed.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <nlohmann/json.hpp>
#include <optional>
#include <thread>

#include "platform/clock/clock.h"
#include "platform/workstation/events/event_hub.h"
#include "platform/workstation/events/run_marks.h"
#include "platform/workstation/parameters/stored_parameters.h"
#include "platform/workstation/system/health.h"
#include "platform/workstation/system/utc_text.h"
#include "tests/platform/event_sender.h"
#include "tests/platform/web/http_serving.h"

namespace {

using namespace workstation;
using namespace std::chrono_literals;
using nlohmann::json;

/// A journal with a past, and a feed of it.
class Events : public HttpServing {
 protected:
  Events() {
    const auto change = [this](std::uint64_t number, TimeStamp time, const char* name, bool active) {
      return EventRecord{time, "changed", name, "t:fall", active, false, number, "before", 0};
    };
    EventJournal(m_folder.path())
        .append({change(1, m_now - 13h, "Long ago", true),
                 change(2, m_now - 1h, "Fall Detected", false),
                 change(3, m_now - 30min, "Fall Detected", true),
                 {m_now - 20min, "watching", "", "", true, false, 4, "before", 0}});
    RunMarks(m_folder.path()).store({"before", 1, 4, m_now - 10min}, false);
    m_handler.reset(ax_event_handler_new());
    m_server = std::make_unique<HttpServer>(m_settings);
    m_feed = std::make_unique<EventFeed>(*m_server, EventFeedLimits{20, 3, 50000});
    m_port = m_server->listen(parseListenAddress("127.0.0.1:0"));
  }
  ~Events() override { m_server->stop(); }

  void change(guint id, bool active) const { EXPECT_TRUE(send(m_handler, id, active)); }
  std::string asking() const { return requestText(m_port, "GET", "/platform/events"); }
  HttpClient watch() const { return HttpClient(m_port, asking()); }
  /// The next message of this kind.
  static json next(HttpClient& client, const std::string& kind) {
    client.receiveUntil("event: " + kind + "\ndata: ");
    return json::parse(client.receiveUntil("\n\n"), nullptr, false);
  }
  static json next(HttpClient&& client, const std::string& kind) { return next(client, kind); }
  /// What the next heartbeats say to be wrong, once that does or does not have this in it.
  static std::string wrong(HttpClient& client, const std::string& what, bool there = true) {
    std::string text;
    for (int i = 0; i < 60; ++i) {
      text = next(client, "heartbeat")["wrong"].dump();
      if ((text.find('"' + what + '"') != std::string::npos) == there) return text;
    }
    return "never";
  }

  /// As a journal has it.
  const TimeStamp m_now = std::chrono::floor<std::chrono::milliseconds>(ticker_clock::now());
  Handler m_handler;
  std::unique_ptr<EventFeed> m_feed;
};

TEST_F(Events, TellsTheStateFirstAndThenEachChangeOnce) {
  const guint bed = declare(m_handler, "Bed");
  HttpClient early = watch();
  const json state = next(early, "state");
  EXPECT_EQ(state["seq"], 7);
  const json& run = state["run"];
  const json fall = {{"name", "Fall Detected"}, {"active", false}, {"since", state["events"][0]["since"]}, {"seq", 6}};
  const json unchanged = {{"name", "Bed"}, {"active", false}, {"since", nullptr}, {"seq", 7}};
  EXPECT_EQ(state["events"], json({fall, unchanged})) << "the run before left the fall active";
  ASSERT_EQ(state["history"].size(), 3U) << "12 hours, and no declaration: " << state;
  EXPECT_TRUE(state["history"][0]["seq"] == 2 && state["history"][0]["run"] == "before") << state;
  EXPECT_EQ(state["history"][2], json({{"seq", 6},
                                       {"run", run},
                                       {"name", "Fall Detected"},
                                       {"active", false},
                                       {"time", fall["since"]},
                                       {"closed_at_start", true}}));
  const json watching = {{{"active", true}, {"time", utcText(m_now - 20min)}},
                         {{"active", false}, {"time", utcText(m_now - 10min)}}};
  EXPECT_EQ(state["watching"], watching) << "until the run before was last alive";

  change(bed, true);
  const std::string time = utcText(TimeStamp(std::chrono::seconds(g_date_time_to_unix(timeOfChanges().get())) + 250ms));
  EXPECT_EQ(next(early, "change"), json({{"seq", 8}, {"run", run}, {"name", "Bed"}, {"active", true}, {"time", time}}));
  HttpClient late = watch();
  EXPECT_EQ(next(late, "state")["events"][1]["since"], time);
  change(bed, false);
  EXPECT_EQ(next(early, "change")["seq"], 9);
  EXPECT_EQ(next(late, "change")["seq"], 9) << "what the state said is not said again";
  EXPECT_EQ(next(late, "heartbeat")["run"], run);
}

TEST_F(Events, DoesNotTellAgainWhatTheStateHasSaid) {
  const guint bed = declare(m_handler, "Bed");
  HttpClient viewer(m_port, asking().substr(0, asking().size() - 2));
  EXPECT_EQ(watch().receive(false).status, 200) << "whoever came before has been received";
  std::promise<void> busy, goes_on;
  m_server->invoke([&] {
    busy.set_value();
    goes_on.get_future().wait();
  });
  busy.get_future().wait();
  viewer.send("\r\n");
  change(bed, true);  // known when the viewer is welcomed, and to be told after that
  goes_on.set_value();
  EXPECT_EQ(next(viewer, "state")["seq"], 8);
  change(bed, false);
  EXPECT_EQ(next(viewer, "change")["seq"], 9);
}

TEST_F(Events, TellsWhenSomebodyIsWatchedAndWhenNoLonger) {
  HttpClient viewer = watch();
  const json run = next(viewer, "state")["run"];
  noteCompleteCycle(1, std::chrono::steady_clock::now());
  const std::string completed = utcText(ticker_clock::now() + 1ms);
  const json begun = next(viewer, "watching");
  EXPECT_TRUE(begun["active"] == true && begun["run"] == run && begun["seq"] == 7 && begun["time"] <= completed)
      << begun;
  const json ended = next(viewer, "watching");
  EXPECT_TRUE(ended["active"] == false && ended["seq"] == 8 && ended["time"] <= completed)
      << "it ended with the last cycle: " << ended;
  EXPECT_EQ(ended["why"], "analysis-stands-still");
  EXPECT_NE(wrong(viewer, "analysis-stands-still").find("nobody is being watched"), std::string::npos);
  noteCompleteCycle(2, std::chrono::steady_clock::now());
  EXPECT_EQ(next(viewer, "watching")["active"], true);
  m_handler.reset();
  EXPECT_EQ(next(viewer, "watching").dump().find("why"), std::string::npos) << "the program's end";
  EXPECT_EQ(EventJournal(m_folder.path()).past().watching.size(), 6U);
}

/// Pictures are analysed all the time.
TEST_F(Events, TellsByWhichTroubleTheCameraDoesNotSeeWhileItsPicturesAreAnalysed) {
  std::atomic<bool> is_over = false;
  std::thread cycles([&is_over] {
    for (std::uint64_t cycle = 1; !is_over; ++cycle) {
      noteCompleteCycle(cycle, std::chrono::steady_clock::now());
      std::this_thread::sleep_for(100ms);
    }
  });
  HttpClient viewer = watch();
  EXPECT_EQ(next(viewer, "watching")["active"], true);
  reportTrouble(Trouble::kLensCovered, "a cloth", m_now - 3s);
  const json covered = next(viewer, "watching");
  EXPECT_TRUE(covered["active"] == false && covered["why"] == "lens-covered") << covered;
  EXPECT_EQ(covered["time"], utcText(m_now - 3s)) << "since it is there";
  const guint fall = declare(m_handler, "Fall Detected");
  change(fall, true);
  EXPECT_EQ(next(viewer, "change")["active"], true) << "an alarm is told all the same";
  reportTrouble(Trouble::kCameraMoved, "and turned");
  endTrouble(Trouble::kLensCovered);
  EXPECT_EQ(next(viewer, "watching")["why"], "camera-moved") << "one after the other";
  EXPECT_EQ(next(watch(), "state")["watching"].back()["why"], "camera-moved");
  endTrouble(Trouble::kCameraMoved);
  EXPECT_EQ(next(viewer, "watching")["active"], true);
  is_over = true;
  cycles.join();
  m_handler.reset();
  const EventJournal journal(m_folder.path());
  std::string told;
  for (const EventRecord& one : journal.past().watching) told += one.why + (one.active ? "+ " : "- ");
  EXPECT_NE(told.find("+ lens-covered- camera-moved- + - "), std::string::npos) << told;
}

TEST_F(Events, TellsHowWellTheProgramWatches) {
  reportTrouble(Trouble::kLensAway, "no lens");
  reportTrouble(Trouble::kCameraAway, "no camera");
  noteCompleteCycle(41, std::chrono::steady_clock::now() - 1h, true);
  const Health health = currentHealth();
  tellParameters({{"DetectPatientOutOfBed", "true"}, {"DetectFallenPersons", "false"}, {"Detection3Active", "true"}});
  const json beat = next(watch(), "heartbeat");
  for (const Trouble trouble : {Trouble::kLensAway, Trouble::kCameraAway}) endTrouble(trouble);
  EXPECT_EQ(beat["cycle"], 41);
  EXPECT_TRUE(beat["picture_age_ms"] >= 3'600'000 && beat["cycle_age_ms"] < 3'600'000) << beat;
  EXPECT_TRUE(beat["delay_ms"] >= 3'600'000 && beat["picture_time"] == "capture") << beat;
  const json camera = {{"what", "camera-away"}, {"since", utcText(health.wrong.at(0).since)}, {"text", "no camera"}};
  const json lens = {{"what", "lens-away"}, {"since", utcText(health.wrong.at(1).since)}, {"text", "no lens"}};
  EXPECT_EQ(beat["wrong"], json({camera, lens}));
  EXPECT_EQ(beat["watched"], json({{"falls", false}, {"exits", true}, {"beds", 1}}));
}

/// While another program holds the journal, all of this run is told; once it is there, all before it too.
TEST_F(Events, TellsThatAlarmsAreNotRecordedAndThePastAsSoonAsItIsKnown) {
  m_handler.reset();
  std::optional<EventJournal> holder(m_folder.path());
  m_handler.reset(ax_event_handler_new());
  ASSERT_NE(m_handler, nullptr);
  change(declare(m_handler, "Bed"), true);
  HttpClient viewer = watch();
  const json state = next(viewer, "state");
  ASSERT_EQ(state["events"].size(), 1U) << state;
  EXPECT_EQ(state["events"][0]["active"], true);
  EXPECT_NE(wrong(viewer, "alarms-not-recorded").find("in use by another program"), std::string::npos);
  holder.reset();
  const json whole = next(viewer, "state");
  EXPECT_EQ(whole["history"].size(), 3U) << whole;
  EXPECT_EQ(whole["run"], state["run"]);
  EXPECT_NE(wrong(viewer, "alarms-not-recorded", false), "never");
}

/// A pager that waits, Ctrl-S: the reader of standard output has stopped.
TEST_F(Events, AReaderOfStandardOutputWhoHasStoppedKeepsNobodyWaiting) {
  const guint bed = declare(m_handler, "Bed");
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const int before = ::dup(STDOUT_FILENO);
  ::dup2(ends[1], STDOUT_FILENO);
  const std::string line(3'000, 'x');
  for (int i = 0; i < 1'500; ++i) std::printf("%d %s\n", i, line.c_str());
  change(bed, true);
  std::string shown;
  char block[65536];
  const auto readUntil = [&](const std::string& end) {
    while (shown.find(end) == std::string::npos) {
      const ssize_t got = ::read(ends[0], block, sizeof block);
      shown.append(block, got > 0 ? static_cast<size_t>(got) : 0);
    }
  };
  readUntil("\n900 ");
  change(bed, false);
  readUntil("  Bed  ended\n");
  ::dup2(before, STDOUT_FILENO);
  for (const int fd : {before, ends[0], ends[1]}) ::close(fd);
  EXPECT_NE(shown.find(" lines were not shown here: nobody read)\n"), std::string::npos);
}

TEST_F(Events, KeepsTheLatestOfALongHistory) {
  for (std::uint64_t number = 10; number < 40; ++number) {
    publishEvent({m_now, "changed", "Bed", "t", number % 2 == 0, false, number, "run", 0});
  }
  const json history = next(watch(), "state")["history"];
  ASSERT_EQ(history.size(), 20U);
  EXPECT_TRUE(history[0]["seq"] == 20 && history[19]["seq"] == 39) << history;
}

TEST_F(Events, BoundsItsViewers) {
  std::list<HttpClient> viewers;
  for (int i = 0; i < 3; ++i) {
    viewers.emplace_back(m_port, asking());
    EXPECT_EQ(viewers.back().receive(false).status, 200) << i;
  }
  EXPECT_EQ(watch().receive().status, 503);
  viewers.pop_back();
  const guint bed = declare(m_handler, "Bed");
  int status = 503;
  for (int attempt = 0; attempt < 1000 && status == 503; ++attempt) {
    change(bed, attempt % 2 == 0);  // writing to it is how a viewer's end shows
    status = watch().receive(false).status;
  }
  EXPECT_EQ(status, 200);
}

TEST_F(Events, DropsAViewerThatDoesNotRead) {
  HttpClient dead = watch();
  dead.receiveUntil("event: state");
  EventRecord record{ticker_clock::now(), "changed", std::string(200'000, 'x'), "t", true};
  for (record.number = 7; record.number < 60; ++record.number) publishEvent(record);
  EXPECT_TRUE(dead.seesEnd());
  resetEvents("another");  // without the long name
  EXPECT_EQ(next(watch(), "state")["run"], "another");
}

}  // namespace
