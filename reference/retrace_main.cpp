// velmor_retrace: the analysis of velmor_care on what the networks saw when a trace was made. The trace is named by
// VELMOR_RETRACE; VELMOR_SET holds parameters, a JSON object of texts, that count instead of the trace's. Everything
// else is as for velmor_care.
#include <syslog.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "app/calibration_params.h"
#include "app/detection_params.h"
#include "app/lifecycle/analysis_cycle.h"
#include "app/lifecycle/shutdown.h"
#include "app/lifecycle/startup.h"
#include "app/observer.h"
#include "app/process_state.h"
#include "config/apply_settings.h"
#include "config/parameter_controller.h"
#include "config/parameter_io.h"
#include "platform/clock/clock.h"
#include "pose/skeleton_fusion.h"
#include "reference/poses.h"
#include "trace/trace_writer.h"

namespace {

constexpr int kBadInput = 2;

/// The run whose people the detector has to confirm.
constexpr int kUpsideDown = 180;

/// The settings that somebody saved during the recording, as they were saved then.
void applySettings(const Settings& settings, const nlohmann::json& set_instead) {
  for (const auto& [name, value] : settings) {
    g_ParameterController.set_string_parameter(name, set_instead.value(name, value));
  }
  g_CalibrationParams = g_ParameterController.load_calibration();
  g_DetectionParams = g_ParameterController.load_detection_params();
  parameter_io::store_points_into_AOI();
  parameter_io::store_points_into_exclusions();
  if (!calibrate_floor()) syslog(LOG_ERR, "Failed Calibration");
}

/// The poses that are skeletons, as the estimator takes them.
std::vector<TracedPose> validPoses(const TracedRun& run) {
  std::size_t counted = 0;
  while (counted < run.poses.size() && !(run.poses[counted].skeleton.score < run.limit)) ++counted;
  if (g_observer != nullptr) {
    Skeletons decoded;
    for (const TracedPose& pose : run.poses) decoded.push_back(pose.skeleton);
    g_observer->posesDecoded(run.rotation, run.width, run.height, decoded, counted, run.limit);
  }
  std::vector<TracedPose> valid(run.poses.begin(), run.poses.begin() + static_cast<std::ptrdiff_t>(counted));
  std::erase_if(valid, [&run](const TracedPose& pose) { return !pose.skeleton.isValid(run.width, run.height); });
  return valid;
}

/// Those whom the detector confirms, as the validator takes them.
std::vector<TracedPose> confirmedPoses(std::vector<TracedPose> poses, bool had_picture) {
  if (!had_picture) {
    if (g_observer != nullptr) g_observer->confirmationFailed();
    return poses;
  }
  const auto isConfirmed = [](const TracedPose& pose) { return pose.confirmation > g_CalibrationParams.f_Sensitivity; };
  for (std::size_t i = 0; g_observer != nullptr && i < poses.size(); ++i) {
    g_observer->personChecked(i, poses[i].confirmation, isConfirmed(poses[i]));
  }
  std::erase_if(poses, [&](const TracedPose& pose) { return !isConfirmed(pose); });
  return poses;
}

void findPeople(const TracedCycle& cycle) {
  std::map<int, Skeletons> found;
  for (const TracedRun& run : cycle.runs) {
    std::vector<TracedPose> poses = validPoses(run);
    if (run.rotation == kUpsideDown) poses = confirmedPoses(std::move(poses), cycle.had_picture_to_check);
    for (TracedPose& pose : poses) found[run.rotation].push_back(std::move(pose.skeleton));
  }
  g_skeletons = combineSkeletons(found[0], found[270], found[180], found[90], g_CalibrationParams.f_Sensitivity,
                                 g_StreamWidth, g_StreamHeight);
}

void analyse(const TracedCycle& cycle) {
  ticker_clock::setReplayTime(cycle.time);
  if (g_observer != nullptr) g_observer->cycleBegan();
  if (!cycle.failed) {
    findPeople(cycle);
    decide();
  }
  if (g_observer != nullptr) g_observer->cycleEnded(!cycle.failed);
}

int fail(const std::string& text) {
  std::fprintf(stderr, "%s\n", text.c_str());
  return kBadInput;
}

/// The parameters that count instead of the trace's.
nlohmann::json setInstead() {
  const char* text = std::getenv("VELMOR_SET");
  nlohmann::json set = nlohmann::json::parse(text == nullptr ? "{}" : text, nullptr, false);
  if (!set.is_object()) throw std::runtime_error("VELMOR_SET is no JSON object of parameters");
  return set;
}

}  // namespace

int main() {
  openlog(g_app_name.c_str(), LOG_PID | LOG_CONS, LOG_USER);
  init_terminate();
  init_signals();
  const char* path = std::getenv("VELMOR_RETRACE");
  if (path == nullptr) return fail("VELMOR_RETRACE is not set; name a trace in it");
  ticker_clock::setReplayTime(TimeStamp());
  if (!init_rules()) return kBadInput;
  startTrace();
  try {
    TracedPoses trace(path);
    const nlohmann::json set_instead = setInstead();
    for (TracedCycle cycle; trace.next(cycle);) {
      if (cycle.settings) applySettings(*cycle.settings, set_instead);
      analyse(cycle);
    }
    // The launcher has read the trace before, and has told it.
    const bool is_started_by_hand = std::getenv("VELMOR_STARTED_FD") == nullptr;
    if (is_started_by_hand && !trace.gap().empty()) std::fprintf(stderr, "%s\n", trace.gap().c_str());
  } catch (const std::exception& error) {
    return fail(error.what());
  }
  endTrace();
  closelog();
  return 0;
}
