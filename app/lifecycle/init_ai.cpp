#include "app/lifecycle/init_ai.h"

#include <syslog.h>

#include <memory>
#include <opencv2/core/version.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>
#include <string>

#include "app/initial_params.h"
#include "app/lifecycle/startup.h"
#include "app/process_state.h"
#include "config/parameter_controller.h"
#include "platform/support/package_path.h"
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

std::string inPackage(const std::string& modelFileName) { return packagePath(kPackageDirectory) + modelFileName; }

}  // namespace

std::unique_ptr<BodypixPoseEstimator> makeEstimator(const std::string& modelFilepath) {
  auto estimator = std::make_unique<BodypixPoseEstimator>(modelFilepath);
  estimator->setPoseThreshold(kPoseThreshold);
  estimator->setKeypointThreshold(kKeypointThreshold);
  return estimator;
}

int init_ai() {
  exerciseImageLibrary();
  const std::string& landscape = g_InitialParams.s_LandscapeModelFileName;
  const std::string& portrait = g_InitialParams.s_PortraitModelFileName;
  // NS holds the model for the upright picture, EW that for the picture turned by a quarter.
  g_bodypixPoseEstimatorNS = makeEstimator(inPackage(g_IsPortrait ? portrait : landscape));
  g_bodypixPoseEstimatorEW = makeEstimator(inPackage(g_IsPortrait ? landscape : portrait));
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
