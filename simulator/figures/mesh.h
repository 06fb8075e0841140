// Triangles to draw, and the simple bodies that things are made of. Metres; z is up.
#pragma once

#include <array>
#include <vector>

#include "simulator/figures/body.h"

namespace simulator {

/// One corner of a triangle as the renderer takes it.
struct Vertex {
  glm::vec3 position{0};
  glm::vec3 normal{0, 0, 1};
  glm::vec3 color{1};
  float surface = 0;  ///< a Surface

  friend bool operator==(const Vertex&, const Vertex&) = default;
};

/// Triangles, three vertices each.
using Mesh = std::vector<Vertex>;

/// The room that something takes up.
struct Box {
  glm::vec3 low{0}, high{0};

  /// Whether they share more than a face.
  bool meets(const Box& other) const;
};

/// The smallest box around the vertices from `first` on, of which there must be one.
Box boundsOf(const Mesh& mesh, std::size_t first = 0);

/// The same turned by `heading` about z, and then moved by `place`.
Mesh moved(Mesh mesh, const glm::vec3& place, float heading);

/// Appends a quadrilateral given counter-clockwise as seen from outside.
void addQuad(Mesh& mesh, const std::array<glm::vec3, 4>& p, const glm::vec3& color, Surface surface);

/// A box of the given size standing on `base` (centre of its underside), turned by `heading` about z.
void addBox(Mesh& mesh, const glm::vec3& base, const glm::vec3& size, float heading, const glm::vec3& color,
            Surface surface = Surface::kPlain);

/// A sphere whose two halves are drawn apart from `a` to `b`, flattened along one axis.
void addCapsule(Mesh& mesh, const Capsule& piece);

void addFigure(Mesh& mesh, const Figure& figure);

}  // namespace simulator
