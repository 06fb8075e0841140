// The calibration stakes: upright markers on the corners of the floor calibration's rectangle.
#pragma once

#include <cstdint>

/// A stake stands on a floor point and is a metre long. Where it appears follows from g_DistanceController.
class Calibrator {
 public:
  enum Corner : std::int32_t { TopLeft = 0, TopRight = 1, BottomLeft = 2, BottomRight = 3 };

  /// The rectangle's size in metres; any value is accepted.
  void setSize(float width, float height);
  void getSize(float& width, float& height) const;
  /// Whether a size was set.
  bool isInitialized() const { return _isInitialized; }

  /// Whether the stakes are to be drawn.
  void setRender(bool render) { _render = render; }
  bool shouldRender() const { return _render; }

  /// The stake on a corner of the rectangle, from its foot (x0, y0) to its top (x1, y1) in pixels of the analysis
  /// picture. False, with the outputs untouched, while no size is set or the floor is not calibrated.
  bool getStakeScreenCoordinates(Corner corner, int& x0, int& y0, int& x1, int& y1) const;
  /// The same for a floor point in metres; needs no size.
  bool getStakeScreenCoordinates(float sx, float sy, int& x0, int& y0, int& x1, int& y1) const;

 private:
  float _width = 0.0F;
  float _height = 0.0F;
  bool _isInitialized = false;
  bool _render = false;
};

extern Calibrator g_calibrator;
