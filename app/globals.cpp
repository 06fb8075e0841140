// All process-wide objects, in the order in which they are constructed.
#include "analysis/FindingsHistory.h"
#include "analysis/area_of_interest.h"
#include "analysis/tracker.h"
#include "app/calibration_params.h"
#include "app/detection_params.h"
#include "app/floor_params.h"
#include "app/initial_params.h"
#include "app/observer.h"
#include "app/process_state.h"
#include "config/parameter_controller.h"
#include "events/event_manager.h"
#include "geometry/calibrator.h"
#include "geometry/distance_controller.h"
#include "overlay/overlay_manager.h"
#include "pose/BodypixPoseEstimator.h"
#include "pose/skeleton.h"
#include "validation/Validator.h"
#include "video/VideoStreamSource.h"

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
_DetectionParams g_DetectionParams;
EventManager* g_EventManager;
AnalysisObserver* g_observer;

const std::string g_app_name = "velmor_care";
_CalibrationParams g_CalibrationParams;
_InitialParams g_InitialParams;
_FloorParams g_FloorParams;
parameter_controller g_ParameterController;
Distance_Controller g_DistanceController;
area_of_interest g_AreaofInterest;
tracker g_Tracker;
std::unique_ptr<OverlayManager> g_overlayManager;
std::unique_ptr<BodypixPoseEstimator> g_bodypixPoseEstimatorNS;
std::unique_ptr<BodypixPoseEstimator> g_bodypixPoseEstimatorEW;
std::unique_ptr<VideoStreamSource> g_videoStreamSource;
Skeletons g_skeletons;
FindingsHistory g_findingsHistory(12);
Calibrator g_calibrator;
Validator g_validator;
