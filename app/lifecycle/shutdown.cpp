#include "app/lifecycle/shutdown.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <exception>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>

#include "app/process_state.h"

GMainLoop* gp_Loop;

namespace {

constexpr int kFailureStatus = 255;
/// For whoever asked the process to end and must not wait for what is stuck.
constexpr time_t kOrderlyEnd_s = 5;

std::atomic<bool> loopHasRun = false;
int handledNotice = -1;  ///< an eventfd: SIGTERM has been handled

sigset_t sigtermAlone() {
  sigset_t term;
  sigemptyset(&term);
  sigaddset(&term, SIGTERM);
  return term;
}

void handle_sigterm(int signal) {
  const int savedErrno = errno;
  constexpr std::uint64_t kOne = 1;
  [[maybe_unused]] const ssize_t told = write(handledNotice, &kOne, sizeof kOne);
  if (gettid() != getpid()) {
    // Another thread's turn: the main thread, whose id is the process's, chooses the moment.
    tgkill(getpid(), getpid(), signal);
    errno = savedErrno;
    return;
  }
  if (gp_Loop == nullptr) {
    _exit(1);  // destructors must not run inside a handler
  }
  if (g_ThreadID != 0) {
    g_source_remove(g_ThreadID);
    g_ThreadID = 0;
  }
  g_main_loop_quit(gp_Loop);
  errno = savedErrno;
}

/// Ends the process some seconds after SIGTERM has come, whatever keeps the main thread. The signal stays that
/// thread's: here it is seen while it is pending there, or by the handler's notice.
void watchForSigterm() {
  const sigset_t term = sigtermAlone();
  std::array<pollfd, 2> notices{{{signalfd(-1, &term, SFD_CLOEXEC), POLLIN, 0}, {handledNotice, POLLIN, 0}}};
  while (poll(notices.data(), notices.size(), -1) < 0 && errno == EINTR) {
  }
  for (timespec left{kOrderlyEnd_s, 0}; nanosleep(&left, &left) != 0 && errno == EINTR;) {
  }
  _exit(loopHasRun ? 0 : 1);
}

/// Threads inherit the mask: this one takes no signal.
void startWatchdog() {
  handledNotice = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    std::thread(watchForSigterm).detach();
  } catch (const std::system_error& error) {
    syslog(LOG_ERR, "init_signals: an end that hangs will not be cut short: %s", error.what());
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

/// The default poll function, with SIGTERM let through before it waits and for as long as it waits: ppoll alone leaves
/// the signal pending when a descriptor is ready.
gint pollWithSigterm(GPollFD* descriptors, guint count, gint timeout_ms) {
  static_assert(sizeof(GPollFD) == sizeof(pollfd) && std::is_standard_layout_v<GPollFD>);
  loopHasRun = true;
  const sigset_t term = sigtermAlone();
  pthread_sigmask(SIG_UNBLOCK, &term, nullptr);
  pthread_sigmask(SIG_BLOCK, &term, nullptr);
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  sigdelset(&mask, SIGTERM);
  const timespec timeout{timeout_ms / 1000, (timeout_ms % 1000) * 1000000L};
  return ppoll(reinterpret_cast<pollfd*>(descriptors), count, timeout_ms < 0 ? nullptr : &timeout, &mask);
}

/// The text of the exception in flight.
std::string currentExceptionText() {
  try {
    throw;
  } catch (const std::exception& e) {
    return e.what();
  } catch (const char* text) {
    return text;
  } catch (...) {
    return "an exception of unknown type";
  }
}

[[noreturn]] void terminateWithLine() {
  const std::string text = std::current_exception() ? currentExceptionText() : "terminated without an exception";
  openlog(g_app_name.c_str(), LOG_PID | LOG_CONS | LOG_PERROR, LOG_USER);  // to standard error too
  syslog(LOG_ERR, "%s", text.c_str());
  _exit(kFailureStatus);
}

}  // namespace

void init_signals() {
  struct sigaction ignorePipe {};
  ignorePipe.sa_handler = SIG_IGN;
  sigemptyset(&ignorePipe.sa_mask);
  sigaddset(&ignorePipe.sa_mask, SIGPIPE);
  sigaction(SIGPIPE, &ignorePipe, nullptr);

  struct sigaction onTerm {};
  onTerm.sa_handler = handle_sigterm;
  sigemptyset(&onTerm.sa_mask);
  sigaction(SIGTERM, &onTerm, nullptr);
  startWatchdog();
}

void deliverSigtermWhileWaiting() {
  const sigset_t term = sigtermAlone();
  pthread_sigmask(SIG_BLOCK, &term, nullptr);
  g_main_context_set_poll_func(nullptr, pollWithSigterm);
}

void init_terminate() { std::set_terminate(terminateWithLine); }
