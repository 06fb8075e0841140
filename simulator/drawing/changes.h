// Where a picture differs from the one before, so that nothing else is drawn again: surfaces take a software renderer
// most of its time, and in most pictures little moves.
#pragma once

#include "simulator/rooms/room.h"

namespace simulator {

/// Pixels of the picture, from its upper left corner.
struct Part {
  int x = 0, y = 0, width = 0, height = 0;
  bool empty() const { return width == 0 || height == 0; }
};

/// Knows the picture before.
class Changes {
 public:
  /// What has changed since the call before, its shadows on walls, floor and all that stands between them included; the
  /// whole picture where that cannot be told, and the first time. The light comes from one direction.
  Part since(const Camera& camera, const Light& light, const Room& room, const Mesh& moving);

 private:
  bool m_known = false;
  Camera m_camera;
  Light m_light;
  Mesh m_room;
  Mesh m_moving;
};

}  // namespace simulator
