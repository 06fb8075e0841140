// velmor_run: checks a source and its settings, lays out the files and runs the program on them.
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/workstation/launcher/child_processes.h"
#include "platform/workstation/launcher/floor_reset.h"
#include "platform/workstation/launcher/launch_plan.h"
#include "platform/workstation/launcher/launch_request.h"
#include "platform/workstation/launcher/launch_web.h"
#include "platform/workstation/system/durable_file.h"

namespace {

using workstation::LaunchPlan;
using workstation::LaunchRequest;

constexpr int kDoesNotFit = 1, kBadInput = 2;
constexpr int kSignalBase = 128;

/// A start that takes longer is told what it waits for; as long as nobody knows that, later.
constexpr std::chrono::seconds kStartPatience{5}, kLongStart{30};
constexpr std::array kPassedOn{SIGINT, SIGTERM, SIGHUP};

volatile sig_atomic_t g_child = 0;

/// Whatever asks us to end asks the program to end in order.
void passOn(int signal) {
  const int caller_errno = errno;
  if (g_child > 0) {
    ::kill(static_cast<pid_t>(g_child), SIGTERM);
  } else {
    _exit(kSignalBase + signal);
  }
  errno = caller_errno;
}

std::filesystem::path sourceTree() {
  const char* tree = std::getenv("VELMOR_SOURCE_DIR");
  if (tree == nullptr || !std::filesystem::is_directory(tree)) {
    throw std::runtime_error("VELMOR_SOURCE_DIR must name the source tree; start the program with ./run");
  }
  return tree;
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

/// The reading end of a pipe that holds the password; none without one. Neither the command line nor the environment
/// of the program shows it.
FileDescriptor pipeWith(const std::string& password) {
  if (password.empty()) {
    return FileDescriptor();
  }
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error(std::string("the password cannot be handed on: ") + std::strerror(errno));
  }
  FileDescriptor reading(ends[0]);
  const FileDescriptor writing(ends[1]);
  workstation::writeAll(writing.get(), password.data(), password.size());
  return reading;
}

/// In the child: only calls that are safe between fork and exec in a process with threads.
[[noreturn]] void become(const char* program, char* const* arguments, char* const* environment,
                         std::array<int, 3> inherited, pid_t launcher, const sigset_t& mask) {
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
  ::execve(program, arguments, environment);
  _exit(kSignalBase - 1);
}

/// A program and the pipe that it closes when it has started, or ends.
struct Program {
  pid_t id;
  FileDescriptor starting;
};

Program start(const LaunchPlan& plan, const std::string& password) {
  const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / plan.program;
  if (::access(program.c_str(), X_OK) != 0) {
    throw std::runtime_error(program.string() + ": the program is missing; build it with ./run");
  }
  std::vector<std::string> arguments{program.string()};
  std::vector<std::string> variables = environmentFor(plan);
  const FileDescriptor secret = pipeWith(password);
  if (secret.get() >= 0) {
    variables.push_back("VELMOR_PASSWORD_FD=" + std::to_string(secret.get()));
  }
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
    become(program.c_str(), argument_pointers.data(), variable_pointers.data(),
           {plan.place.lock(), secret.get(), started.get()}, launcher, before);
  }
  g_child = child;
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  if (child < 0) {
    throw std::runtime_error(std::string("the program cannot be started: ") + std::strerror(errno));
  }
  return {child, std::move(starting)};
}

/// What the program's start waits for, as far as what it has started tells; empty if that tells nothing.
std::string whatItWaitsFor(pid_t program) {
  const auto children = workstation::childrenOf(program);
  const bool asks_lens = std::any_of(children.begin(), children.end(), [](const workstation::ChildProcess& child) {
    return child.command.find("busctl") != std::string::npos;
  });
  return asks_lens ? "waiting for the camera's lens (busctl)" : "";
}

