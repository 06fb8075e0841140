#include "platform/workstation/launcher/launch_request.h"

#include <cstddef>

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

}  // namespace

LaunchRequest parseCommandLine(const std::vector<std::string>& arguments) {
  LaunchRequest request;
  size_t next = 0;
  const auto value = [&](std::optional<std::string>& target, const std::string& option) {
    if (target) {
      throw UsageError(option + " was given twice");
    }
    if (next == arguments.size() || arguments[next].empty()) {
      throw UsageError(option + " needs a value; see --help");
    }
    target = arguments[next++];
  };
  if (!arguments.empty() && arguments[0] == "replay") {
    request.replay = true;
    ++next;
    value(request.source, "replay");
    if (request.source->starts_with("--")) {
      throw UsageError("replay needs demo or a file first; see --help");
    }
    if (request.source == "demo") {
      request.source.reset();
    }
  }
  while (next < arguments.size()) {
    const std::string& option = arguments[next++];
    if (option == "--help") {
      request.help = true;
    } else if (option == "--json") {
      request.json = true;
    } else if (option == "--source" && !request.replay) {
      value(request.source, option);
    } else if (option == "--loop" && !request.replay) {
      request.loop = true;
    } else if (option == "--settings") {
      value(request.settings, option);
    } else if (option == "--truth") {
      value(request.truth, option);
    } else if (option == "--reset" && !request.replay) {
      value(request.reset, option);
    } else if (option == "--listen" && !request.replay) {
      value(request.listen, option);
    } else if (option == "--user" && !request.replay) {
      value(request.user, option);
    } else if (option == "--password-file" && !request.replay) {
      value(request.password_file, option);
    } else if (option == "--state") {
      value(request.state, option);
    } else {
      throw UsageError("\"" + option + "\" is not understood here; see --help");
    }
  }
  checkCombination(request);
  return request;
}

const char* usage() {
  return R"(./run                       watches the demo in real time
./run --source FILE         watches a video of yours, a camera's URI (rtsp://...), or what a camera's description
                            (*.json) names; a camera that does not answer is tried again until it does
./run --reset floor         puts the stored floor calibration back to the source's or the package's
./run replay demo|FILE      analyses every picture of a recording as fast as the machine can, prints events
  --settings FILE           what the installer has set: bed areas, floor points, product name, focal length (JSON)
  --loop                    a video begins again at its end, instead of ending the run
  --state DIR               keeps parameters, events and log there
  --listen ADDRESS:PORT     the page's address instead of 127.0.0.1:8080; one that other machines reach needs a user
  --user NAME               asks for this name and a password before the page is shown; the password is typed, or
                            comes from VELMOR_PASSWORD or from the first line of --password-file FILE; 8 characters at least
  --json                    replay: one JSON object a line on standard output, nothing else
  --truth FILE              replay: the true people of a rendered recording instead of what the networks see
The page is plain http: the password is never sent, but whoever listens on the network sees the pictures.
Ctrl-C ends a run.
)";
}

}  // namespace workstation
