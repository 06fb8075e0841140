#include "simulator/drawing/changes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

namespace simulator {
namespace {

/// Where the light that passes the point meets floor or wall.
glm::vec3 shadowOf(const glm::vec3& point, const Light& light, const Room& room) {
  const glm::vec3 way = -light.towards;
  float reach = std::numeric_limits<float>::max();
  const auto meet = [&](float from, float step, float low, float high) {
    if (step != 0) reach = std::min(reach, std::max(0.0F, ((step < 0 ? low : high) - from) / step));
  };
  meet(point.x, way.x, 0, room.width);
  meet(point.y, way.y, 0, room.depth);
  meet(point.z, way.z, 0, room.height);
  return point + way * reach;
}

/// Grows around points; shadows have soft edges.
class Extent {
 public:
  explicit Extent(const Camera& camera) : m_camera(camera) {}

  void add(const glm::vec3& point) {
    constexpr float kNearest = 0.3F;  // metres; nearer, a soft edge is wide
    const glm::vec3 seen = m_camera.project(point);
    if (!(seen.z > kNearest)) {
      m_whole = true;
      return;
    }
    m_low = glm::min(m_low, glm::vec2(seen));
    m_high = glm::max(m_high, glm::vec2(seen));
  }

  Part part() const {
    if (m_whole) return {0, 0, m_camera.width, m_camera.height};
    if (m_low.x > m_high.x) return {};
    constexpr float kMargin = 40;  // pixels
    const auto side = [](float low, float high, int size) {
      const auto end = static_cast<float>(size);
      const int from = static_cast<int>(std::clamp(std::floor(low - kMargin), 0.0F, end));
      return std::pair{from, static_cast<int>(std::clamp(std::ceil(high + kMargin), 0.0F, end)) - from};
    };
    const auto [x, width] = side(m_low.x, m_high.x, m_camera.width);
    const auto [y, height] = side(m_low.y, m_high.y, m_camera.height);
    return {x, y, width, height};
  }

 private:
  const Camera& m_camera;
  glm::vec2 m_low{std::numeric_limits<float>::max()};
  glm::vec2 m_high{std::numeric_limits<float>::lowest()};
  bool m_whole = false;
};

}  // namespace

Part Changes::since(const Camera& camera, const Light& light, const Room& room, const Mesh& moving) {
  Part part{0, 0, camera.width, camera.height};
  if (m_known && camera == m_camera && light == m_light && room.mesh == m_room) {
    Extent extent(camera);
    const std::size_t common = std::min(moving.size(), m_moving.size());
    // Meshes are triangles: one changes where any of its corners does.
    for (std::size_t i = 0; i < std::max(moving.size(), m_moving.size()); i += 3) {
      const auto first = static_cast<std::ptrdiff_t>(i);
      if (i < common && std::equal(moving.begin() + first, moving.begin() + first + 3, m_moving.begin() + first))
        continue;
      for (const Mesh* mesh : {&moving, static_cast<const Mesh*>(&m_moving)}) {
        for (std::size_t k = i; k < std::min(i + 3, mesh->size()); ++k) {
          extent.add((*mesh)[k].position);
          extent.add(shadowOf((*mesh)[k].position, light, room));
        }
      }
    }
    part = extent.part();
  }
  m_known = true;
  m_camera = camera;
  m_light = light;
  m_room = room.mesh;
  m_moving = moving;
  return part;
}

}  // namespace simulator
