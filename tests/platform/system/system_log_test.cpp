#include <gtest/gtest.h>
#include <sys/resource.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <regex>
#include <sstream>
#include <vector>

#include "platform/clock/clock.h"
#include "tests/platform/state_folder.h"

namespace {

bool matches(const std::string& line, const std::string& pattern) {
  return std::regex_match(line, std::regex(pattern));
}

class SystemLogTest : public testing::Test {
 protected:
  void SetUp() override { openlog("velmor_test", LOG_PID | LOG_CONS, LOG_USER); }
  void TearDown() override { closelog(); }

  std::vector<std::string> lines() const {
    std::istringstream file(m_folder.read("system.log"));
    std::vector<std::string> found;
    for (std::string line; std::getline(file, line);) found.push_back(line);
    return found;
  }

  StateFolder m_folder;
};

TEST_F(SystemLogTest, EveryEntryIsOneLineWithTimeProcessAndLevel) {
  testing::internal::CaptureStderr();
  errno = ENOENT;
  const std::string format = "size %dx%d: %m\n";
  syslog(LOG_INFO, format.c_str(), 1280, 720);
  EXPECT_EQ(errno, ENOENT);
  syslog(LOG_WARNING, "two\nlines\x1b");
  syslog(LOG_USER | LOG_ERR, "Failed init_3D\n");
  syslog(LOG_ERR, "no camera");
  syslog(LOG_ERR, "Failed init_3D");
  syslog(LOG_CRIT, "%s", std::string(10'000, 'x').c_str());
  const std::string shown = testing::internal::GetCapturedStderr();
  const std::string head =
      R"([0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}\.[0-9]{3}Z velmor_test\[)" + std::to_string(getpid()) + R"(\] )";
  const auto found = lines();
  ASSERT_EQ(found.size(), 6u);
  EXPECT_TRUE(matches(found[0], (head + "info: size 1280x720: No such file or directory"))) << found[0];
  EXPECT_TRUE(matches(found[1], (head + "warning: two lines "))) << found[1];
  EXPECT_TRUE(matches(found[2], (head + "error: Failed init_3D"))) << found[2];
  EXPECT_TRUE(matches(found[4], (head + "error: Failed init_3D"))) << found[4];
  EXPECT_GT(found[5].size(), 4'000u);
  EXPECT_TRUE(shown.starts_with("velmor_test: Failed init_3D\nvelmor_test: no camera\nvelmor_test: xxx"))
      << shown.substr(0, 200);
}

TEST_F(SystemLogTest, OnlyALiveRunInATerminalShowsNotices) {
  const auto shownWith = [](const char* output) {
    ::setenv("VELMOR_OUTPUT", output, 1);
    testing::internal::CaptureStdout();
    errno = ENOENT;
    syslog(LOG_INFO, "no notice");
    syslog(LOG_NOTICE, "status %d  %s\n", 502, "Patient out of bed");
    syslog(LOG_WARNING, "no notice");
    EXPECT_EQ(errno, ENOENT);
    ::unsetenv("VELMOR_OUTPUT");
    return testing::internal::GetCapturedStdout();
  };
  const std::string shown = shownWith("text");
  EXPECT_TRUE(matches(shown, "[0-2][0-9]:[0-5][0-9]:[0-6][0-9]  status 502  Patient out of bed\n")) << shown;
  EXPECT_EQ(shownWith("json"), "");
  ticker_clock::setReplayTime(TimeStamp());
  EXPECT_EQ(shownWith("text"), "") << "a replay";
  EXPECT_EQ(lines().size(), 9U);
}

TEST_F(SystemLogTest, AFullFileMakesRoomOnce) {
  m_folder.write("system.log", "");
  std::filesystem::resize_file(m_folder / "system.log", 10'000'000);
  syslog(LOG_INFO, "first of the new file");
  syslog(LOG_INFO, "second");
  EXPECT_EQ(lines().size(), 2u);
  EXPECT_EQ(std::filesystem::file_size(m_folder / "system.log.1"), 10'000'000u);
}

/// A limit on the size of files is a full disk.
TEST_F(SystemLogTest, ReturnsToAFileThatHadNoRoomAndSaysWhatIsMissingInIt) {
  m_folder.write("system.log", std::string(9'999, 'x') + "\n");
  rlimit unlimited{};
  ::getrlimit(RLIMIT_FSIZE, &unlimited);
  const rlimit full{10'020, unlimited.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &full);
  testing::internal::CaptureStderr();
  errno = ENOENT;
  syslog(LOG_INFO, "one");
  syslog(LOG_ERR, "two");
  const std::string shown = testing::internal::GetCapturedStderr();
  ::setrlimit(RLIMIT_FSIZE, &unlimited);
  EXPECT_EQ(shown, "velmor_test: cannot write " + (m_folder / "system.log").string() +
                       ": File too large; the system log goes to standard error\n"
                       "velmor_test: one\nvelmor_test: two\n");
  EXPECT_EQ(lines().size(), 1u) << "and no half a line";
  testing::internal::CaptureStderr();
  int tries = 0;
  for (; tries < 6'000 && lines().size() < 3; ++tries) {
    syslog(LOG_DEBUG, "%d", tries);
    usleep(10'000);
  }
  testing::internal::GetCapturedStderr();
  const auto found = lines();
  ASSERT_GE(found.size(), 3u);
  const std::string lost = std::to_string(tries + 1);
  EXPECT_TRUE(found[1].ends_with(lost + " lines before this one are missing here: File too large")) << found[1];
  EXPECT_TRUE(found[2].ends_with(" debug: " + std::to_string(tries - 1))) << found[2];
}

TEST_F(SystemLogTest, WithoutAFileEverythingGoesToStandardError) {
  std::filesystem::create_directory(m_folder / "system.log");
  testing::internal::CaptureStderr();
  syslog(LOG_INFO, "one");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "velmor_test: cannot write " + (m_folder / "system.log").string() +
                ": Is a directory; the system log goes to standard error\nvelmor_test: one\n");
}

}  // namespace
