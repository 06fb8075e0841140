// velmor_camera: says whether a camera can be watched here. velmor_run starts it, and the program for its page: in a
// process of its own, so that no camera, whatever it sends, can hold up or bring down what watches a patient.
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/workstation/camera_check/check_request.h"
#include "platform/workstation/camera_check/trial.h"
#include "platform/workstation/camera_check/trial_words.h"
#include "platform/workstation/decoding/video_source.h"
#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/views/view_picture.h"

namespace {

using namespace workstation;

constexpr int kDoesNotFit = 1, kBadInput = 2;
constexpr StreamSize kPictureSize{1280, 720};
constexpr std::size_t kMostAsked = 16384;  // bytes from a page

/// As a viewer of the program's stream would see it.
std::string jpegOf(const Trial& trial, const CheckRequest& request) {
  if (!trial.picture) return "";
  return toJpeg(roomPicture(trial.picture->view(), kPictureSize, {request.rotation, request.mirrored}));
}

void print(const Trial& trial, const std::string& name) {
  const bool fits = trial.end == TrialEnd::kFits;
  std::printf("%s: %s\n", name.c_str(), fits ? "can be watched" : "cannot be watched");
  for (const auto& [heading, text] : factsOf(trial)) std::printf("  %-8s %s\n", heading.c_str(), text.c_str());
  if (fits) return;
  std::printf("%s\n", problemOf(trial).c_str());
  if (const std::string advice = adviceFor(trial); !advice.empty()) std::printf("%s\n", advice.c_str());
}

int tellTerminal(const CheckRequest& request) {
  const TrialLimits limits{.first_picture = request.wait};
  const std::string name = withoutSecrets(request.source.uri);
  std::fprintf(stderr, "Trying %s, for %d s at most\n", name.c_str(), static_cast<int>(limits.whole().count()));
  const Trial trial = trySource(request.source, limits);
  print(trial, name);
  if (request.picture && trial.picture) {
    replaceFile(*request.picture, jpegOf(trial, request));
    std::printf("  Picture  %s\n", request.picture->c_str());
  }
  return trial.end == TrialEnd::kFits ? 0 : kDoesNotFit;
}

/// One line of JSON, then the picture's bytes.
int tellPage() {
  std::string asked(kMostAsked, '\0');
  asked.resize(std::fread(asked.data(), 1, asked.size(), stdin));
  const CheckRequest request = parsePageCheck(asked);
  const Trial trial = trySource(request.source, {});
  const std::string jpeg = jpegOf(trial, request);
  const nlohmann::json answer = {{"end", nameOf(trial.end)},    {"fits", trial.end == TrialEnd::kFits},
                                 {"problem", problemOf(trial)}, {"advice", adviceFor(trial)},
                                 {"facts", factsOf(trial)},     {"fingerprint", trial.fingerprint},
                                 {"picture_bytes", jpeg.size()}};
  const std::string line = answer.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fwrite(jpeg.data(), 1, jpeg.size(), stdout);
  return trial.end == TrialEnd::kFits ? 0 : kDoesNotFit;
}

int run(const std::vector<std::string>& words) {
  const CheckRequest request = parseCheck(words);
  if (!request.help) return request.from_page ? tellPage() : tellTerminal(request);
  std::fputs(checkUsage(), stdout);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  takeFileLimitsAsFullDisks();
  int status = kBadInput;
  try {
    status = run(argc > 1 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>());
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "%s\n", exception.what());
  }
  if (std::fflush(stdout) != 0 && status == 0) status = kBadInput;
  // Threads of GStreamer may never end.
  _exit(status);
}
