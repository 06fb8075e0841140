#include "geometry/calibrator.h"

#include <opencv2/core/types.hpp>

#include "app/truncate.h"
#include "geometry/distance_controller.h"

void Calibrator::setSize(float width, float height) {
  _width = width;
  _height = height;
  _isInitialized = true;
}

void Calibrator::getSize(float& width, float& height) const {
  width = _width;
  height = _height;
}

bool Calibrator::getStakeScreenCoordinates(Corner corner, int& x0, int& y0, int& x1, int& y1) const {
  if (!_isInitialized || corner < TopLeft || corner > BottomRight) {
    return false;
  }
  const bool right = corner == TopRight || corner == BottomRight;
  const bool bottom = corner == BottomLeft || corner == BottomRight;
  return getStakeScreenCoordinates(right ? _width : 0.0F, bottom ? _height : 0.0F, x0, y0, x1, y1);
}

bool Calibrator::getStakeScreenCoordinates(float sx, float sy, int& x0, int& y0, int& x1, int& y1) const {
  if (!g_DistanceController.isCalibrated()) {
    return false;
  }
  constexpr float indicator_length = -1.0F;  // metres; above the floor is negative
  const cv::Point2f p0 = g_DistanceController.world_to_screen_point({sx, sy, -0.0F});
  const cv::Point2f p1 = g_DistanceController.world_to_screen_point({sx, sy, indicator_length});
  x0 = truncateToInt(p0.x);
  y0 = truncateToInt(p0.y);
  x1 = truncateToInt(p1.x);
  y1 = truncateToInt(p1.y);
  return true;
}
