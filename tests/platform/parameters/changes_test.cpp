#include "platform/workstation/parameters/changes.h"

#include <axparameter.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "platform/workstation/parameters/parameter_batch.h"
#include "tests/platform/conditions.h"
#include "tests/platform/disk_faults.h"
#include "tests/platform/full_disk.h"
#include "tests/platform/state_folder.h"

using namespace std::chrono_literals;
using nlohmann::json;
using workstation::ChangeJournal;

namespace {

json known(const ChangeJournal& journal, std::size_t limit = 1000) { return json::parse(journal.document(limit)); }

/// "by key from>to", the newest first; what is not stored begins with "!".
std::vector<std::string> told(const json& document) {
  std::vector<std::string> lines;
  for (const json& one : document["changes"]) {
    lines.push_back((one["stored"] ? "" : "!") + one["by"].get<std::string>() + " " + one["key"].get<std::string>() +
                    " " + one["from"].get<std::string>() + ">" + one["to"].get<std::string>());
  }
  return lines;
}

using Lines = std::vector<std::string>;

class Changes : public testing::Test {
 protected:
  ~Changes() override { disk_fault = Fault::kNone; }
  /// Waits for the disk.
  bool isStored(const ChangeJournal& journal) const {
    return comes([&] {
      const json document = known(journal);
      const json& changes = document["changes"];
      return document["trouble"].is_null() &&
             std::all_of(changes.begin(), changes.end(), [](const json& one) { return one["stored"] == true; });
    });
  }
  std::size_t linesIn(const std::string& file) const {
    const std::string text = m_folder.read(file);
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  }

