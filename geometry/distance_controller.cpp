#include "geometry/distance_controller.h"

#include <syslog.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "app/process_state.h"
#include "app/truncate.h"
#include "geometry/shell_command.h"
#include "video/VideoStreamSource.h"

namespace {

constexpr float kSmallestDeterminant = 0.0001F;
constexpr std::size_t kMostViews = 50;  // of the chessboard
constexpr double kClearTaper = 1.05;    // about 10 degrees of slant at three times the board's width
/// Nobody is watched while the lens is asked; it answers within milliseconds.
constexpr std::chrono::seconds kLensPatience{10};
constexpr const char* kFocalLengthQuery =
    "busctl --verbose get-property com.axis.Optics2 /com/axis/Optics0 com.axis.Iris1 FocalLength";

bool isFinite(const Matrix3x3& m) {
  return std::all_of(m.p.begin(), m.p.end(), [](float value) { return std::isfinite(value); });
}

bool isFinite(const cv::Mat& m) { return cv::checkRange(m); }

/// solvePnP of the four corners; false when it finds no pose or refuses its input.
bool findPose(const std::vector<cv::Point3f>& objectPoints, const std::vector<cv::Point2f>& imagePoints,
              const cv::Mat& cameraMatrix, const cv::Mat& distCoeffs, cv::Mat& rotation, cv::Mat& translation) {
  try {
    return cv::solvePnP(objectPoints, imagePoints, cameraMatrix, distCoeffs, rotation, translation);
  } catch (const cv::Exception& e) {
    syslog(LOG_INFO, "calculate_world_to_screen_transformations: %s", e.what());
    return false;
  }
}

/// The corners' places on the board in metres.
std::vector<cv::Point3f> boardPoints(const cv::Size& board, float squareSize) {
  std::vector<cv::Point3f> points;
  for (int row = 0; row < board.height; ++row) {
    for (int column = 0; column < board.width; ++column) {
      points.emplace_back(static_cast<float>(column) * squareSize, static_cast<float>(row) * squareSize, 0.0F);
    }
  }
  return points;
}

/// Whether of two opposite edges one is seen clearly longer than the other.
bool isTapered(const cv::Point2f& edge, const cv::Point2f& opposite) {
  const auto [shorter, longer] = std::minmax({cv::norm(edge), cv::norm(opposite)});
  return longer > kClearTaper * shorter;
}

/// Each focal length needs a view with a slant about the other axis: a board seen from the front can be of any size.
bool showSlant(const std::vector<std::vector<cv::Point2f>>& views, const cv::Size& board) {
  const auto last = static_cast<std::size_t>(board.width) - 1;
  return std::any_of(
             views.begin(), views.end(),
             [last](const auto& v) { return isTapered(v[last] - v.front(), v.back() - v[v.size() - 1 - last]); }) &&
         std::any_of(views.begin(), views.end(), [last](const auto& v) {
           return isTapered(v[v.size() - 1 - last] - v.front(), v.back() - v[last]);
         });
}

}  // namespace

Distance_Controller::Distance_Controller()
    : m_sensorDimensions{{"AXIS P3255-LVE", {6.34F, 3.53F}}, {"AXIS Q1615 Mk III", {6.34F, 3.53F}},
                         {"AXIS Q1715", {6.34F, 3.53F}},     {"AXIS Q1656", {8.1F, 4.51F}},
                         {"AXIS Q1656-B", {8.1F, 4.51F}},    {"AXIS Q1656-BE", {8.1F, 4.51F}},
                         {"AXIS Q1656-BLE", {8.1F, 4.51F}},  {"AXIS Q1656-LE", {8.1F, 4.51F}},
                         {"AXIS P3268-LV", {8.1F, 4.51F}},   {"AXIS P3268-LVE", {8.1F, 4.51F}},
                         {"AXIS P3265-LV", {6.34F, 4.51F}},  {"AXIS P3265-LVE", {6.34F, 4.51F}},
                         {"AXIS P3265-V", {6.34F, 4.51F}},   {"AXIS Q3536-LVE", {8.1F, 4.51F}},
                         {"AXIS Q3538-LVE", {10.67F, 8.0F}}} {}

std::string Distance_Controller::exec(const char* command) { return outputOf(command, kLensPatience); }

