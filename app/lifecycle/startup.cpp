#include "app/lifecycle/startup.h"

#include <syslog.h>

#include <cmath>
#include <memory>
#include <string>
#include <utility>

#include "analysis/area_of_interest.h"
#include "analysis/tracker.h"
#include "app/process_state.h"
#include "config/apply_settings.h"
#include "config/parameter_controller.h"
#include "config/parameter_io.h"
#include "events/event_manager.h"
#include "events/event_names.h"
#include "geometry/distance_controller.h"
#include "overlay/overlay_manager.h"

namespace {

bool isPortrait(int rotation) { return rotation == 90 || rotation == 270; }

/// A line for each side of the floor's rectangle that no rectangle has; whether there was none. With a negative one the
/// calibration succeeds, and the floor is the wrong way round.
bool checkMetres() {
  bool areGood = true;
  for (const auto& [key, metres] : {std::pair{"WRectM", static_cast<double>(g_DetectionParams.f_WRectM)},
                                    {"HRectM", static_cast<double>(g_DetectionParams.f_HRectM)}}) {
    if (!std::isfinite(metres) || metres <= 0) {
      syslog(LOG_ERR, "%s is %f: must be above 0; until the floor is saved again, falls may be missed", key, metres);
      areGood = false;
    }
  }
  return areGood;
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
  show_stakes();
}

void init_stream_size() {
  const bool portrait = isPortrait(g_ParameterController.get_rotation());
  g_StreamWidth = portrait ? 720 : 1280;
  g_StreamHeight = portrait ? 1280 : 720;
}

void init_overlay_manager() {
  g_overlayManager = std::make_unique<OverlayManager>();
  select_streams();
}

void init_event_manager() {
  g_EventManager = new EventManager;
  for (const char* name : kEvents) {
    g_EventManager->addEvent(name);
  }
}

bool init_3D() {
  const bool calibrated = calibrate_floor();
  const bool areMetresGood = checkMetres();
  if (!calibrated && (areMetresGood || g_DistanceController.is_degenerate(floor_quad()))) {
    syslog(LOG_ERR, "FallCalibration0x .. FallCalibration3y: the four points cannot be a rectangle on the floor");
  }
  return calibrated;
}

void init_tracking() {
  g_Tracker.init(g_CalibrationParams.i_MaxDisappeared);
  g_AreaofInterest.init();
}

bool init_rules() {
  init_parameter_controller();
  init_stream_size();
  init_event_manager();
  if (!init_3D()) {
    syslog(LOG_ERR, "Failed init_3D\n");
    return false;
  }
  init_tracking();
  return true;
}