  StateFolder m_folder;
};

TEST_F(Changes, AreToldNewestFirstAndOutliveARunThatWasKilled) {
  {
    ChangeJournal journal(m_folder.path());
    EXPECT_EQ(known(journal)["changes"], json::array());
    journal.note("Anna", "Sensitivity", "0.38", "0.5");
    journal.note("", "Name \"q\"", "a\nb", "\xff");
    ASSERT_TRUE(isStored(journal));
    EXPECT_EQ(told(known(journal)), (Lines{" Name \"q\" a\nb>\xEF\xBF\xBD", "Anna Sensitivity 0.38>0.5"}));
    EXPECT_EQ(told(known(journal, 1)).size(), 1U);
    const std::string time = known(journal)["changes"][0]["time"];
    EXPECT_TRUE(time.size() == 24 && time[10] == 'T' && time[23] == 'Z') << time;
  }
  m_folder.write("changes.jsonl", m_folder.read("changes.jsonl") + "garbage\n[]\n{\"key\": 1}\n" + R"({"time": "torn)");
  ChangeJournal next(m_folder.path());
  next.note("Bert", "Sensitivity", "0.5", "0.6");
  ASSERT_TRUE(isStored(next));
  ASSERT_TRUE(comes([&] { return known(next)["changes"].size() == 3; }));
  EXPECT_EQ(told(known(next))[0], "Bert Sensitivity 0.5>0.6");
  EXPECT_EQ(told(known(next))[2], "Anna Sensitivity 0.38>0.5");
  const ChangeJournal third(m_folder.path());
  EXPECT_TRUE(comes([&] { return known(third)["changes"].size() == 3; })) << "the torn line took none with it";
}

TEST_F(Changes, FillNoDisk) {
  ChangeJournal journal(m_folder.path());
  const std::string large(20000, 'x');
  for (int i = 0; i < 32; ++i) journal.note("", std::to_string(i), large, large);
  ASSERT_TRUE(isStored(journal));
  for (int i = 32; i < 64; ++i) journal.note("", std::to_string(i), large, large);
  ASSERT_TRUE(isStored(journal));
  EXPECT_LT(std::filesystem::file_size(m_folder / "changes.jsonl"), 3U << 19);
  EXPECT_LT(std::filesystem::file_size(m_folder / "changes.jsonl.1"), 3U << 19);
  const ChangeJournal next(m_folder.path());
  const std::size_t kept = linesIn("changes.jsonl") + linesIn("changes.jsonl.1");
  EXPECT_GT(kept, 25U);
  ASSERT_TRUE(comes([&] { return known(next)["changes"].size() == kept; }));
  EXPECT_EQ(known(next, 1)["changes"][0]["key"], "63");
}

TEST_F(Changes, WaitForADiskThatFailsAndAreWrittenOnce) {
  ChangeJournal journal(m_folder.path());
  journal.note("", "first", "a", "b");
  ASSERT_TRUE(isStored(journal));
  const auto expectTold = [&](const char* key, const std::string& why) {
    journal.note("Anna", key, "a", "b");
    EXPECT_EQ(told(known(journal))[0], std::string("!Anna ") + key + " a>b") << "at once, and that it is not stored";
    EXPECT_TRUE(comes([&] { return known(journal)["trouble"].dump().find(why) != std::string::npos; })) << why;
    EXPECT_EQ(told(known(journal)).back(), " first a>b") << "what is stored is told as such";
  };
  {
    const FullDisk full(std::filesystem::file_size(m_folder / "changes.jsonl") + 10);
    expectTold("second", "File too large");
  }
  ASSERT_TRUE(isStored(journal));
  disk_fault = Fault::kSyncFails;
  expectTold("third", "cannot be written");
  disk_fault = Fault::kNone;
  ASSERT_TRUE(isStored(journal));
  disk_fault = Fault::kHangs;
  journal.note("", "fourth", "a", "b");
  EXPECT_EQ(told(known(journal))[0], "! fourth a>b") << "nobody waits for it";
  disk_fault = Fault::kNone;
  ASSERT_TRUE(isStored(journal));
  EXPECT_EQ(linesIn("changes.jsonl"), 4U) << m_folder.read("changes.jsonl");
}

TEST_F(Changes, OfParametersAreNotedWithWhoHasSetThem) {
  m_folder.write("manifest.json", R"({"parameters": [{"name": "Sensitivity", "default": "0.38"},
                                                     {"name": "Name", "default": ""}]})");
  const auto open = [this](const std::string& parameters) {
    static int described = 0;
    const std::string file = "camera" + std::to_string(described++) + ".json";  // a process reads each once
    m_folder.write(file, R"({"source": "x.mp4", "parameters": {)" + parameters + "}}");
    ::setenv("VELMOR_CAMERA", (m_folder / file).c_str(), 1);
    return std::unique_ptr<AXParameter, decltype(&ax_parameter_free)>(ax_parameter_new("velmor_care", nullptr),
                                                                      &ax_parameter_free);
  };
  const auto changes = [] {
    Lines lines = told(json::parse(workstation::changesDocument(100)));
    for (std::string& line : lines) line.erase(0, line.find_first_not_of('!'));
    return lines;
  };
  {
    const auto store = open("");
    const auto set = [&](const char* name, const char* value) {
      return ax_parameter_set(store.get(), name, value, TRUE, nullptr);
    };
    EXPECT_EQ(changes(), Lines()) << "a first start changes nothing";
    {
      workstation::ParameterBatch batch("Anna");
      set("Sensitivity", "0.380000");
      set("Name", "bed");
      set("Name", "bed");
      EXPECT_TRUE(batch.finish());
    }
    EXPECT_EQ(changes(), (Lines{"Anna Name >bed"})) << "0.380000 is what 0.38 was";
    set("Sensitivity", "0.5");
    disk_fault = Fault::kSyncFails;
    EXPECT_EQ(set("Name", "lost"), FALSE);
    disk_fault = Fault::kNone;
  }
  const auto store = open(R"("Sensitivity": "0.7")");
  EXPECT_EQ(changes(), (Lines{" Sensitivity 0.5>0.7", " Sensitivity 0.380000>0.5", "Anna Name >bed"}))
      << "what a start changes is noted, what was refused is not";
}

}  // namespace
