#include "simulator/figures/mesh.h"

#include <algorithm>
#include <cmath>
#include <glm/gtc/constants.hpp>

namespace simulator {

bool Box::meets(const Box& other) const {
  return glm::all(glm::lessThan(low, other.high)) && glm::all(glm::lessThan(other.low, high));
}

Box boundsOf(const Mesh& mesh, std::size_t first) {
  Box box{mesh.at(first).position, mesh.at(first).position};
  for (std::size_t i = first; i < mesh.size(); ++i) {
    box.low = glm::min(box.low, mesh[i].position);
    box.high = glm::max(box.high, mesh[i].position);
  }
  return box;
}

Mesh moved(Mesh mesh, const glm::vec3& place, float heading) {
  const glm::mat3 turn(glm::mat3_cast(glm::angleAxis(heading, glm::vec3(0, 0, 1))));
  for (Vertex& vertex : mesh) {
    vertex.position = place + turn * vertex.position;
    vertex.normal = turn * vertex.normal;
  }
  return mesh;
}

void addQuad(Mesh& mesh, const std::array<glm::vec3, 4>& p, const glm::vec3& color, Surface surface) {
  const glm::vec3 normal = glm::normalize(glm::cross(p[1] - p[0], p[2] - p[0]));
  for (const std::size_t i : {0U, 1U, 2U, 0U, 2U, 3U}) {
    mesh.push_back({p[i], normal, color, static_cast<float>(surface)});
  }
}

void addBox(Mesh& mesh, const glm::vec3& base, const glm::vec3& size, float heading, const glm::vec3& color,
            Surface surface) {
  const glm::vec3 u = glm::vec3(std::cos(heading), std::sin(heading), 0) * (size.x / 2);
  const glm::vec3 v = glm::vec3(-std::sin(heading), std::cos(heading), 0) * (size.y / 2);
  const glm::vec3 w(0, 0, size.z);
  addQuad(mesh, {base - u - v + w, base + u - v + w, base + u + v + w, base - u + v + w}, color, surface);
  addQuad(mesh, {base - u - v, base + u - v, base + u - v + w, base - u - v + w}, color, surface);
  addQuad(mesh, {base + u + v, base - u + v, base - u + v + w, base + u + v + w}, color, surface);
  addQuad(mesh, {base + u - v, base + u + v, base + u + v + w, base + u - v + w}, color, surface);
  addQuad(mesh, {base - u + v, base - u - v, base - u - v + w, base - u + v + w}, color, surface);
}

void addCapsule(Mesh& mesh, const Capsule& piece) {
  constexpr int kSegments = 12;
  constexpr int kRings = 3;  // per half
  const glm::vec3 along = piece.b - piece.a;
  const float length = glm::length(along);
  const glm::vec3 axis = length > 1e-4F ? along / length : glm::vec3(0, 0, 1);
  glm::vec3 side = piece.flatAxis - axis * glm::dot(piece.flatAxis, axis);
  if (glm::length(side) < 1e-3F)
    side = glm::cross(axis, std::abs(axis.x) < 0.9F ? glm::vec3(1, 0, 0) : glm::vec3(0, 1, 0));
  side = glm::normalize(side);
  const glm::vec3 other = glm::cross(axis, side);
  std::array<std::array<Vertex, kSegments + 1>, 2 * kRings + 2> grid;
  for (std::size_t row = 0; row < grid.size(); ++row) {
    const bool upper = row > kRings;
    const int ring = static_cast<int>(row) - (upper ? 1 : 0);
    const float latitude = glm::half_pi<float>() * (static_cast<float>(ring) / kRings - 1);
    const float radius = upper ? piece.radiusB : piece.radiusA;
    const glm::vec3 centre = upper ? piece.b : piece.a;
    for (std::size_t k = 0; k <= kSegments; ++k) {
      const float longitude = glm::two_pi<float>() * static_cast<float>(k) / kSegments;
      const float x = std::cos(latitude) * std::cos(longitude);
      const float y = std::cos(latitude) * std::sin(longitude);
      const float z = std::sin(latitude);
      const glm::vec3 offset = side * (x * piece.flat) + other * y + axis * z;
      const glm::vec3 normal = glm::normalize(side * (x / piece.flat) + other * y + axis * z);
      grid[row][k] = {centre + offset * radius, normal, piece.color, static_cast<float>(piece.surface)};
    }
  }
  for (std::size_t row = 0; row + 1 < grid.size(); ++row) {
    for (std::size_t k = 0; k < kSegments; ++k) {
      const auto& p = grid;
      mesh.insert(mesh.end(),
                  {p[row][k], p[row][k + 1], p[row + 1][k + 1], p[row][k], p[row + 1][k + 1], p[row + 1][k]});
    }
  }
}

void addFigure(Mesh& mesh, const Figure& figure) {
  for (const Capsule& piece : figure.capsules) addCapsule(mesh, piece);
}

}  // namespace simulator
