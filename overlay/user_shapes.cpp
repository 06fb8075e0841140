#include <syslog.h>

#include "overlay/overlay_manager.h"

std::array<UserRectangle, kMostUserShapes> g_UserRectangles;
int g_nUserRectangles = 0;
std::array<UserLine, kMostUserShapes> g_UserLines;
int g_nUserLines = 0;
std::array<UserCircle, kMostUserShapes> g_UserCircles;
int g_nUserCircles = 0;

namespace {

/// Appends a shape; when there is no more place, logs `complaint` instead.
template <typename Shape>
void append(std::array<Shape, kMostUserShapes>& shapes, int& count, const Shape& shape, const char* complaint) {
  if (count >= kMostUserShapes) {
    syslog(LOG_ERR, "%s", complaint);
    return;
  }
  shapes[static_cast<std::size_t>(count)] = shape;
  ++count;
}

}  // namespace

void OverlayManager::addUserRectangle(int x, int y, int w, int h, int color, int width) {
  append(g_UserRectangles, g_nUserRectangles, {{x, y, w, h}, color, width},
         "OverlayManager::addUserRectangle too many user rectangles.");
}

void OverlayManager::addUserLine(int x0, int y0, int x1, int y1, int color, int width) {
  append(g_UserLines, g_nUserLines, {x0, y0, x1, y1, color, width}, "OverlayManager::addUserLine too many user lines");
}

void OverlayManager::addUserCircle(int cx, int cy, int radius, int color, int width) {
  append(g_UserCircles, g_nUserCircles, {cx, cy, radius, color, width},
         "OverlayManager::addUserCircle too many user circles");
}

void OverlayManager::clearUserRectangles() { g_nUserRectangles = 0; }

void OverlayManager::clearUserOverlays() {
  g_nUserRectangles = 0;
  g_nUserLines = 0;
  g_nUserCircles = 0;
}
