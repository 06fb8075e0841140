#include "config/apply_settings.h"

#include "app/calibration_params.h"
#include "app/detection_params.h"
#include "config/parameter_controller.h"
#include "geometry/calibrator.h"
#include "geometry/distance_controller.h"
#include "overlay/overlay_manager.h"

void select_streams() {
  constexpr const char* kNoStream = "0x0";
  const _CalibrationParams& params = g_CalibrationParams;
  OverlayManager::SetOverlayStreamResolutionFromString(params.b_DetectionOverlaysOn ? params.str_DetectionOverlay
                                                                                    : kNoStream);
  OverlayManager::SetAnonymizedStreamResolutionFromString(params.b_AnonOverlaysOn ? params.str_AnonOverlay : kNoStream);
}

void show_stakes() {
  g_calibrator.setSize(g_DetectionParams.f_WRectM, g_DetectionParams.f_HRectM);
  g_calibrator.setRender(g_CalibrationParams.b_ShowCalibrationMarkers);
}

Quad floor_quad() {
  // The stored points go red, green, blue, yellow; the calibration goes the other way around from the red one.
  const auto point = [](int element) { return static_cast<float>(g_DetectionParams.i_FallCalibration[element]); };
  return {point(0), point(1), point(6), point(7), point(4), point(5), point(2), point(3)};
}

bool calibrate_floor() {
  return g_DistanceController.calibrate(g_ParameterController.findProdShortName(), floor_quad(),
                                        g_DetectionParams.f_WRectM, g_DetectionParams.f_HRectM);
}
