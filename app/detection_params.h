// The installer's areas, switches and floor calibration points.
#pragma once

/// Filled from the parameter store; holds no defaults of its own. Coordinates are pixels of the analysis picture in the
/// order x1, y1, x2, y2, ...
struct _DetectionParams {
  int i_Detection1[16] = {};  ///< bed area 1: four corners in elements 0 to 7, the rest is reserved
  int i_Detection2[16] = {};
  int i_Detection3[16] = {};
  bool b_Detection1Active = false;
  bool b_Detection2Active = false;
  bool b_Detection3Active = false;
  bool b_DetectPatientOutOfBed = false;
  bool b_DetectFallenPersons = false;
  int i_Exclusion1[8] = {};  ///< persons in here are ignored
  int i_Exclusion2[8] = {};
  int i_Exclusion3[8] = {};
  bool b_Exclusion1Active = false;
  bool b_Exclusion2Active = false;
  bool b_Exclusion3Active = false;
  int i_FallCalibration[8] = {};  ///< four floor points: red, green, blue, yellow
  float f_WRectM = 0.0F;          ///< width of the floor rectangle that they mark, metres
  float f_HRectM = 0.0F;          ///< depth of that rectangle, metres
};

extern _DetectionParams g_DetectionParams;
