// velmor_care: watches a patient's room and raises "Patient Out of Bed" and "Fall Detected".
#include <axhttp.h>
#include <syslog.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>

#include "app/analysis_cycle.h"
#include "app/init_ai.h"
#include "app/process_state.h"
#include "app/shutdown.h"
#include "app/startup.h"
#include "app/status.h"
#include "config/parameter_io.h"
#include "config/request_handler.h"
#include "platform/clock/clock.h"

namespace {

/// For somebody who watches a live run in a terminal: one line for each change of the status.
void printStatusChange() {
  static const bool wanted = [] {
    const char* output = std::getenv("VELMOR_OUTPUT");
    return output != nullptr && std::string_view(output) == "text" && !ticker_clock::isReplay();
  }();
  static int printedStatus = 0;
  if (!wanted || g_StatusCode == printedStatus) {
    return;
  }
  printedStatus = g_StatusCode;
  const std::time_t now = std::chrono::system_clock::to_time_t(
      std::chrono::time_point_cast<std::chrono::system_clock::duration>(ticker_clock::now()));
  std::tm local{};
  localtime_r(&now, &local);
  char time[16];
  std::strftime(time, sizeof time, "%H:%M:%S", &local);
  std::printf("%s  status %d  %s\n", time, g_StatusCode, parameter_io::status_to_string(g_StatusCode).c_str());
  std::fflush(stdout);
}

gboolean thread_function(void* /*data*/) {
  do_one_analysis();
  printStatusChange();
  return G_SOURCE_CONTINUE;
}

int failStart(const char* text) {
  syslog(LOG_ERR, "%s", text);
  g_StatusCode = status::kModelError;
  return -1;
}

}  // namespace

int main() {
  openlog(g_app_name.c_str(), LOG_PID | LOG_CONS, LOG_USER);
  init_terminate();
  g_StatusCode = status::kStarting;
  init_signals();
  init_parameter_controller();
  if (init_ai() != 0) {
    return failStart("Failed init_ai\n");
  }
  init_overlay_manager();
  init_event_manager();
  if (!init_3D()) {
    return failStart("Failed init_3D\n");
  }
  init_tracking();
  deliverSigtermWhileWaiting();
  gp_Loop = g_main_loop_new(nullptr, FALSE);
  AXHttpHandler* const handler = ax_http_handler_new(request_handler, nullptr);
  g_ThreadID = ticker_clock::addTicker(static_cast<guint>(g_main_loop_time), thread_function, nullptr);
  g_main_loop_run(gp_Loop);
  ax_http_handler_free(handler);
  closelog();
  return 0;
}
