// Draws a room and the people in it without a display: OpenGL 3.3 through EGL, Mesa's software renderer will do.
#pragma once

#include <memory>
#include <vector>

#include "simulator/drawing/sensor.h"
#include "simulator/rooms/room.h"

namespace simulator {

/// One at a time in a process, used by the thread that made it.
class Renderer {
 public:
  /// Throws std::runtime_error when no OpenGL can be had.
  Renderer();
  ~Renderer();
  Renderer(const Renderer&) = delete;
  Renderer& operator=(const Renderer&) = delete;

  /// Draws the camera's picture. `moving` is what is not part of the room. Throws std::runtime_error when the picture
  /// is larger than can be drawn.
  void draw(const Camera& camera, const Light& light, const Room& room, const Mesh& moving);
  /// The picture drawn last.
  const Picture& picture() const;
  /// Distance in metres along the viewing axis to what the last picture shows at (x, y); far beyond its borders.
  float depthAt(float x, float y) const;

 private:
  struct Implementation;
  std::unique_ptr<Implementation> m_implementation;
};

}  // namespace simulator
