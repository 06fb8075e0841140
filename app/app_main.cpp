// velmor_care: watches a patient's room and raises "Patient Out of Bed" and "Fall Detected".
#include <syslog.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <opencv2/core/version.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <string_view>

#include "app/analysis_cycle.h"
#include "app/initial_params.h"
#include "app/package_path.h"
#include "app/process_state.h"
#include "app/shutdown.h"
#include "app/startup.h"
#include "config/parameter_controller.h"
#include "config/parameter_io.h"
#include "platform/clock/clock.h"
#include "pose/BodypixPoseEstimator.h"
#include "validation/Validator.h"
#include "video/VideoStreamSource.h"

namespace {

/// A pose whose mean keypoint score lies below this is no person.
constexpr float kPoseThreshold = 0.15F;
/// A limb is drawn only between keypoints that score above this.
constexpr float kKeypointThreshold = 0.3F;
constexpr const char* kPackageDirectory = "/usr/local/packages/velmor_care/";

/// Uses the image library once, so that a broken installation shows at start and not in the first cycle.
void exerciseImageLibrary() {
  syslog(LOG_INFO, "OpenCV version: %s (%d.%d.%d)", CV_VERSION, CV_VERSION_MAJOR, CV_VERSION_MINOR,
         CV_VERSION_REVISION);
  cv::Mat blurred;
  cv::GaussianBlur(cv::Mat::zeros(3, 3, CV_32F), blurred, cv::Size(3, 3), 0);
  const cv::Ptr<cv::SIFT> detector = cv::SIFT::create();
  const cv::FlannBasedMatcher matcher(cv::makePtr<cv::flann::KDTreeIndexParams>(),
                                      cv::makePtr<cv::flann::SearchParams>());
}

std::unique_ptr<BodypixPoseEstimator> makeEstimator(const std::string& modelFileName) {
  auto estimator = std::make_unique<BodypixPoseEstimator>(packagePath(kPackageDirectory) + modelFileName);
  estimator->setPoseThreshold(kPoseThreshold);
  estimator->setKeypointThreshold(kKeypointThreshold);
  return estimator;
}

/// 0 on success, -1 after a log line. Throws when a model or the camera's stream cannot be opened.
int init_ai() {
  exerciseImageLibrary();
  const std::string& landscape = g_InitialParams.s_LandscapeModelFileName;
  const std::string& portrait = g_InitialParams.s_PortraitModelFileName;
  // NS holds the model for the upright picture, EW that for the picture turned by a quarter.
  g_bodypixPoseEstimatorNS = makeEstimator(g_IsPortrait ? portrait : landscape);
  g_bodypixPoseEstimatorEW = makeEstimator(g_IsPortrait ? landscape : portrait);
  init_stream_size();
  g_bodypixPoseEstimatorNS->getModelSize(g_modelWidth, g_modelHeight);
  syslog(LOG_INFO, "init_ai Model size (WxH): %d x %d", g_modelWidth, g_modelHeight);
  g_videoStreamSource = std::make_unique<VideoStreamSource>(720, 1280, g_ParameterController.get_rotation());
  if (!g_validator.init(g_app_name)) {
    syslog(LOG_ERR, "init_ai Validator init failed");
    return -1;
  }
  return 0;
}

/// For somebody who watches a live run in a terminal: one line for each change of the status.
void printStatusChange() {
  static const bool wanted = [] {
    const char* output = std::getenv("VELMOR_OUTPUT");
    return output != nullptr && std::string_view(output) == "text" && !ticker_clock::isReplay();
  }();
  static int printedStatus = 0;
  if (!wanted || g_StatusCode == printedStatus) {
    return;
  }
  printedStatus = g_StatusCode;
  const std::time_t now = std::chrono::system_clock::to_time_t(
      std::chrono::time_point_cast<std::chrono::system_clock::duration>(ticker_clock::now()));
  std::tm local{};
  localtime_r(&now, &local);
  char time[16];
  std::strftime(time, sizeof time, "%H:%M:%S", &local);
  std::printf("%s  status %d  %s\n", time, g_StatusCode, parameter_io::status_to_string(g_StatusCode).c_str());
  std::fflush(stdout);
}

gboolean thread_function(void* /*data*/) {
  do_one_analysis();
  printStatusChange();
  return G_SOURCE_CONTINUE;
}

int failStart(const char* text) {
  syslog(LOG_ERR, "%s", text);
  g_StatusCode = 401;
  return -1;
}

}  // namespace

int main() {
  openlog(g_app_name.c_str(), LOG_PID | LOG_CONS, LOG_USER);
  init_terminate();
  g_StatusCode = 100;
  init_signals();
  init_parameter_controller();
  if (init_ai() != 0) {
    return failStart("Failed init_ai\n");
  }
  init_event_manager();
  if (!init_3D()) {
    return failStart("Failed init_3D\n");
  }
  init_tracking();
  deliverSigtermWhileWaiting();
  gp_Loop = g_main_loop_new(nullptr, FALSE);
  g_ThreadID = ticker_clock::addTicker(static_cast<guint>(g_main_loop_time), thread_function, nullptr);
  g_main_loop_run(gp_Loop);
  closelog();
  return 0;
}
