#include "app/startup.h"

#include <syslog.h>

#include <cmath>
#include <memory>
#include <string>
#include <utility>

#include "analysis/area_of_interest.h"
#include "analysis/tracker.h"
#include "app/process_state.h"
#include "config/parameter_controller.h"
#include "config/parameter_io.h"
#include "events/event_manager.h"
#include "geometry/calibrator.h"
#include "geometry/distance_controller.h"
#include "overlay/overlay_manager.h"

namespace {

bool isPortrait(int rotation) { return rotation == 90 || rotation == 270; }

/// After a failed calibration: a line for each setting that is at fault.
void logFloorFaults(const Quad& quad) {
  bool areMetresGood = true;
  for (const auto& [key, metres] : {std::pair{"WRectM", static_cast<double>(g_DetectionParams.f_WRectM)},
                                    {"HRectM", static_cast<double>(g_DetectionParams.f_HRectM)}}) {
    if (!std::isfinite(metres) || metres <= 0) {
      syslog(LOG_ERR, "%s is %f: must be above 0", key, metres);
      areMetresGood = false;
    }
  }
  if (areMetresGood || g_DistanceController.is_degenerate(quad)) {
    syslog(LOG_ERR, "FallCalibration0x .. FallCalibration3y: the four points cannot be a rectangle on the floor");
  }
}

}  // namespace

void init_parameter_controller() {
  g_ParameterController.init_controller(g_app_name);
  g_CalibrationParams = g_ParameterController.load_calibration();
  g_InitialParams = g_ParameterController.load_initial_params();
  g_DetectionParams = g_ParameterController.load_detection_params();
  g_FloorParams = g_ParameterController.load_floor_params();
  parameter_io::store_points_into_AOI();
  parameter_io::store_points_into_exclusions();
  if (isPortrait(g_ParameterController.get_rotation())) {
    g_IsPortrait = true;
  }
  g_IsDevMode = false;
  g_calibrator.setSize(g_DetectionParams.f_WRectM, g_DetectionParams.f_HRectM);
  g_calibrator.setRender(g_CalibrationParams.b_ShowCalibrationMarkers);
}

void init_stream_size() {
  const bool portrait = isPortrait(g_ParameterController.get_rotation());
  g_StreamWidth = portrait ? 720 : 1280;
  g_StreamHeight = portrait ? 1280 : 720;
}

void init_overlay_manager() {
  constexpr const char* kNoStream = "0x0";
  const _CalibrationParams& params = g_CalibrationParams;
  g_overlayManager = std::make_unique<OverlayManager>();
  g_overlayManager->SetOverlayStreamResolutionFromString(params.b_DetectionOverlaysOn ? params.str_DetectionOverlay
                                                                                      : kNoStream);
  g_overlayManager->SetAnonymizedStreamResolutionFromString(params.b_AnonOverlaysOn ? params.str_AnonOverlay
                                                                                    : kNoStream);
}

void init_event_manager() {
  g_EventManager = new EventManager;
  g_EventManager->addEvent("Patient Out of Bed");
  g_EventManager->addEvent("Fall Detected");
}

bool init_3D() {
  // The stored points go clockwise from red; the calibration goes the other way around from the same first corner.
  const auto corner = [](int element) { return static_cast<float>(g_DetectionParams.i_FallCalibration[element]); };
  const Quad quad(corner(0), corner(1), corner(6), corner(7), corner(4), corner(5), corner(2), corner(3));
  const std::string prod = g_ParameterController.findProdShortName();
  if (g_DistanceController.calibrate(prod, quad, g_DetectionParams.f_WRectM, g_DetectionParams.f_HRectM)) {
    return true;
  }
  logFloorFaults(quad);
  return false;
}

void init_tracking() {
  g_Tracker.init(g_CalibrationParams.i_MaxDisappeared);
  g_AreaofInterest.init();
}
