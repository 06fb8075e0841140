#include "platform/workstation/launcher/launch_request.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "platform/support/owners.h"

namespace workstation {
namespace {

void checkCombination(const LaunchRequest& request) {
  if (!request.replay && (request.json || request.truth)) {
    throw UsageError(std::string(request.json ? "--json" : "--truth") + " is for replays: replay demo|FILE ...");
  }
  if (!request.source && request.settings) {
    throw UsageError("--settings is for a source of yours; the demo has its own");
  }
  if (!request.source && request.loop) {
    throw UsageError("--loop is for a video file of yours; the demo begins again by itself");
  }
  if (request.password_file && !request.user) {
    throw UsageError("--password-file is for a user: give --user NAME");
  }
  if (request.reset && *request.reset != "floor") {
    throw UsageError("--reset can only put back: floor");
  }
}

/// What an option's value goes to, once.
struct Target {
  const char* option;  ///< with its dashes
  std::optional<std::string> LaunchRequest::*value;
  bool is_for_replays = true;
};
constexpr std::array kTargets{
    Target{"--source", &LaunchRequest::source, false}, Target{"--settings", &LaunchRequest::settings},
    Target{"--truth", &LaunchRequest::truth},          Target{"--state", &LaunchRequest::state},
    Target{"--reset", &LaunchRequest::reset, false},   Target{"--listen", &LaunchRequest::listen, false},
    Target{"--user", &LaunchRequest::user, false},     Target{"--password-file", &LaunchRequest::password_file, false},
};

gboolean refuse(GError** error, const std::string& why) {
  g_set_error_literal(error, G_OPTION_ERROR, G_OPTION_ERROR_BAD_VALUE, why.c_str());
  return FALSE;
}

gboolean takeValue(const gchar* option, const gchar* value, gpointer data, GError** error) {
  auto& request = *static_cast<LaunchRequest*>(data);
  const auto target = std::find_if(kTargets.begin(), kTargets.end(),
                                   [option](const Target& known) { return std::string_view(known.option) == option; });
  auto& place = request.*target->value;
  if (place) return refuse(error, std::string(option) + " was given twice");
  if (*value == '\0') return refuse(error, std::string(option) + " needs a value");
  place = value;
  return TRUE;
}

/// The options of a live run or of a replay.
std::vector<GOptionEntry> entriesFor(LaunchRequest& request, gboolean& help, gboolean& json, gboolean& loop) {
  std::vector<GOptionEntry> entries;
  // Names of files are bytes, whatever the terminal's language.
  const auto add = [&entries](const char* name, GOptionArg kind, gpointer target) {
    const gint flags = kind == G_OPTION_ARG_CALLBACK ? G_OPTION_FLAG_FILENAME : 0;
    entries.push_back({name, 0, flags, kind, target, nullptr, nullptr});
  };
  for (const Target& target : kTargets) {
    if (request.model || (request.replay && !target.is_for_replays)) continue;
    add(target.option + 2, G_OPTION_ARG_CALLBACK, reinterpret_cast<gpointer>(&takeValue));
  }
  add("help", G_OPTION_ARG_NONE, &help);
  if (!request.model) add("json", G_OPTION_ARG_NONE, &json);
  if (!request.replay) add("loop", G_OPTION_ARG_NONE, &loop);
  entries.push_back({});
  return entries;
}

/// Takes the options over; what remains is what is none.
std::vector<std::string> takeOptions(const std::vector<std::string>& arguments, LaunchRequest& request) {
  gboolean help = FALSE;
  gboolean json = FALSE;
  gboolean loop = FALSE;
  const auto entries = entriesFor(request, help, json, loop);
  const GLibPtr<GOptionContext> context(g_option_context_new(nullptr));
  GOptionGroup* group = g_option_group_new("velmor", "", "", &request, nullptr);  // the context's own
  g_option_group_add_entries(group, entries.data());
  g_option_context_set_main_group(context.get(), group);
  g_option_context_set_help_enabled(context.get(), FALSE);
  GLibPtr<gchar*> words(g_new0(gchar*, arguments.size() + 2));
  words.get()[0] = g_strdup("run");
  for (size_t n = 0; n < arguments.size(); ++n) words.get()[n + 1] = g_strdup(arguments[n].c_str());
  CaughtError error;
  gchar** all = words.release();
  const bool understood = g_option_context_parse_strv(context.get(), &all, error.out()) != FALSE;
  words.reset(all);
  if (!understood) throw UsageError(error.text() + "; see --help");
  request.help = help != FALSE;
  request.json = json != FALSE;
  request.loop = loop != FALSE;
  return {all + 1, all + g_strv_length(all)};
}

/// Takes what a replay or a check is about.
void takeSubject(std::vector<std::string>& rest, LaunchRequest& request) {
  const std::size_t words = request.model ? 3 : 2;
  if (request.model && (rest.size() < words || rest[1] != "check" || rest[2].empty())) {
    throw UsageError("model needs check and a network's file: model check FILE.onnx; see --help");
  }
  if (rest.size() < words || rest[1].empty()) throw UsageError("replay needs demo or a file; see --help");
  if (request.model) {
    request.model = rest[2];
  } else if (rest[1] != "demo") {
    request.source = rest[1];
  }
  rest.erase(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(words));
}

}  // namespace

LaunchRequest parseCommandLine(const std::vector<std::string>& arguments) {
  LaunchRequest request;
  const std::string command = arguments.empty() ? "" : arguments[0];
  if (command == "model") request.model = "";
  request.replay = command == "replay" || request.model;
  std::vector<std::string> rest = takeOptions(arguments, request);
  if (request.model && request.help) return request;
  if (request.replay) takeSubject(rest, request);
  if (!rest.empty()) throw UsageError("\"" + rest[0] + "\" is not understood here; see --help");
  checkCombination(request);
  return request;
}

const char* usage() {
  return R"(./run                       watches the demo in real time
./run --source FILE         watches a video of yours, a camera's URI (rtsp://...), or what a camera's description
                            (*.json) names; a camera that does not answer is tried again until it does
./run --reset floor         puts the stored floor calibration back to the source's or the package's
./run replay demo|FILE      analyses every picture of a recording as fast as the machine can, prints events
./run model check FILE      says whether a network of yours (FILE.onnx with FILE.onnx.json) fits, and what it finds
  --settings FILE           what the installer has set: bed areas, floor points, product name, focal length (JSON)
  --loop                    a video begins again at its end, instead of ending the run
  --state DIR               keeps parameters, events and log there
  --listen ADDRESS:PORT     the page's address instead of 127.0.0.1:8080; one that other machines reach needs a user
  --user NAME               asks for this name and a password before the page is shown; the password is typed, or
                            comes from VELMOR_PASSWORD or from the first line of --password-file FILE; 8 characters at least
  --json                    replay: one JSON object a line on standard output, nothing else
  --truth FILE              replay: the true people of a rendered recording instead of what the networks see
  --network FOLDER          first start: takes movenet-multipose.json and .bin, of which the networks are made, from
                            there instead of downloading them; not wanted any more once they are made
The page is plain http: the password is never sent, but whoever listens on the network sees the pictures.
Ctrl-C ends a run.
)";
}

}  // namespace workstation
