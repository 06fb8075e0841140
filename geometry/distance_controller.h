// The floor calibration: picture positions to floor positions in metres, and world positions back into the picture.
#pragma once

#include <map>
#include <opencv2/core.hpp>
#include <string>
#include <utility>
#include <vector>

#include "geometry/perspective_transform.h"

class ImageFrameSource;

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
  /// Of the last calibration, in micrometres; 0 before.
  int focalLengthInUse() const { return m_focalLength; }

  /// The floor position under a picture position. The third element is always 1.
  cv::Point3f screen_point_to_world_floor(const cv::Point2f& screenPoint) const;
  /// Where a world position appears in the picture. Needs a successful calibration.
  cv::Point2f world_to_screen_point(const cv::Point3f& worldPoint) const;

  /// The lens's focal length in micrometres, asked from the camera over D-Bus. Throws when there is no
  /// answer within seconds, or none that is a number.
  int getFocalLength();
  /// The floor rectangle in metres with its corners in the order that `calibrate` expects of its source.
  Quad get_target(float w, float h);
  /// Vanishes for quads that cannot be calibrated.
  float determinant_check(Quad q);
  /// Whether no rectangle of any size can appear as this quad.
  bool is_degenerate(const Quad& source);
  /// Runs a shell command and returns what it wrote to standard output. Throws std::runtime_error when it cannot be run
  /// or does not come to its end within seconds.
  std::string exec(const char* command);

  /// The chessboard's inner corners in a new picture of the source at the analysis size, in pixels; row by row. False
  /// after a log line when there is no picture or the whole board is not to be seen.
  bool detect_chessboard(ImageFrameSource& source, std::vector<cv::Point2f>& corners);
  /// Adds the chessboard in a new picture to the collected views, of which the newest are kept. False without one.
  bool find_pattern(ImageFrameSource& source);
  /// Logs the camera matrix that the collected views and, when the board is to be seen, a new picture's give. False
  /// after a log line when there is no view, or none with a slant about either of the picture's axes.
  bool log_intrinsic_matrix(ImageFrameSource& source);

 private:
  void calculate_camera_matrix(const std::string& prodShortName, int focalLengthMicrons);
  bool calculate_world_to_screen_transformations(const Quad& source, float wRectM, float hRectM);

  Matrix3x3 homography;
  cv::Mat m_rotationVec;
  cv::Mat m_translationVec;
  cv::Mat m_cameraMatrix;
  cv::Mat m_distCoeffs;
  bool m_calibrated = false;
  int m_focalLength = 0;                                               // micrometres
  float m_squareSize = 0.15F;                                          // side of a chessboard's square, m
  cv::Size m_boardSize{9, 6};                                          // its inner corners
  std::vector<std::vector<cv::Point2f>> m_imagePointsForLogIntrinsic;  // one entry a view
  std::vector<std::vector<cv::Point3f>> m_objectPointsForLogIntrinsic;
  std::map<std::string, std::pair<float, float>> m_sensorDimensions;  // width, height in mm
};

extern Distance_Controller g_DistanceController;