int Distance_Controller::getFocalLength() {
  std::string output;
  try {
    output = exec(kFocalLengthQuery);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error("the lens cannot be asked for its focal length (busctl): " + std::string(error.what()));
  }
  const auto problem = [&output] {
    return "busctl answers \"" + output + "\" instead of the focal length of the lens";
  };
  try {
    // "UINT32 3700;" and a line feed: the type goes, the number's end is found by the conversion.
    return std::stoi(output.substr(7, output.size() - 8));
  } catch (const std::invalid_argument&) {
    throw std::invalid_argument(problem());
  } catch (const std::out_of_range&) {
    throw std::out_of_range(problem());
  }
}

Quad Distance_Controller::get_target(float w, float h) { return {0, 0, 0, h, w, h, w, 0}; }

float Distance_Controller::determinant_check(Quad q) {
  return q.x0 * (q.y1 - q.y3) - q.x1 * (q.y0 - q.y3) + q.x2 * (q.y0 - q.y1);
}

bool Distance_Controller::is_degenerate(const Quad& source) {
  return std::abs(determinant_check(source)) < kSmallestDeterminant ||
         !isFinite(CreatePerspectiveTransformMatrix(source, get_target(1, 1)));
}

bool Distance_Controller::calibrate(const std::string& prodShortName, Quad source, float wRectM, float hRectM) {
  const int focalLength = getFocalLength();
  syslog(LOG_INFO, "Distance_Controller::calibrate focalLength %d", focalLength);
  const Quad target = get_target(wRectM, hRectM);
  const Matrix3x3 transform = CreatePerspectiveTransformMatrix(source, target);
  if (is_degenerate(source) || !isFinite(transform)) {
    syslog(LOG_ERR, "Degenerate Matrix");
    return false;
  }
  homography = transform;
  syslog(LOG_INFO, "Calibrating... source(%d, %d, %d, %d, %d, %d, %d, %d) target(%d, %d, %d, %d, %d, %d, %d, %d)",
         truncateToInt(source.x0), truncateToInt(source.y0), truncateToInt(source.x1), truncateToInt(source.y1),
         truncateToInt(source.x2), truncateToInt(source.y2), truncateToInt(source.x3), truncateToInt(source.y3),
         truncateToInt(target.x0), truncateToInt(target.y0), truncateToInt(target.x1), truncateToInt(target.y1),
         truncateToInt(target.x2), truncateToInt(target.y2), truncateToInt(target.x3), truncateToInt(target.y3));
  m_focalLength = focalLength;
  calculate_camera_matrix(prodShortName, focalLength);
  if (!calculate_world_to_screen_transformations(source, wRectM, hRectM)) {
    syslog(LOG_ERR, "Distance_Controller::calibrate failed to calculate_world_to_screen_transformations.");
    return false;
  }
  m_calibrated = true;
  return true;
}

void Distance_Controller::calculate_camera_matrix(const std::string& prodShortName, int focalLengthMicrons) {
  std::pair<float, float> sensor{6.2F, 3.5F};
  if (const auto entry = m_sensorDimensions.find(prodShortName); entry != m_sensorDimensions.end()) {
    sensor = entry->second;
  }
  const auto [sensorWidth, sensorHeight] = sensor;
  syslog(LOG_INFO, "calculate_camera_matrix: sensorDimensions found for %s, width=%f, height=%f", prodShortName.c_str(),
         static_cast<double>(sensorWidth), static_cast<double>(sensorHeight));
  const double focalLengthMm = focalLengthMicrons / 1000.0;
  // A camera turned by a quarter lays its sensor's height along the picture's width.
  const double fx = g_StreamWidth * focalLengthMm / static_cast<double>(g_IsPortrait ? sensorHeight : sensorWidth);
  const double fy = g_StreamHeight * focalLengthMm / static_cast<double>(g_IsPortrait ? sensorWidth : sensorHeight);
  syslog(LOG_INFO, "FocalLengthInMicrons : %d", focalLengthMicrons);
  syslog(LOG_INFO, "FocalLengthInMM      : %f", focalLengthMm);
  syslog(LOG_INFO, "X_FocalLengthInPixels  : %f", fx);
  syslog(LOG_INFO, "Y_FocalLengthInPixels  : %f", fy);
  m_cameraMatrix = (cv::Mat_<float>(3, 3) << static_cast<float>(fx), 0.0F, static_cast<float>(g_StreamWidth) / 2.0F,
                    0.0F, static_cast<float>(fy), static_cast<float>(g_StreamHeight) / 2.0F, 0.0F, 0.0F, 1.0F);
  m_distCoeffs = cv::Mat::zeros(1, 5, CV_32F);
}

