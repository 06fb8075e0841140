// Settings that the installer may change at any time.
#pragma once

#include <string>

/// Filled from the parameter store; holds no defaults of its own.
struct _CalibrationParams {
  float f_Sensitivity = 0.0F;             ///< score, 0 to 1, that a skeleton and a confirmed person must exceed
  int i_MaxDisappeared = 0;               ///< cycles that a tracked person may be missing before being dropped
  bool b_DetectionOverlaysOn = false;     ///< draw the findings on a stream
  bool b_AnonOverlaysOn = false;          ///< draw anonymising masks on a stream
  std::string str_DetectionOverlay;       ///< stream of the findings, "1280x720"
  std::string str_AnonOverlay;            ///< stream of the masks, "1280x720"
  bool b_ShowCalibrationMarkers = false;  ///< draw the calibration stakes
};

extern _CalibrationParams g_CalibrationParams;
