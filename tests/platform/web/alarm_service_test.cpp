#include "platform/workstation/web/alarms/alarm_service.h"

#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>

#include "platform/workstation/events/event_hub.h"
#include "platform/workstation/web/camera_service.h"
#include "tests/platform/conditions.h"
#include "tests/platform/disk_faults.h"
#include "tests/platform/web/http_serving.h"

namespace {

using namespace workstation;
using namespace std::chrono_literals;
using nlohmann::json;

constexpr const char* kAlarms = "/platform/alarms";
constexpr const char* kCalls = "/platform/calls";

/// The addresses of alarms, with a page's requests.
class AlarmServing : public HttpServing {
 protected:
  AlarmServing() {
    resetEvents("run");
    m_desk = AlarmDesk::open();
    m_post = std::make_unique<PostOffice>(m_desk, std::make_shared<Cursors>());
    m_server = std::make_unique<HttpServer>(m_settings);
    m_folder.write("camera.json", R"({"source": "film.mp4"})");
    addCamera(*m_server, {});
    AlarmServiceSettings settings;
    settings.feed.viewers = 3;
    settings.patience = 3s;
    settings.note = [this](const std::string& by, const std::string& from, const std::string& to) {
      const std::scoped_lock lock(m_mutex);
      m_notes += by + from + " -> " + to;
    };
    m_service.emplace(*m_server, *m_desk, *m_post, settings);
    m_port = m_server->listen(parseListenAddress("127.0.0.1:0"));
  }
  ~AlarmServing() override {
    disk_fault = Fault::kNone;
    m_server->stop();
    m_service.reset();
    m_post.reset();
    m_desk->close();
  }

  static void change(std::uint64_t seq, bool active) {
    publishEvent({ticker_clock::now(), "changed", "Fall Detected", "t", active, false, seq, "run", 0});
  }
  json get(const std::string& path) const { return json::parse(ask("GET", path).body, nullptr, false); }
  HttpReply post(const std::string& path, const std::string& form) const {
    return ask("POST", path, std::string(kFromPage) + "Content-Type: application/x-www-form-urlencoded\r\n", form);
  }
  HttpReply answer(const std::string& form) const { return post(kAlarms, "action=answer&id=run-1&" + form); }
  HttpClient follow() const { return HttpClient(m_port, requestText(m_port, "GET", "/platform/alarms/feed")); }
  static json next(HttpClient& client, const std::string& kind) {
    client.receiveUntil("event: " + kind + "\ndata: ");
    return json::parse(client.receiveUntil("\n\n"), nullptr, false);
  }
  std::string notes() const {
    const std::scoped_lock lock(m_mutex);
    return m_notes;
  }

