// velmor_care: watches a patient's room and raises "Patient Out of Bed" and "Fall Detected".
#include <axhttp.h>
#include <syslog.h>

#include "app/lifecycle/analysis_cycle.h"
#include "app/lifecycle/init_ai.h"
#include "app/lifecycle/shutdown.h"
#include "app/lifecycle/startup.h"
#include "app/process_state.h"
#include "app/status.h"
#include "config/request_handler.h"
#include "platform/clock/clock.h"
#include "trace/trace_writer.h"

namespace {

/// One line for each change of the status.
void logStatusChange() {
  static int logged = 0;
  if (g_StatusCode != logged) {
    logged = g_StatusCode;
    syslog(LOG_NOTICE, "status %d  %s", g_StatusCode, statusText(g_StatusCode).c_str());
  }
}

gboolean thread_function(void* /*data*/) {
  do_one_analysis();
  logStatusChange();
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
  startTrace();
  deliverSigtermWhileWaiting();
  gp_Loop = g_main_loop_new(nullptr, FALSE);
  AXHttpHandler* const handler = ax_http_handler_new(request_handler, nullptr);
  g_ThreadID = ticker_clock::addTicker(static_cast<guint>(g_main_loop_time), thread_function, nullptr);
  g_main_loop_run(gp_Loop);
  ax_http_handler_free(handler);
  endTrace();
  closelog();
  return 0;
}
