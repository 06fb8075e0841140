// All process-wide objects, in the order in which they are constructed.
#include "app/calibration_params.h"
#include "app/detection_params.h"
#include "app/floor_params.h"
#include "app/initial_params.h"
#include "app/process_state.h"

int g_main_loop_time = 500;
int g_StatusCode;
int g_ExecutionTime;
unsigned int g_ThreadID;
int g_StreamWidth;
int g_StreamHeight;
bool g_IsPortrait;
bool g_IsDevMode;
int g_modelWidth;
int g_modelHeight;

const std::string g_app_name = "velmor_care";
_CalibrationParams g_CalibrationParams;
_InitialParams g_InitialParams;
_DetectionParams g_DetectionParams;
_FloorParams g_FloorParams;
