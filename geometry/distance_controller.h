// The floor calibration: picture positions to floor positions in metres, and world positions back into the picture.
#pragma once

#include <map>
#include <opencv2/core.hpp>
#include <string>
#include <utility>

#include "geometry/perspective_transform.h"

/// World coordinates are metres on the floor with the axes along the calibration rectangle: the first corner is the
/// origin, x runs along its width, y along its height; z is 0 on the floor and negative above it.
class Distance_Controller {
 public:
  Distance_Controller();

  /// Calibrates from the floor rectangle's corners in the analysis picture. `source` goes around the rectangle from its
  /// first corner along the height side; the rectangle measures wRectM x hRectM metres. `prodShortName` selects the
  /// sensor's size. False after a log line when no usable mapping results; an earlier calibration then stays in use as
  /// far as the failed steps have not replaced it. Throws when the lens does not tell its focal length.
  bool calibrate(const std::string& prodShortName, Quad source, float wRectM, float hRectM);
  bool isCalibrated() const { return m_calibrated; }

  /// The floor position under a picture position. The third element is always 1.
  cv::Point3f screen_point_to_world_floor(const cv::Point2f& screenPoint) const;
  /// Where a world position appears in the picture. Needs a successful calibration.
  cv::Point2f world_to_screen_point(const cv::Point3f& worldPoint) const;

  /// The lens's focal length in micrometres, asked from the camera over D-Bus. Throws when the answer is not a number.
  int getFocalLength();
  /// The floor rectangle in metres with its corners in the order that `calibrate` expects of its source.
  Quad get_target(float w, float h);
  /// Vanishes for quads that cannot be calibrated.
  float determinant_check(Quad q);
  /// Runs a shell command and returns what it wrote to standard output.
  std::string exec(const char* command);

 private:
  void calculate_camera_matrix(const std::string& prodShortName, int focalLengthMicrons);
  bool calculate_world_to_screen_transformations(const Quad& source, float wRectM, float hRectM);

  Matrix3x3 homography;
  cv::Mat m_rotationVec;
  cv::Mat m_translationVec;
  cv::Mat m_cameraMatrix;
  cv::Mat m_distCoeffs;
  bool m_calibrated = false;
  std::map<std::string, std::pair<float, float>> m_sensorDimensions;  // width, height in mm
};

extern Distance_Controller g_DistanceController;
