#include "accuracy/program.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>

#include "app/lifecycle/analysis_cycle.h"
#include "app/lifecycle/init_ai.h"
#include "app/lifecycle/shutdown.h"
#include "app/lifecycle/startup.h"
#include "app/process_state.h"
#include "platform/clock/clock.h"
#include "platform/support/file_descriptor.h"
#include "platform/workstation/system/durable_file.h"

namespace fs = std::filesystem;

namespace {

struct Cycles {
  const std::function<bool()>& each;
  std::exception_ptr failure;
};

/// No exception may pass through GLib.
gboolean cycle(gpointer data) {
  auto& cycles = *static_cast<Cycles*>(data);
  try {
    if (do_one_analysis() != 0) throw std::runtime_error("a model could not be run");
    if (cycles.each()) return G_SOURCE_CONTINUE;
  } catch (...) {
    cycles.failure = std::current_exception();
  }
  g_main_loop_quit(gp_Loop);
  return G_SOURCE_REMOVE;
}

constexpr const char* kResult = "result";
constexpr const char* kError = "error";

/// In the child, which ends without the program's own end.
[[noreturn]] void replyWith(const std::function<nlohmann::json()>& work, int out) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const FileDescriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
  dup2(nowhere.get(), STDOUT_FILENO);  // the program shows its events there
  nlohmann::json reply;
  try {
    reply[kResult] = work();
  } catch (const std::exception& error) {
    reply[kError] = error.what();
  }
  const std::string text = reply.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  workstation::writeAll(out, text.data(), text.size());
  std::_Exit(0);
}

std::string readAll(int in) {
  std::string text;
  std::array<char, 4096> chunk{};
  for (ssize_t count = 0; (count = read(in, chunk.data(), chunk.size())) > 0 || (count < 0 && errno == EINTR);) {
    text.append(chunk.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
  return text;
}

}  // namespace

fs::path sourceTree() {
  const char* tree = std::getenv("VELMOR_SOURCE_DIR");
  return tree == nullptr ? fs::current_path() : fs::path(tree);
}

TemporaryFolder::TemporaryFolder() {
  std::string name = (fs::temp_directory_path() / "velmor-accuracy-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error(name + ": cannot be created: " + std::strerror(errno));
  m_path = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  fs::remove_all(m_path, ignored);
}

workstation::LaunchPlan takeOver(workstation::LaunchRequest request, const fs::path& tree) {
  request.replay = true;
  workstation::LaunchPlan plan = workstation::prepareLaunch(request, tree, false);
  for (const auto& [name, value] : plan.environment) setenv(name.c_str(), value.c_str(), 1);
  ticker_clock::setReplayTime(TimeStamp());
  return plan;
}

void startEyes() {
  init_parameter_controller();
  if (init_ai() != 0) throw std::runtime_error("the networks cannot be opened");
}

void startProgram() {
  startEyes();
  init_overlay_manager();
  init_event_manager();
  if (!init_3D()) throw std::runtime_error("the floor does not calibrate");
  init_tracking();
}

void runCycles(const std::function<bool()>& each) {
  Cycles cycles{each, nullptr};
  init_signals();
  deliverSigtermWhileWaiting();
  gp_Loop = g_main_loop_new(nullptr, FALSE);
  g_ThreadID = ticker_clock::addTicker(static_cast<guint>(g_main_loop_time), cycle, &cycles);
  g_main_loop_run(gp_Loop);
  if (cycles.failure) std::rethrow_exception(cycles.failure);
}

nlohmann::json runApart(const std::function<nlohmann::json()>& work) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error(std::string("no pipe: ") + std::strerror(errno));
  const FileDescriptor in(ends[0]);
  FileDescriptor out(ends[1]);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error(std::string("no process: ") + std::strerror(errno));
  if (child == 0) replyWith(work, out.get());
  out = FileDescriptor();
  const std::string text = readAll(in.get());
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  const nlohmann::json reply = nlohmann::json::parse(text, nullptr, false);
  if (!reply.is_object()) throw std::runtime_error("the program ended in the middle");
  if (reply.contains(kError)) throw std::runtime_error(reply[kError].get<std::string>());
  return reply.at(kResult);
}
