#include "platform/workstation/launcher/started_program.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <utility>
#include <vector>

namespace workstation {
namespace {

constexpr int kSignalBase = 128;
constexpr std::array kPassedOn{SIGINT, SIGTERM, SIGHUP};

/// Those that have been started and have not ended; 0 is a free place. Read by the signals' handler.
std::array<std::atomic<pid_t>, 256> children{};
static_assert(std::atomic<pid_t>::is_always_lock_free);

void replaceChild(pid_t from, pid_t to) {
  for (auto& child : children) {
    if (pid_t expected = from; child.compare_exchange_strong(expected, to)) return;
  }
}

/// Whatever asks us to end asks the programs to end in order.
void passOn(int signal) {
  const int caller_errno = errno;
  bool is_passed_on = false;
  for (const auto& child : children) {
    const pid_t id = child;
    if (id > 0) is_passed_on = ::kill(id, SIGTERM) == 0 || is_passed_on;
  }
  if (!is_passed_on) _exit(kSignalBase + signal);
  errno = caller_errno;
}

/// Our own environment with the plan's variables in the place of all that begin with VELMOR_.
std::vector<std::string> environmentFor(const LaunchPlan& plan) {
  std::vector<std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (std::strncmp(*variable, "VELMOR_", std::strlen("VELMOR_")) != 0) {
      variables.emplace_back(*variable);
    }
  }
  for (const auto& [name, value] : plan.environment) {
    variables.push_back(name);
    variables.back().append("=").append(value);
  }
  return variables;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  std::transform(texts.begin(), texts.end(), std::back_inserter(pointers),
                 [](std::string& text) { return text.data(); });
  pointers.push_back(nullptr);
  return pointers;
}

sigset_t passedOnSignals() {
  sigset_t set;
  sigemptyset(&set);
  std::for_each(kPassedOn.begin(), kPassedOn.end(), [&set](int signal) { sigaddset(&set, signal); });
  return set;
}

/// In the child: only calls that are safe between fork and exec in a process with threads.
[[noreturn]] void become(const char* program, char* const* arguments, char* const* environment,
                         std::array<int, 2> inherited, int output, pid_t launcher, const sigset_t& mask) {
  ::setpgid(0, 0);
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != launcher) {
    _exit(1);
  }
  for (const int signal : kPassedOn) {
    ::signal(signal, SIG_DFL);
  }
  ::sigprocmask(SIG_SETMASK, &mask, nullptr);
  for (const int descriptor : inherited) {
    ::fcntl(descriptor, F_SETFD, 0);
  }
  if (output >= 0) ::dup2(output, STDOUT_FILENO);
  ::execve(program, arguments, environment);
  _exit(kSignalBase - 1);
}

}  // namespace

void passSignalsOn() {
  struct sigaction action {};
  action.sa_handler = passOn;
  std::for_each(kPassedOn.begin(), kPassedOn.end(), [&](int signal) { ::sigaction(signal, &action, nullptr); });
}

bool isPassedOn(int signal) { return std::find(kPassedOn.begin(), kPassedOn.end(), signal) != kPassedOn.end(); }

Program startProgram(const LaunchPlan& plan, int output) {
  const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / plan.program;
  if (::access(program.c_str(), X_OK) != 0) {
    throw std::runtime_error(program.string() + ": the program is missing; build it with ./run");
  }
  std::vector<std::string> arguments{program.string()};
  std::vector<std::string> variables = environmentFor(plan);
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error(std::string("the program cannot be started: ") + std::strerror(errno));
  }
  FileDescriptor starting(ends[0]);
  const FileDescriptor started(ends[1]);
  variables.push_back("VELMOR_STARTED_FD=" + std::to_string(started.get()));
  const auto argument_pointers = pointersTo(arguments);
  const auto variable_pointers = pointersTo(variables);
  // A signal that comes between fork and g_child would be lost.
  const sigset_t blocked = passedOnSignals();
  sigset_t before;
  ::sigprocmask(SIG_BLOCK, &blocked, &before);
  const pid_t launcher = ::getpid();
  const pid_t child = ::fork();
  if (child == 0) {
    become(program.c_str(), argument_pointers.data(), variable_pointers.data(), {plan.place.lock(), started.get()},
           output, launcher, before);
  }
  if (child > 0) replaceChild(0, child);
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  if (child < 0) {
    throw std::runtime_error(std::string("the program cannot be started: ") + std::strerror(errno));
  }
  return {child, std::move(starting)};
}

int endOf(pid_t program) {
  int status = 0;
  while (::waitpid(program, &status, 0) < 0) {
    if (errno != EINTR) {
      throw std::runtime_error(std::string("the program's end cannot be learned: ") + std::strerror(errno));
    }
  }
  replaceChild(program, 0);
  return status;
}

}  // namespace workstation