/// Tells who waits at the terminal why nothing happens; returns when the program has started or ended.
void watchStart(const Program& program, const std::filesystem::path& state) {
  std::string told;
  auto waited = std::chrono::seconds::zero();
  pollfd started{program.starting.get(), POLLIN, 0};
  for (int ready = 0; ready == 0 || (ready < 0 && errno == EINTR);) {
    ready = ::poll(&started, 1, static_cast<int>(std::chrono::milliseconds(kStartPatience).count()));
    if (ready != 0) continue;
    waited += kStartPatience;
    std::string reason = whatItWaitsFor(program.id);
    if (reason.empty() && waited >= kLongStart) reason = "its log is " + (state / "system.log").string();
    if (reason.empty() || reason == told) continue;
    std::fprintf(stderr, "Still starting: %s\n", reason.c_str());
    told = reason;
  }
}

/// How the child ended, in waitpid's terms.
int endOf(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      throw std::runtime_error(std::string("the program's end cannot be learned: ") + std::strerror(errno));
    }
  }
  return status;
}

bool isPassedOn(int signal) { return std::find(kPassedOn.begin(), kPassedOn.end(), signal) != kPassedOn.end(); }

/// The child's exit status; 128 and the signal's number, and a line, when a signal ended it.
int waitFor(pid_t child, const std::filesystem::path& state) {
  const int status = endOf(child);
  if (!WIFSIGNALED(status)) {
    return WEXITSTATUS(status);
  }
  const int signal = WTERMSIG(status);
  if (!isPassedOn(signal)) {
    std::fprintf(stderr, "The program was ended by signal %d (%s); its log is %s\n", signal, ::strsignal(signal),
                 (state / "system.log").c_str());
  }
  return kSignalBase + signal;
}

/// Tries the network: 0 when it fits, 1 and the reasons when not. One that brings the check down does not fit.
int checkModel(const LaunchPlan& plan, const std::string& model) {
  const int status = endOf(start(plan, "").id);
  if (!WIFSIGNALED(status)) {
    return WEXITSTATUS(status);
  }
  const int signal = WTERMSIG(status);
  if (isPassedOn(signal)) {
    return kSignalBase + signal;
  }
  const std::string why = signal == SIGALRM
                              ? "is too slow: it needs minutes where the program has half a second for two runs or more"
                              : std::string("brings the inference engine down (") + ::strsignal(signal) + ")";
  std::fprintf(stderr, "%s: %s\n", model.c_str(), why.c_str());
  return kDoesNotFit;
}

/// Where to look afterwards.
void announce(const LaunchRequest& request, const LaunchPlan& plan) {
  std::FILE* const out = request.replay ? stderr : stdout;
  std::fprintf(out, "State: %s\n", plan.place.directory().c_str());
  std::fflush(out);
}

int run(const std::vector<std::string>& arguments) {
  const LaunchRequest request = workstation::parseCommandLine(arguments);
  if (request.help) {
    std::fputs(workstation::usage(), stdout);
    return 0;
  }
  if (request.reset) {
    std::fputs(workstation::resetFloor(request, sourceTree()).c_str(), stdout);
    return 0;
  }
  const workstation::WebAccess access = workstation::webAccess(request);
  LaunchPlan plan = workstation::prepareLaunch(request, sourceTree(), ::isatty(STDERR_FILENO) == 1);
  if (request.model) {
    return checkModel(plan, *request.model);
  }
  plan.environment.insert(access.environment.begin(), access.environment.end());
  announce(request, plan);
  const workstation::StartWatch watch(plan.place.directory());
  const Program program = start(plan, access.password);
  if (!request.truth) {
    watchStart(program, plan.place.directory());
  }
  const int status = waitFor(program.id, plan.place.directory());
  if (status != 0 && watch.failedOnFloor()) {
    std::fputs(workstation::floorAdvice(request, sourceTree(), plan.place.directory()).c_str(), stderr);
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  workstation::takeFileLimitsAsFullDisks();
  struct sigaction action {};
  action.sa_handler = passOn;
  std::for_each(kPassedOn.begin(), kPassedOn.end(), [&](int signal) { ::sigaction(signal, &action, nullptr); });
  try {
    return run({argv + 1, argv + argc});
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "%s\n", exception.what());
    return kBadInput;
  }
}
