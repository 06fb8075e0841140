// Stories whose traces are stored here: the rules decide the same again, and tell the same.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "tests/reference/traced_cycles.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const fs::path kStories = SOURCE_DIRECTORY "/tests/stories";
constexpr const char* kTrace = ".trace.jsonl.xz";
constexpr const char* kEvents = ".events.txt";

std::string contents(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// Of the files that end so: "exits/toilet_trip".
std::set<std::string> storiesWith(const std::string& end) {
  std::set<std::string> stories;
  for (const auto& entry : fs::recursive_directory_iterator(kStories)) {
    const std::string name = fs::relative(entry.path(), kStories);
    if (name.ends_with(end)) stories.insert(name.substr(0, name.size() - end.size()));
  }
  return stories;
}

std::set<std::string> listedStories() {
  std::set<std::string> stories;
  std::ifstream list(kStories / "quick_set.txt");
  for (std::string line; std::getline(list, line);) {
    if (!line.empty() && line.front() != '#') stories.insert(line);
  }
  return stories;
}

TEST(Stories, EachThatIsListedHasItsTraceAndItsEventsAndTogetherTheyAreSmall) {
  const std::set<std::string> listed = listedStories();
  EXPECT_FALSE(listed.empty());
  EXPECT_EQ(storiesWith(kTrace), listed) << "tests/stories/renew.sh makes them";
  EXPECT_EQ(storiesWith(kEvents), listed) << "tests/stories/renew.sh makes them";
  constexpr std::uintmax_t kMostBytes = 5'000'000;
  std::uintmax_t bytes = 0;
  for (const std::string& story : storiesWith(kTrace)) bytes += fs::file_size(kStories / (story + kTrace));
  EXPECT_LE(bytes, kMostBytes);
}

class Story : public testing::TestWithParam<std::string> {
 protected:
  Story() {
    std::string name = (fs::temp_directory_path() / "velmor-story-XXXXXX").string();
    m_folder = ::mkdtemp(name.data());
  }
  ~Story() override { fs::remove_all(m_folder); }

  /// Runs it in the folder; what it writes on standard output.
  std::string run(const std::string& command) const {
    const std::string in_folder = "cd '" + m_folder.string() + "' && { " + command + "; } >output 2>errors";
    const int status = std::system(("export VELMOR_SOURCE_DIR='" SOURCE_DIRECTORY "' && " + in_folder).c_str());
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command << ": " << contents(m_folder / "errors");
    return contents(m_folder / "output");
  }

  fs::path m_folder;
};

/// Of another build the last digit of a number that was computed may be another.
bool isSame(const json& one, const json& other) {
  constexpr double kDigits = 1e-4;
  if (one.is_number_float() && other.is_number()) {
    const double a = one.get<double>();
    const double b = other.get<double>();
    return std::abs(a - b) <= kDigits * std::max({1.0, std::abs(a), std::abs(b)});
  }
  if (!one.is_structured() || one.type() != other.type()) return one == other;
  if (one.size() != other.size()) return false;
  if (one.is_array()) return std::equal(one.begin(), one.end(), other.begin(), isSame);
  return std::all_of(one.items().begin(), one.items().end(), [&other](const auto& item) {
    return other.contains(item.key()) && isSame(item.value(), other[item.key()]);
  });
}

/// "41.5 s: [{"op": "replace", "path": "/people/0/off", "value": 220.1}]"; a cycle that is missing is null.
std::string differenceOf(const json& stored, const json& now) {
  return (stored.is_null() ? now : stored)["t"].dump() + " s: " + json::diff(stored, now).dump();
}

TEST_P(Story, TheRulesDecideTheSameOnWhatTheNetworksSaw) {
  run("xz -dc '" + (kStories / (GetParam() + kTrace)).string() + "' >stored.jsonl");
  run(PROGRAM_DIRECTORY "/velmor_run replay stored.jsonl --trace now.jsonl");
  const std::vector<json> stored = cyclesOf(m_folder / "stored.jsonl");
  const std::vector<json> now = cyclesOf(m_folder / "now.jsonl");
  EXPECT_FALSE(stored.empty());
  const auto [was, is] = std::mismatch(stored.begin(), stored.end(), now.begin(), now.end(), isSame);
  EXPECT_TRUE(was == stored.end() && is == now.end())
      << "first at " << differenceOf(was == stored.end() ? json() : *was, is == now.end() ? json() : *is);
  const std::string told = run(PROGRAM_DIRECTORY "/velmor_run explain now.jsonl");
  EXPECT_EQ(contents(kStories / (GetParam() + kEvents)), told.substr(told.find('\n') + 1))
      << "if that is meant: tests/stories/renew.sh --rules, and look at what differs";
}

INSTANTIATE_TEST_SUITE_P(QuickSet, Story, testing::ValuesIn(storiesWith(kTrace)), [](const auto& story) {
  std::string name = story.param;
  std::replace_if(
      name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
  return name;
});

}  // namespace
