#include "platform/workstation/camera/lens_service.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>

#include "platform/workstation/launcher/child_processes.h"
#include "tests/platform/conditions.h"
#include "tests/platform/state_folder.h"

namespace {

std::string askForFocalLength() {
  FILE* pipe =
      popen("busctl --verbose get-property com.axis.Optics2 /com/axis/Optics0 com.axis.Iris1 FocalLength 2>&1", "r");
  std::array<char, 128> output{};
  output.at(fread(output.data(), 1, output.size() - 1, pipe)) = '\0';
  pclose(pipe);
  return output.data();
}

/// Without its program the daemon does not come back, so that what holds meanwhile can be seen.
TEST(LensServiceDeathTest, ADaemonThatDiesIsATroubleAndComesBackAtTheSameAddress) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        const StateFolder folder;
        const auto provide = [&folder](const char* command) {
          std::filesystem::create_symlink(std::string("/usr/bin/") + command, folder / command);
        };
        provide("busctl");
        provide("dbus-daemon");
        setenv("PATH", folder.path().c_str(), 1);
        const bool started = workstation::startLensService(3700) && workstation::startLensService(2800);
        std::string seen = started ? askForFocalLength() : "not started";
        for (int round = 0; round < 2; ++round) {
          std::filesystem::remove(folder / "dbus-daemon");
          for (const auto& child : workstation::childrenOf(getpid())) kill(child.id, SIGKILL);
          comes([] { return !workstation::currentHealth().wrong.empty(); });
          seen += askForFocalLength().starts_with("UINT32") ? "still there, " : "away, ";
          provide("dbus-daemon");
          comes([] { return workstation::currentHealth().wrong.empty(); });
          seen += askForFocalLength();
        }
        std::cerr << seen << "end";
        std::_Exit(0);
      },
      testing::ExitedWithCode(0), "UINT32 3700;\naway, UINT32 3700;\naway, UINT32 3700;\nend$");
}

TEST(LensServiceDeathTest, AMissingDaemonIsSaidOnce) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        const StateFolder folder;
        setenv("PATH", folder.path().c_str(), 1);
        std::_Exit(workstation::startLensService(3700) || workstation::startLensService(3700) ? 1 : 0);
      },
      testing::ExitedWithCode(0),
      "^[^\n]*the camera's lens cannot be asked for its focal length: dbus-daemon is missing; install the package "
      "dbus-daemon\n$");
}

/// The daemon holds the pipe's end that the killed process leaves behind, until it dies itself.
TEST(LensService, TheDaemonDiesWithAKilledProcessAndLeavesNoSocketBehind) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  const pid_t child = fork();
  if (child == 0) {
    const bool served = workstation::startLensService(3700) && askForFocalLength() == "UINT32 3700;\n";
    const char* served_at = served ? getenv("DBUS_SYSTEM_BUS_ADDRESS") : nullptr;
    const std::string address = served_at != nullptr ? served_at : "none";
    if (write(ends[1], address.data(), address.size()) < 0) std::_Exit(1);
    for (;;) pause();
  }
  close(ends[1]);
  std::array<char, 256> answer{};
  ASSERT_GT(read(ends[0], answer.data(), answer.size() - 1), 0);
  const std::string address = answer.data();
  EXPECT_TRUE(address.starts_with("unix:")) << address;
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  pollfd ended{ends[0], POLLIN, 0};
  EXPECT_EQ(poll(&ended, 1, 30'000), 1) << "dbus-daemon is still there";
  close(ends[0]);
  if (const auto path = address.find("path="); path != std::string::npos) {
    EXPECT_FALSE(std::filesystem::exists(address.substr(path + 5, address.find(',') - path - 5))) << address;
  }
}

}  // namespace
