#include "app/lifecycle/analysis_cycle.h"

#include <syslog.h>

#include <chrono>

#include "analysis/detection_processing.h"
#include "app/calibration_params.h"
#include "app/observer.h"
#include "app/process_state.h"
#include "app/status.h"
#include "events/event_manager.h"
#include "events/event_names.h"
#include "overlay/overlay_manager.h"
#include "pose/BodypixPoseEstimator.h"
#include "pose/skeleton_fusion.h"
#include "validation/Validator.h"
#include "video/VideoStreamSource.h"

namespace {

/// The cycles completed so far; numbers the pictures in error messages.
int nFrames = 0;

/// A cycle that takes this many timer periods counts as too slow.
constexpr int kOverloadPeriods = 3;

/// Runs a model at one rotation; false after logging `failure`, a format for the picture's number.
bool findSkeletons(BodypixPoseEstimator& estimator, int rotation, const char* failure, Skeletons& skeletons) {
  if (!estimator.runModel(*g_videoStreamSource, rotation)) {
    syslog(LOG_ERR, failure, nFrames);
    g_StatusCode = status::kModelError;
    return false;
  }
  skeletons = estimator.getSkeletons();
  return true;
}

/// The status after a complete cycle; g_ExecutionTime is still that of the cycle before.
int decideStatus() {
  if (g_ExecutionTime >= kOverloadPeriods * g_main_loop_time) {
    return status::kSlow;
  }
  if (g_EventManager->isEventStarted(kOutOfBedEvent)) {
    return status::kOutOfBed;
  }
  return g_EventManager->isEventStarted(kFallEvent) ? status::kFallen : status::kRunning;
}

}  // namespace

bool find_people() {
  Skeletons northSkeletons;
  Skeletons southSkeletons;
  Skeletons westSkeletons;
  Skeletons eastSkeletons;
  g_videoStreamSource->setDirty();
  if (!findSkeletons(*g_bodypixPoseEstimatorNS, 0, "Error running model for frame %d", northSkeletons) ||
      !findSkeletons(*g_bodypixPoseEstimatorNS, 180, "Error running model for 180 degree rotated frame %d",
                     southSkeletons)) {
    return false;
  }
  g_validator.validateAndRemove(southSkeletons, g_StreamWidth, g_StreamHeight);
  if (!findSkeletons(*g_bodypixPoseEstimatorEW, 90, "Error running portrait model for 90 degree rotated frame %d",
                     westSkeletons) ||
      !findSkeletons(*g_bodypixPoseEstimatorEW, 270, "Error running portrait model for 270 degree rotated frame %d",
                     eastSkeletons)) {
    return false;
  }
  g_skeletons.clear();
  g_skeletons = combineSkeletons(northSkeletons, eastSkeletons, southSkeletons, westSkeletons,
                                 g_CalibrationParams.f_Sensitivity, g_modelWidth, g_modelHeight);
  return true;
}

void decide() {
  DetectionProcessing::monitor_AOI();
  DetectionProcessing::fallen_detection();
  DetectionProcessing::manage_events();
}

int do_one_analysis() {
  using std::chrono::system_clock;
  const auto tInitial = system_clock::now();
  if (g_observer != nullptr) g_observer->cycleBegan();
  if (!find_people()) {
    if (g_observer != nullptr) g_observer->cycleEnded(false);
    return 1;
  }
  decide();
  g_overlayManager->renderFindings();  // without an overlay the program still watches
  g_StatusCode = decideStatus();
  g_ExecutionTime =
      static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(system_clock::now() - tInitial).count());
  ++nFrames;
  if (g_observer != nullptr) g_observer->cycleEnded(true);
  return 0;
}
