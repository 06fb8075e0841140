#include "app/shutdown.h"

#include <poll.h>
#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <exception>
#include <string>
#include <type_traits>

#include "app/process_state.h"

GMainLoop* gp_Loop;

namespace {

constexpr int kFailureStatus = 255;

void handle_sigterm(int signal) {
  const int savedErrno = errno;
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

/// The default poll function, with SIGTERM let through for just as long as it waits. A pending signal is delivered even
/// when there is nothing to wait for.
gint pollWithSigterm(GPollFD* descriptors, guint count, gint timeout_ms) {
  static_assert(sizeof(GPollFD) == sizeof(pollfd) && std::is_standard_layout_v<GPollFD>);
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
}

void deliverSigtermWhileWaiting() {
  sigset_t term;
  sigemptyset(&term);
  sigaddset(&term, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &term, nullptr);
  g_main_context_set_poll_func(nullptr, pollWithSigterm);
}

void init_terminate() { std::set_terminate(terminateWithLine); }
