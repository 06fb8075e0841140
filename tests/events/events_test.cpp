#include <gtest/gtest.h>
#include <syslog.h>

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "events/event_manager.h"
#include "events/event_names.h"
#include "platform/clock/clock.h"
#include "tests/platform/state_folder.h"

namespace {

/// The publisher on the workstation's event system, with a journal and a log of its own.
class Events : public ::testing::Test {
 protected:
  Events() {
    openlog("events_test", 0, LOG_USER);  // the log moves into this test's folder
    ticker_clock::setReplayTime(TimeStamp(std::chrono::milliseconds(31500)));
    manager = std::make_unique<EventManager>();
    for (const char* name : kEvents) manager->addEvent(name);
  }
  ~Events() override { closelog(); }

  /// The journal once the run has ended, from the n-th line on: what happened to which event.
  std::vector<std::string> journal(int from) {
    manager.reset();
    std::vector<std::string> changes;
    std::istringstream lines(state.read("events.jsonl"));
    for (std::string line; std::getline(lines, line); --from) {
      const auto entry = nlohmann::json::parse(line);
      const std::string change = std::string(entry["kind"]) + " " + std::string(entry["event"]);
      if (from <= 0) changes.push_back(change + " " + entry["active"].dump() + " " + entry["t"].dump());
    }
    return changes;
  }
  bool logged(const std::string& text) { return state.read("system.log").find(text) != std::string::npos; }

  StateFolder state;
  std::unique_ptr<EventManager> manager;
};

using Changes = std::vector<std::string>;

TEST_F(Events, DeclaredUnderTheirTopicsThenOnlyChangesAreSent) {
  EXPECT_EQ(friendlyToKey("a-b_c 1"), "abc1");
  EXPECT_EQ(friendlyToKey("B\xc3\xa4tt \xff[Z]"), "BttZ");
  manager->sendEventStopped("Fall Detected");
  manager->sendEventStarted("Fall Detected");
  manager->sendEventStarted("Fall Detected");
  EXPECT_TRUE(manager->isEventStarted("Fall Detected") && !manager->isEventStarted("Patient Out of Bed"));
  manager->sendEventStopped("Fall Detected");
  manager->sendEventStopped("Fall Detected");
  EXPECT_EQ(journal(0), (Changes{"declared Patient Out of Bed false 31.5", "declared Fall Detected false 31.5",
                                 "changed Fall Detected true 31.5", "changed Fall Detected false 31.5",
                                 "undeclared Fall Detected false 31.5", "undeclared Patient Out of Bed false 31.5"}))
      << "undeclared in name order";
  const std::string text = state.read("events.jsonl");
  EXPECT_NE(text.find("tnsaxis:CameraApplicationPlatform/VelmorQuilnApplication/PatientOutofBed"), std::string::npos);
  EXPECT_TRUE(logged("info: Starting event Fall Detected") && logged("info: Stopping event Fall Detected"));
}

TEST_F(Events, FailuresAreLoggedAndTheStateFollowsTheRequest) {
  manager->sendEventStarted("Never Added");
  EXPECT_TRUE(logged("error: No declaration for event Never Added"));
  EXPECT_TRUE(manager->isEventStarted("Never Added"));
  EXPECT_EQ(manager->getDeclarationID("Never Added"), 0U);

  const std::string tooLong(5000, 'x');  // the journal refuses it
  manager->addEvent(tooLong);
  EXPECT_TRUE(logged("error: Failed to declare event xxx"));
  EXPECT_EQ(manager->getDeclarationID(tooLong), 0U);

  manager->registerEvent("Fall Detected", 77);
  manager->sendEventStarted("Fall Detected");
  EXPECT_TRUE(logged("error: Failed to send event Fall Detected activeValue=1"));
  manager->sendEventStarted("Fall Detected");  // a lost start is not sent again
  manager->sendEventStopped("Fall Detected");
  EXPECT_TRUE(logged("error: Failed to send event Fall Detected activeValue=0"));
  EXPECT_EQ(journal(2), Changes{"undeclared Patient Out of Bed false 31.5"});
  EXPECT_TRUE(logged("successfully undeclared event Patient Out of Bed : DeclarationID=1"));
  EXPECT_TRUE(logged("failed to undeclare event Fall Detected : DeclarationID=77"));
}

}  // namespace
