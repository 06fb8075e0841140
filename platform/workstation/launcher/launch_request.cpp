#include "platform/workstation/launcher/launch_request.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "platform/support/owners.h"
#include "platform/workstation/decoding/source/camera_source.h"
#include "platform/workstation/decoding/video_source.h"
#include "platform/workstation/inference/engine/precision/precision.h"
#include "platform/workstation/inference/engine/threads.h"
#include "platform/workstation/inference/eyes.h"
#include "platform/workstation/parameters/stored_parameters.h"
#include "platform/workstation/system/shown_text.h"

namespace workstation {
namespace {

bool isNumber(const std::string& text) {
  constexpr std::size_t kMostDigits = 18;
  return !text.empty() && text.size() <= kMostDigits && text.find_first_not_of("0123456789") == std::string::npos;
}

constexpr const char* kNoLoginInAddress =
    "every process of this machine can read a command line, so no password belongs in an address on it: write user and "
    "password into a file, a line each, that only you can read (chmod 600), and give --login FILE";

void checkSets(const LaunchRequest& request) {
  if (request.sets.empty()) return;
  if (!request.replay || request.model) throw UsageError("--set is for replays: replay demo|FILE|TRACE --set ...");
  if (request.state) throw UsageError("--set is for a run with a state of its own; leave --state out");
  if (request.sets.size() > 1 && request.trace) throw UsageError("--trace takes the run of one group of --set");
}

void checkCombination(const LaunchRequest& request) {
  checkSets(request);
  if (!request.replay && (request.json || request.truth)) {
    throw UsageError(std::string(request.json ? "--json" : "--truth") + " is for replays: replay demo|FILE ...");
  }
  if (request.login && (!request.source || !takesLogin(*request.source))) {
    throw UsageError("--login is for a camera's address: --source rtsp://HOST/PATH --login FILE");
  }
  if (request.source && withoutUser(*request.source) != *request.source) throw UsageError(kNoLoginInAddress);
  if (!request.source && request.settings) {
    throw UsageError("--settings is for a source of yours; the demo has its own");
  }
  if (!request.source && request.loop) {
    throw UsageError("--loop is for a video file of yours; the demo begins again by itself");
  }
  if (request.password_file && !request.user) {
    throw UsageError("--password-file is for a user: give --user NAME");
  }
  if (request.reset && *request.reset != "floor" && *request.reset != "camera") {
    throw UsageError("--reset can only put back: floor, camera");
  }
  if (request.threads && !threadsFrom(*request.threads)) {
    throw UsageError("--threads needs a whole number from 1 to " + std::to_string(kMostThreads) + ", not \"" +
                     shown(*request.threads) + "\"");
  }
  if (request.precision) checkPrecision(*request.precision);
  if (request.eyes) checkEyes(*request.eyes);
  if (request.event && !isNumber(*request.event)) {
    throw UsageError("--event needs the number of an event, not \"" + *request.event + "\"");
  }
}

/// What a command line is about; each knows other options.
enum Mode : unsigned { kLive = 1, kReplay = 2, kModelCheck = 4, kExplain = 8 };

/// What an option's value goes to, once.
struct Target {
  const char* option;  ///< with its dashes
  std::optional<std::string> LaunchRequest::*value;
  unsigned modes = kLive | kReplay;
};
constexpr std::array kTargets{
    Target{"--source", &LaunchRequest::source, kLive},  Target{"--settings", &LaunchRequest::settings},
    Target{"--truth", &LaunchRequest::truth},           Target{"--state", &LaunchRequest::state},
    Target{"--trace", &LaunchRequest::trace},           Target{"--threads", &LaunchRequest::threads},
    Target{"--precision", &LaunchRequest::precision},   Target{"--eyes", &LaunchRequest::eyes},
    Target{"--reset", &LaunchRequest::reset, kLive},    Target{"--listen", &LaunchRequest::listen, kLive},
    Target{"--user", &LaunchRequest::user, kLive},      Target{"--password-file", &LaunchRequest::password_file, kLive},
    Target{"--login", &LaunchRequest::login, kLive},    Target{"--at", &LaunchRequest::at, kExplain},
    Target{"--event", &LaunchRequest::event, kExplain},
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

/// Options without a value.
struct Switches {
  gboolean help = FALSE, json = FALSE, loop = FALSE, tls = FALSE;
};

std::vector<GOptionEntry> entriesFor(Mode mode, Switches& on) {
  std::vector<GOptionEntry> entries;
  // Names of files are bytes, whatever the terminal's language.
  const auto add = [&entries](const char* name, GOptionArg kind, gpointer target) {
    const gint flags = kind == G_OPTION_ARG_CALLBACK ? G_OPTION_FLAG_FILENAME : 0;
    entries.push_back({name, 0, flags, kind, target, nullptr, nullptr});
  };
  for (const Target& target : kTargets) {
    if ((target.modes & mode) == 0) continue;
    add(target.option + 2, G_OPTION_ARG_CALLBACK, reinterpret_cast<gpointer>(&takeValue));
  }
  add("help", G_OPTION_ARG_NONE, &on.help);
  if (mode == kLive || mode == kReplay) add("json", G_OPTION_ARG_NONE, &on.json);
  if (mode == kLive) add("loop", G_OPTION_ARG_NONE, &on.loop);
  if (mode == kLive) add("tls", G_OPTION_ARG_NONE, &on.tls);
  entries.push_back({});
  return entries;
}

/// Takes the options over; what remains is what is none.
std::vector<std::string> takeOptions(const std::vector<std::string>& arguments, Mode mode, LaunchRequest& request) {
  Switches on;
  const auto entries = entriesFor(mode, on);
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
  request.help = on.help != FALSE;
  request.json = on.json != FALSE;
  request.loop = on.loop != FALSE;
  request.tls = on.tls != FALSE;
  return {all + 1, all + g_strv_length(all)};
}

void takeAssignment(const std::string& word, ParameterGroup& group) {
  const std::size_t end = word.find('=');
  if (!group.emplace(word.substr(0, end), word.substr(end + 1)).second) {
    throw UsageError("--set " + shown(word) + ": the key was given twice in a group");
  }
}

bool isAssignment(const std::string& word) {
  const std::size_t end = word.find('=');
  return end != std::string::npos && isParameterName(word.substr(0, end));
}

Mode modeOf(const std::string& command) {
  if (command == "model") return kModelCheck;
  if (command == "explain") return kExplain;
  return command == "replay" ? kReplay : kLive;
}

/// Takes what a replay, a check or an explanation is about.
void takeSubject(std::vector<std::string>& rest, Mode mode, LaunchRequest& request) {
  const std::size_t words = mode == kModelCheck ? 3 : 2;
  const bool is_there = rest.size() >= words && !rest[words - 1].empty();
  if (mode == kModelCheck && (!is_there || rest[1] != "check")) {
    throw UsageError("model needs check and a network's file: model check FILE.onnx; see --help");
  }
  if (!is_there) {
    throw UsageError(mode == kExplain ? "explain needs a trace's file; see --help"
                                      : "replay needs demo or a file; see --help");
  }
  if (mode == kModelCheck) {
    request.model = rest[2];
  } else if (mode == kExplain) {
    request.explained = rest[1];
  } else if (rest[1] != "demo") {
    request.source = rest[1];
  }
  rest.erase(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(words));
}

constexpr const char* kUsage = R"(./run                       watches the demo in real time
./run --source FILE         watches a video of yours, a camera's URI (rtsp://...), or what a camera's description
                            (*.json) names; a camera that does not answer is tried again until it does
  --login FILE              the camera's user and password, a line each, in a file that only you can read
./run --reset floor         puts the stored floor calibration back to the source's or the package's
./run --reset camera        camera and lens are again those that the start names, not what was chosen on the page
./run camera check ADDRESS  tries a camera and says what it found, or what is wrong and what to do: camera check --help
./run replay demo|FILE      analyses every picture of a recording as fast as the machine can, prints events
./run replay TRACE          the rules again on what the networks saw when the trace was made; needs neither video nor
                            networks
./run explain TRACE         says why each alarm came, and why none did
./run evaluate [FOLDER]     recordings through the program, beside what happened in them: evaluate --help
./run tls [--name HOST]...  makes or renews a certificate for the page, and says how telephones come to believe it
./run model check FILE      says whether a network of yours (FILE.onnx with FILE.onnx.json) fits, and what it finds
  --settings FILE           what the installer has set: bed areas, floor points, product name, focal length (JSON)
  --loop                    a video begins again at its end, instead of ending the run
  --state DIR               keeps parameters, events and log there
  --listen ADDRESS:PORT     the page's address instead of 127.0.0.1:8080; where other machines reach it, people sign in,
                            and the first start shows an installer's password
  --user NAME               makes this person an installer, newly or with a new password, which is typed, or comes from
                            VELMOR_PASSWORD or from the first line of --password-file FILE; 8 characters at least
  --tls                     the page is https, also where only this machine reaches it
  --json                    replay: one JSON object a line on standard output, nothing else
  --truth FILE              replay: the true people of a rendered recording instead of what the networks see
  --set KEY=VALUE ...       replay: these parameters count instead; on a trace several groups, each with a --set of its
                            own, are compared: the alarms that each gains and loses
  --trace OUT.jsonl         replay: writes down what is decided and why (docs/trace.md); it holds no pictures
  --trace DIR               live: the same, the last hours of it: 2 GiB and seven days at most
  --threads N               each network runs on so many threads instead of one: sooner where nothing else runs, and for
                            more processor time in all
  --precision WORD          the networks' numbers: fp32, or, for trials, bf16 or int8, which can be quicker and see less
                            exactly; where they do not fit it is fp32, and the log says why
  --eyes WORD               how sharply the networks look: fast, unless said otherwise, or sharp, which finds small people
                            for more than twice the work; a network that has no looks for sharp eyes says so in the log
  --at T, --event N         explain: at this time (41.5), or this event only
  --network FOLDER          first start: takes movenet-multipose.json and .bin, of which the networks are made, from
                            there instead of downloading them; not wanted any more once they are made
Without ./run tls the page is plain http: whoever listens on the network learns passwords and sees the pictures.
Ctrl-C ends a run.
)";

}  // namespace

void checkPrecision(const std::string& word) {
  if (!precisionFrom(word)) throw UsageError("--precision takes fp32, bf16 or int8, not \"" + shown(word) + "\"");
}

void checkEyes(const std::string& word) {
  if (!eyesFrom(word)) throw UsageError("--eyes takes fast or sharp, not \"" + shown(word) + "\"");
}

std::vector<std::string> takeSets(const std::vector<std::string>& words, std::vector<ParameterGroup>& sets) {
  constexpr std::string_view kJoined = "--set=";
  std::vector<std::string> rest;
  for (auto word = words.begin(); word != words.end();) {
    const bool is_joined = word->starts_with(kJoined);
    if (!is_joined && *word != "--set") {
      rest.push_back(*word++);
      continue;
    }
    ParameterGroup& group = sets.emplace_back();
    const std::string first = is_joined ? word->substr(kJoined.size()) : "";
    if (isAssignment(first)) takeAssignment(first, group);
    for (++word; (!is_joined || !group.empty()) && word != words.end() && isAssignment(*word); ++word) {
      takeAssignment(*word, group);
    }
    if (group.empty()) throw UsageError("--set needs KEY=VALUE; see --help");
  }
  return rest;
}

LaunchRequest parseCommandLine(const std::vector<std::string>& arguments) {
  LaunchRequest request;
  const Mode mode = modeOf(arguments.empty() ? "" : arguments[0]);
  if (mode == kModelCheck) request.model = "";
  request.replay = mode == kReplay || mode == kModelCheck;
  std::vector<std::string> rest = takeOptions(takeSets(arguments, request.sets), mode, request);
  if (request.help && mode != kReplay) return request;
  if (mode != kLive) takeSubject(rest, mode, request);
  if (!rest.empty()) throw UsageError("\"" + shown(rest[0]) + "\" is not understood here; see --help");
  checkCombination(request);
  return request;
}

const char* usage() { return kUsage; }

}  // namespace workstation
