// velmor_run: checks a source and its settings, lays out the files and runs the program on them.
#include <fcntl.h>
#include <malloc.h>
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

#include "platform/workstation/launcher/access/first_installer.h"
#include "platform/workstation/launcher/access/launch_web.h"
#include "platform/workstation/launcher/access/tls_command.h"
#include "platform/workstation/launcher/child_processes.h"
#include "platform/workstation/launcher/floor_reset.h"
#include "platform/workstation/launcher/launch_plan.h"
#include "platform/workstation/launcher/launch_request.h"
#include "platform/workstation/launcher/retrace_plan.h"
#include "platform/workstation/launcher/settings_comparison.h"
#include "platform/workstation/launcher/started_program.h"
#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/trace/explain_trace.h"

namespace {

using workstation::LaunchPlan;
using workstation::LaunchRequest;
using workstation::Program;

constexpr int kDoesNotFit = 1, kBadInput = 2;
constexpr int kSignalBase = 128;

/// A start that takes longer is told what it waits for; as long as nobody knows that, later.
constexpr std::chrono::seconds kStartPatience{5}, kLongStart{30};

std::filesystem::path sourceTree() {
  const char* tree = std::getenv("VELMOR_SOURCE_DIR");
  if (tree == nullptr || !std::filesystem::is_directory(tree)) {
    throw std::runtime_error("VELMOR_SOURCE_DIR must name the source tree; start the program with ./run");
  }
  return tree;
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

/// The child's exit status; 128 and the signal's number, and a line, when a signal ended it.
int waitFor(pid_t child, const std::filesystem::path& state) {
  const int status = workstation::endOf(child);
  if (!WIFSIGNALED(status)) {
    return WEXITSTATUS(status);
  }
  const int signal = WTERMSIG(status);
  if (!workstation::isPassedOn(signal)) {
    std::fprintf(stderr, "The program was ended by signal %d (%s); its log is %s\n", signal, ::strsignal(signal),
                 (state / "system.log").c_str());
  }
  return kSignalBase + signal;
}

/// Tries the network: 0 when it fits, 1 and the reasons when not. One that brings the check down does not fit.
int checkModel(const LaunchPlan& plan, const std::string& model) {
  const int status = workstation::endOf(workstation::startProgram(plan).id);
  if (!WIFSIGNALED(status)) {
    return WEXITSTATUS(status);
  }
  const int signal = WTERMSIG(status);
  if (workstation::isPassedOn(signal)) {
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
  std::fprintf(out, "%sState: %s\n", plan.camera_line.c_str(), plan.place.directory().c_str());
  if (workstation::isTraceReplay(request)) {
    const std::string inexact =
        workstation::recordedRun(*request.source, sourceTree() / "package/manifest.json").inexact;
    if (!inexact.empty()) std::fprintf(stderr, "%s\n", inexact.c_str());
  }
  std::fflush(out);
}

int explain(const LaunchRequest& request) {
  workstation::ExplainRequest wanted{*request.explained, request.at, std::nullopt};
  if (request.event) wanted.event = std::stoull(*request.event);
  std::fputs(workstation::explainTrace(wanted).c_str(), stdout);
  return 0;
}

/// Evaluating recordings and trying a camera are programs of their own, with command lines of their own.
[[noreturn]] void become(const char* name, char** words) {
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
  ::execv(program.c_str(), words);
  throw std::runtime_error(program.string() + ": cannot be started: " + std::strerror(errno));
}

/// The status of a command that has printed its answer, which may have found no room.
int afterPrinting(int status) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
  std::fprintf(stderr, "standard output cannot be written: %s\n", std::strerror(errno));
  return EXIT_FAILURE;
}

int run(const std::vector<std::string>& arguments) {
  const LaunchRequest request = workstation::parseCommandLine(arguments);
  if (request.help) {
    std::fputs(workstation::usage(), stdout);
    return 0;
  }
  if (request.reset) {
    const auto reset = *request.reset == "camera" ? workstation::resetCamera : workstation::resetFloor;
    std::fputs(reset(request, sourceTree()).c_str(), stdout);
    return 0;
  }
  if (request.explained) return afterPrinting(explain(request));
  if (request.sets.size() > 1) return afterPrinting(workstation::compareSettings(request, sourceTree()));
  const workstation::WebAccess access = workstation::webAccess(request);
  LaunchPlan plan = workstation::prepareLaunch(request, sourceTree(), ::isatty(STDERR_FILENO) == 1);
  if (request.model) {
    return checkModel(plan, *request.model);
  }
  plan.environment.insert(access.environment.begin(), access.environment.end());
  if (!request.replay) workstation::prepareInstaller(access, plan.place.directory());
  announce(request, plan);
  const workstation::StartWatch watch(plan.place.directory());
  const Program program = workstation::startProgram(plan);
  ::malloc_trim(0);  // what was looked through has gone, and the wait may last for months
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
  try {
    if (argc > 1 && std::strcmp(argv[1], "evaluate") == 0) become("velmor_evaluate", argv + 1);
    if (argc > 1 && std::strcmp(argv[1], "camera") == 0) become("velmor_camera", argv + 1);
    if (argc > 1 && std::strcmp(argv[1], "tls") == 0)
      return afterPrinting(workstation::setUpTls({argv + 2, argv + argc}));
    workstation::passSignalsOn();
    return run({argv + 1, argv + argc});
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "%s\n", exception.what());
    return kBadInput;
  }
}
