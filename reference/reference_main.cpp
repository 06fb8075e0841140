// velmor_reference: the analysis of velmor_care on the true people of a recording instead of what the networks see.
// The file named by VELMOR_TRUTH holds one picture a line; see reference/truth.h. Everything else is as for
// velmor_care.

#include <syslog.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>

#include "app/lifecycle/analysis_cycle.h"
#include "app/lifecycle/shutdown.h"
#include "app/lifecycle/startup.h"
#include "app/observer.h"
#include "app/process_state.h"
#include "platform/clock/clock.h"
#include "reference/truth.h"
#include "trace/trace_writer.h"

namespace {

constexpr int kBadInput = 2;

/// Whether the networks' path would have kept the person: seen from the run at the body's own rotation it is plausible,
/// and it has a top.
bool isPlausible(const Skeleton& skeleton) {
  int rotation = 0;
  if (!skeleton.hasSuperior || !skeleton.getRotation(rotation)) {
    return false;
  }
  return Skeleton(skeleton.keypoints, rotation, skeleton.score).isValid(g_StreamWidth, g_StreamHeight);
}

void analyse(TruthPicture picture) {
  ticker_clock::setReplayTime(picture.time);
  g_skeletons = std::move(picture.skeletons);
  std::erase_if(g_skeletons, [](const Skeleton& skeleton) { return !isPlausible(skeleton); });
  if (g_observer != nullptr) g_observer->cycleBegan();
  decide();
  if (g_observer != nullptr) g_observer->cycleEnded(true);
}

/// Throws std::runtime_error naming the file and the line that is wrong.
void analyseAll(std::ifstream& file, const std::string& path) {
  TimeStamp previous = TimeStamp::min();
  std::string line;
  for (long number = 1; std::getline(file, line); ++number) {
    try {
      TruthPicture picture = parseTruth(line);
      if (picture.time <= previous) {
        throw std::runtime_error("\"t\" must be later than in the line before");
      }
      previous = picture.time;
      analyse(std::move(picture));
    } catch (const std::runtime_error& e) {
      throw std::runtime_error(path + " line " + std::to_string(number) + ": " + e.what());
    }
  }
  if (previous == TimeStamp::min()) {
    throw std::runtime_error(path + ": no picture in it; one JSON object a line is needed");
  }
}

int fail(const std::string& text) {
  std::fprintf(stderr, "velmor_reference: %s\n", text.c_str());
  return kBadInput;
}

}  // namespace

int main() {
  openlog(g_app_name.c_str(), LOG_PID | LOG_CONS, LOG_USER);
  init_terminate();
  init_signals();
  const char* path = std::getenv("VELMOR_TRUTH");
  if (path == nullptr) {
    return fail("VELMOR_TRUTH is not set; name the file of true people in it");
  }
  std::ifstream file(path);
  if (!file) {
    return fail(std::string(path) + ": cannot be read");
  }
  ticker_clock::setReplayTime(TimeStamp());
  if (!init_rules()) return kBadInput;
  startTrace();
  try {
    analyseAll(file, path);
  } catch (const std::exception& e) {
    return fail(e.what());
  }
  endTrace();
  closelog();
  return 0;
}