bool Distance_Controller::calculate_world_to_screen_transformations(const Quad& source, float wRectM, float hRectM) {
  const std::vector<cv::Point3f> objectPoints{{0, 0, 0}, {wRectM, 0, 0}, {wRectM, hRectM, 0}, {0, hRectM, 0}};
  const std::vector<cv::Point2f> imagePoints{
      {source.x0, source.y0}, {source.x3, source.y3}, {source.x2, source.y2}, {source.x1, source.y1}};
  cv::Mat rotation;
  cv::Mat translation;
  if (!findPose(objectPoints, imagePoints, m_cameraMatrix, m_distCoeffs, rotation, translation)) {
    return false;
  }
  if (!isFinite(rotation) || !isFinite(translation)) {
    syslog(LOG_ERR, "Degenerate Matrix");
    return false;
  }
  m_rotationVec = rotation;
  m_translationVec = translation;
  return true;
}

cv::Point3f Distance_Controller::screen_point_to_world_floor(const cv::Point2f& screenPoint) const {
  const Vector3 v = ApplyTransform(homography, screenPoint.x, screenPoint.y);
  return {v(0), v(1), v(2)};
}

cv::Point2f Distance_Controller::world_to_screen_point(const cv::Point3f& worldPoint) const {
  std::vector<cv::Point2f> projected;
  cv::projectPoints(std::vector<cv::Point3f>{worldPoint}, m_rotationVec, m_translationVec, m_cameraMatrix, m_distCoeffs,
                    projected, cv::noArray(), 0);
  return projected.front();
}

bool Distance_Controller::detect_chessboard(ImageFrameSource& source, std::vector<cv::Point2f>& corners) {
  cv::Mat picture(g_StreamHeight, g_StreamWidth, CV_8UC3);
  source.setDirty();
  if (!source.getFrame(g_StreamHeight, g_StreamWidth, 0, picture.data)) {
    syslog(LOG_ERR, "Distance_Controller::detect_chessboard no picture");
    return false;
  }
  cv::Mat gray;
  cv::cvtColor(picture, gray, cv::COLOR_RGB2GRAY);
  // The fast check keeps a picture without a board from holding up the next cycle.
  constexpr int kFlags = cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_NORMALIZE_IMAGE | cv::CALIB_CB_FAST_CHECK;
  if (!cv::findChessboardCorners(gray, m_boardSize, corners, kFlags)) {
    syslog(LOG_INFO, "Distance_Controller::detect_chessboard no board of %d x %d inner corners in the picture",
           m_boardSize.width, m_boardSize.height);
    return false;
  }
  const cv::TermCriteria untilSteady(cv::TermCriteria::EPS | cv::TermCriteria::COUNT, 30, 0.01);
  cv::cornerSubPix(gray, corners, cv::Size(5, 5), cv::Size(-1, -1), untilSteady);
  return true;
}

bool Distance_Controller::find_pattern(ImageFrameSource& source) {
  std::vector<cv::Point2f> corners;
  if (!detect_chessboard(source, corners)) {
    return false;
  }
  if (m_imagePointsForLogIntrinsic.size() == kMostViews) {
    m_imagePointsForLogIntrinsic.erase(m_imagePointsForLogIntrinsic.begin());
    m_objectPointsForLogIntrinsic.erase(m_objectPointsForLogIntrinsic.begin());
  }
  m_imagePointsForLogIntrinsic.push_back(std::move(corners));
  m_objectPointsForLogIntrinsic.push_back(boardPoints(m_boardSize, m_squareSize));
  syslog(LOG_INFO, "Distance_Controller::find_pattern views of the chessboard: %zu",
         m_imagePointsForLogIntrinsic.size());
  return true;
}

bool Distance_Controller::log_intrinsic_matrix(ImageFrameSource& source) {
  find_pattern(source);
  if (m_imagePointsForLogIntrinsic.empty()) {
    syslog(LOG_ERR, "Distance_Controller::log_intrinsic_matrix no view of the chessboard yet");
    return false;
  }
  const cv::Mat matrix = cv::initCameraMatrix2D(m_objectPointsForLogIntrinsic, m_imagePointsForLogIntrinsic,
                                                cv::Size(g_StreamWidth, g_StreamHeight), 0);
  if (!showSlant(m_imagePointsForLogIntrinsic, m_boardSize) || !isFinite(matrix)) {
    syslog(LOG_ERR, "Distance_Controller::log_intrinsic_matrix the views do not tell: slant the chessboard both ways");
    return false;
  }
  for (int row = 0; row < matrix.rows; ++row) {
    syslog(LOG_INFO, "Distance_Controller::log_intrinsic_matrix %f %f %f", matrix.at<double>(row, 0),
           matrix.at<double>(row, 1), matrix.at<double>(row, 2));
  }
  return true;
}
