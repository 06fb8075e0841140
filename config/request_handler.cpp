#include "config/request_handler.h"

#include <syslog.h>

#include <array>
#include <exception>
#include <string_view>

#include "app/process_state.h"
#include "app/status.h"
#include "config/parameter_io.h"
#include "geometry/distance_controller.h"
#include "platform/support/owners.h"
#include "video/VideoStreamSource.h"

namespace {

constexpr const char* kPlainText = "Content-Type: text/plain\r\n";
constexpr const char* kXml = "Content-Type: text/xml\r\n";
constexpr const char* kOk = "Status: 200 OK\r\n\r\n";
constexpr const char* kNotAcceptable = "Status: 406\tNot Acceptable\r\n\r\n";

void write(GDataOutputStream* reply, const char* text) {
  g_data_output_stream_put_string(reply, text, nullptr, nullptr);
}

/// Headers of a good answer, then a body.
void answer(GDataOutputStream* reply, const char* type, int (*body)(GDataOutputStream*)) {
  write(reply, type);
  write(reply, kOk);
  body(reply);
}

using ChessboardAction = bool (Distance_Controller::*)(ImageFrameSource&);

/// False also for a picture that the image library refuses: no request ends the program.
bool succeeds(ChessboardAction action) {
  try {
    return g_videoStreamSource != nullptr && (g_DistanceController.*action)(*g_videoStreamSource);
  } catch (const std::exception& problem) {
    syslog(LOG_ERR, "request_handler: the chessboard action failed: %s", problem.what());
    return false;
  }
}

/// A chessboard action's success is its status line.
void answerStatus(GDataOutputStream* reply, ChessboardAction action) {
  write(reply, kPlainText);
  write(reply, succeeds(action) ? kOk : kNotAcceptable);
}

void set_all_parameters(GHashTable* params, GDataOutputStream* /*reply*/) {
  try {
    parameter_io::set_parameters(params);
  } catch (const std::exception& problem) {
    syslog(LOG_ERR, " Exception from set_all_parameters trying to set parameters.");
    syslog(LOG_INFO, "set_all_parameters: %s", problem.what());
    g_StatusCode = status::kDataError;
  }
}

void toggle_dev_mode(GHashTable* /*params*/, GDataOutputStream* reply) {
  write(reply, kXml);
  write(reply, kOk);
  g_IsDevMode = !g_IsDevMode;
}

struct Action {
  std::string_view name;
  void (*run)(GHashTable* params, GDataOutputStream* reply);
};

constexpr std::array<Action, 9> kActions{{
    {"set_all_parameters", set_all_parameters},
    {"get_status_code",
     [](GHashTable*, GDataOutputStream* reply) { answer(reply, kPlainText, parameter_io::get_status_code); }},
    {"log_intrinsic_matrix",
     [](GHashTable*, GDataOutputStream* reply) { answerStatus(reply, &Distance_Controller::log_intrinsic_matrix); }},
    {"find_pattern",
     [](GHashTable*, GDataOutputStream* reply) { answerStatus(reply, &Distance_Controller::find_pattern); }},
    {"get_status_string",
     [](GHashTable*, GDataOutputStream* reply) { answer(reply, kPlainText, parameter_io::get_status_string); }},
    {"get_execution_time",
     [](GHashTable*, GDataOutputStream* reply) { answer(reply, kPlainText, parameter_io::get_execution_time); }},
    {"get_is_portrait",
     [](GHashTable*, GDataOutputStream* reply) { answer(reply, kPlainText, parameter_io::get_is_portrait); }},
    {"get_all_parameters",
     [](GHashTable*, GDataOutputStream* reply) { answer(reply, kXml, parameter_io::get_parameters); }},
    {"toggle_dev_mode", toggle_dev_mode},
}};

}  // namespace

void request_handler(const gchar* /*path*/, const gchar* /*method*/, const gchar* /*query*/, GHashTable* params,
                     GOutputStream* output, gpointer /*user_data*/) {
  const auto* wanted = static_cast<const char*>(params == nullptr ? nullptr : g_hash_table_lookup(params, "action"));
  if (wanted == nullptr) {
    return;
  }
  const GLibPtr<GDataOutputStream> reply(g_data_output_stream_new(output));
  g_filter_output_stream_set_close_base_stream(G_FILTER_OUTPUT_STREAM(reply.get()), FALSE);
  for (const Action& action : kActions) {
    if (action.name == wanted) {
      return action.run(params, reply.get());
    }
  }
}
