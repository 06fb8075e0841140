#include "geometry/shell_command.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;

/// The command and the pipe that it writes into. It leads a process group of its own, with which it is ended.
class Shell {
 public:
  explicit Shell(const char* command) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
      throw std::runtime_error("popen() failed!");
    }
    m_output = ends[0];
    const bool started = spawn(command, ends[1]);
    close(ends[1]);
    if (!started) {
      close(m_output);
      throw std::runtime_error("popen() failed!");
    }
  }
  ~Shell() {
    close(m_output);
    kill(-m_process, SIGKILL);
    while (waitpid(m_process, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  Shell(const Shell&) = delete;
  Shell& operator=(const Shell&) = delete;

  /// What comes next, nothing at the end.
  [[nodiscard]] std::string read(Clock::time_point deadline) const {
    std::array<char, 128> chunk{};
    for (;;) {
      const auto rest = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      pollfd ready{m_output, POLLIN, 0};
      const int count = poll(&ready, 1, static_cast<int>(std::max<std::int64_t>(0, rest.count())));
      if (count == 0) {
        throw std::runtime_error("there is no answer in time");
      }
      const ssize_t size = count < 0 ? -1 : ::read(m_output, chunk.data(), chunk.size());
      if (size >= 0) {
        return {chunk.data(), static_cast<std::size_t>(size)};
      }
      if (errno != EINTR) {
        throw std::runtime_error("its output cannot be read");
      }
    }
  }

 private:
  bool spawn(const char* command, int output) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    std::array<std::string, 3> words{"sh", "-c", command};
    const std::array<char*, 4> arguments{words[0].data(), words[1].data(), words[2].data(), nullptr};
    const int problem = posix_spawn(&m_process, "/bin/sh", &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return problem == 0;
  }

  int m_output = -1;
  pid_t m_process = 0;
};

}  // namespace

std::string outputOf(const char* command, std::chrono::milliseconds patience) {
  const auto deadline = Clock::now() + patience;
  const Shell shell(command);
  std::string output;
  for (std::string chunk = shell.read(deadline); !chunk.empty(); chunk = shell.read(deadline)) {
    output += chunk;
  }
  return output;
}