  std::shared_ptr<AlarmDesk> m_desk;
  std::unique_ptr<PostOffice> m_post;
  std::optional<AlarmService> m_service;
  mutable std::mutex m_mutex;
  std::string m_notes;
};

TEST_F(AlarmServing, TellsAllAtFirstAndThenEachChangeAndTakesAnswers) {
  HttpClient early = follow();
  EXPECT_TRUE(next(early, "alarms")["alarms"].empty());
  change(1, true);
  const json raised = next(early, "alarm");
  EXPECT_TRUE(raised["id"] == "run-1" && raised["state"] == "calling" && raised["level"] == 1) << raised;
  EXPECT_TRUE(raised["kind"] == "fall" && raised["ended"].is_null() && raised["next"].is_string()) << raised;
  const HttpReply coming = answer("what=coming");
  EXPECT_EQ(coming.status, 200);
  const json now = json::parse(coming.body);
  EXPECT_TRUE(now["stored"] == true && now["state"] == "coming") << now;
  EXPECT_EQ(next(early, "alarm")["answers"][0]["stored"], false) << "told before it is on disk, as such";
  EXPECT_EQ(next(early, "alarm")["state"], "coming");
  HttpClient late = follow();
  EXPECT_EQ(next(late, "alarms")["alarms"][0]["state"], "coming");
  EXPECT_EQ(answer("what=false_alarm&reason=a+chair").status, 200);
  EXPECT_EQ(next(late, "alarm")["answers"][1]["reason"], "a chair") << "what the first message said is not said again";
  EXPECT_EQ(next(late, "alarm")["state"], "closed");
  const HttpReply too_late = answer("what=seen");
  EXPECT_EQ(too_late.status, 409);
  EXPECT_EQ(too_late.body, "It is closed already: false_alarm by somebody.\n");
  EXPECT_EQ(get(kAlarms)["alarms"][0]["answers"].size(), 2U);
}

TEST_F(AlarmServing, TellsPausesAndTests) {
  HttpClient page = follow();
  EXPECT_TRUE(next(page, "alarms")["pause"].is_null());
  const HttpReply paused = post(kAlarms, "action=pause&minutes=5&reason=washing");
  EXPECT_EQ(paused.status, 200);
  EXPECT_EQ(json::parse(paused.body)["pause"]["reason"], "washing");
  const json pause = next(page, "pause");
  EXPECT_LT(pause["since"], pause["until"]);
  change(1, true);
  const json held = next(page, "alarm");
  EXPECT_TRUE(held["state"] == "held" && held["held_why"] == "pause" && held["next"].is_null()) << held;
  EXPECT_EQ(post(kAlarms, "action=unpause").status, 200);
  EXPECT_EQ(next(page, "pause"), json());
  EXPECT_EQ(next(page, "alarm")["state"], "calling");
  EXPECT_EQ(post(kAlarms, "action=unpause").status, 409);
  EXPECT_EQ(post(kAlarms, "action=test").status, 200);
  const json test = next(page, "test");
  EXPECT_EQ(get(kAlarms)["called"]["test"], test);
  EXPECT_EQ(post(kAlarms, "action=test").status, 409);
}

TEST_F(AlarmServing, AnAnswerThatIsNotOnDiskSaysSoUntilItIs) {
  change(1, true);
  disk_fault = Fault::kAlarmsHang;
  HttpClient page = follow();
  EXPECT_EQ(next(page, "alarms")["alarms"].size(), 1U);
  const HttpReply reply = answer("what=resolved");
  EXPECT_EQ(reply.status, 202);
  const json pending = json::parse(reply.body);
  EXPECT_TRUE(pending["stored"] == false && pending["state"] == "calling") << pending;
  HttpClient gone(m_port, requestText(m_port, "POST", kAlarms,
                                      std::string(kFromPage) + "Content-Type: application/x-www-form-urlencoded\r\n",
                                      "action=answer&id=run-1&what=seen"));
  gone.leave();
  EXPECT_TRUE(comes([] { return !textOf(Trouble::kAlarmsNotStored).empty(); }));
  disk_fault = Fault::kNone;
  json told = next(page, "alarm");
  while (told.is_object() && told["state"] != "closed") told = next(page, "alarm");
  EXPECT_EQ(told["answers"][0]["stored"], true) << told;
}

TEST_F(AlarmServing, WhoWaitsForADiskThatHangsHoldsUpNoAlarm) {
  HttpClient page = follow();
  EXPECT_TRUE(next(page, "alarms")["alarms"].empty());
  disk_fault = Fault::kHangs;
  HttpClient file(m_port, requestText(m_port, "GET", kPage));
  HttpClient lens(m_port, requestText(m_port, "POST", "/platform/camera", kFormFromPage,
                                      "action=optics&product_name=AXIS+P3265-LV&focal_length_um=3700"));
  EXPECT_TRUE(file.isOpen(200ms) && lens.isOpen(200ms));
  change(1, true);
  EXPECT_EQ(next(page, "alarm")["id"], "run-1");
  disk_fault = Fault::kNone;
  EXPECT_EQ(file.receive().body, "<title>page</title>");
  EXPECT_EQ(json::parse(lens.receive().body)["optics"]["chosen"]["product_name"], "AXIS P3265-LV");
}

TEST_F(AlarmServing, RefusesWhatCannotBeInOneLine) {
  change(1, true);
  const std::pair<const char*, int> refused[] = {{"action=answer&id=run-1&what=gone", 400},
                                                 {"action=answer&id=run-1", 400},
                                                 {"action=answer&id=run-1&what=false_alarm&reason=+", 400},
                                                 {"action=answer&id=run-2&what=seen", 404},
                                                 {"action=answer&what=seen", 404},
                                                 {"action=pause&minutes=4", 400},
                                                 {"action=pause&minutes=61", 400},
                                                 {"action=pause&minutes=99999999999", 400},
                                                 {"action=pause&minutes=5.5", 400},
                                                 {"action=pause", 400},
                                                 {"action=shout", 400},
                                                 {"a=1", 400}};
  for (const auto& [form, status] : refused) {
    const HttpReply reply = post(kAlarms, form);
    EXPECT_EQ(reply.status, status) << form << ": " << reply.body;
    EXPECT_EQ(reply.body.find('\n'), reply.body.size() - 1) << reply.body;
  }
  EXPECT_EQ(ask("POST", "/platform/alarms?action=test", kFromPage).status, 400) << "a form comes in the body";
  EXPECT_EQ(ask("POST", kAlarms, "", "").status, 403) << "from a foreign page";
  EXPECT_EQ(get(kAlarms)["alarms"][0]["answers"].size(), 0U);
  std::list<HttpClient> pages;
  for (int i = 0; i < 3; ++i) {
    pages.emplace_back(m_port, requestText(m_port, "GET", "/platform/alarms/feed"));
    EXPECT_EQ(pages.back().receive(false).status, 200);
  }
  EXPECT_EQ(follow().receive().status, 503);
}

TEST_F(AlarmServing, WhatIsSetForCallsShowsNoSecretAndCountsOnceItIsStored) {
  const std::string defaults = ask("GET", kCalls).body;
  HttpClient page = follow();
  const std::string set = R"({"levels":[[{"kind":"people"}],[{"kind":"webhook","name":"w","url":"http://127.0.0.1:9/",)"
                          R"("secret":"0123456789abcdef"}]]})";
  const GLibPtr<gchar> escaped(g_uri_escape_string(set.c_str(), nullptr, TRUE));
  const HttpReply stored = post(kCalls, std::string("document=") + escaped.get());
  EXPECT_EQ(stored.status, 200) << stored.body;
  EXPECT_EQ(json::parse(stored.body)["levels"][1][0],
            json({{"kind", "webhook"}, {"name", "w"}, {"url", "http://127.0.0.1:9/"}, {"secret_set", true}}));
  EXPECT_EQ(ask("GET", kCalls).body, stored.body);
  EXPECT_EQ(notes(), defaults + " -> " + stored.body);
  EXPECT_TRUE(comes([this] { return get(kAlarms)["called"]["receivers"].size() == 1; }));
  json told = next(page, "receivers");
  if (told.empty()) told = next(page, "receivers");
  EXPECT_EQ(told[0]["name"], "w") << "a page that is open learns of it as well";
  for (const char* path : {kAlarms, kCalls}) EXPECT_EQ(ask("GET", path).body.find("0123456789"), std::string::npos);
  const HttpReply wrong = post(kCalls, "document=%7B%22events%22%3A1%7D");
  EXPECT_EQ(std::to_string(wrong.status) + wrong.body, "400events is an object\n");
  std::filesystem::remove(m_folder / "calls.json");
  std::filesystem::create_directory(m_folder / "calls.json");
  const HttpReply failed = post(kCalls, "document=%7B%7D");
  EXPECT_EQ(failed.status, 500) << failed.body;
  EXPECT_EQ(ask("GET", kCalls).body, stored.body) << "what is not stored does not count";
  EXPECT_EQ(notes(), defaults + " -> " + stored.body);
}

}  // namespace
