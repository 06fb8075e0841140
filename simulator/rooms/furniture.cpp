#include "simulator/rooms/furniture.h"

#include <cmath>

namespace simulator {
namespace {

glm::vec3 woodColor(Random& random) {
  static constexpr std::array<glm::vec3, 4> kWoods = {
      {{0.55F, 0.38F, 0.22F}, {0.72F, 0.56F, 0.38F}, {0.78F, 0.77F, 0.74F}, {0.34F, 0.22F, 0.14F}}};
  return kWoods[random() % kWoods.size()] * uniform(random, 0.85F, 1.1F);
}

glm::vec3 clothColor(Random& random) {
  return {uniform(random, 0.25F, 0.8F), uniform(random, 0.22F, 0.65F), uniform(random, 0.18F, 0.6F)};
}

}  // namespace

Mesh wardrobe(Random& random) {
  const glm::vec3 wood = woodColor(random);
  const float width = uniform(random, 0.7F, 1.0F);
  Mesh mesh;
  addBox(mesh, {0, 0.27F, 0}, {width, 0.54F, uniform(random, 1.75F, 2.0F)}, 0, wood, Surface::kWood);
  for (const float side : {-1.0F, 1.0F}) {  // doors and their handles
    addBox(mesh, {side * width / 4, 0.55F, 0.06F}, {width / 2 - 0.03F, 0.02F, 1.65F}, 0, wood * 0.9F, Surface::kWood);
    addBox(mesh, {side * 0.05F, 0.57F, 0.9F}, {0.02F, 0.02F, 0.16F}, 0, glm::vec3(0.35F));
  }
  return mesh;
}

Mesh bedsideTable(Random& random) {
  const glm::vec3 wood = woodColor(random);
  Mesh mesh;
  addBox(mesh, {0, 0.2F, 0}, {0.45F, 0.4F, 0.6F}, 0, wood, Surface::kWood);
  for (const float height : {0.05F, 0.32F}) {  // drawers
    addBox(mesh, {0, 0.41F, height}, {0.4F, 0.02F, 0.23F}, 0, wood * 0.88F, Surface::kWood);
  }
  const glm::vec3 lamp(uniform(random, -0.12F, 0.12F), 0.15F, 0.6F);
  addBox(mesh, lamp, {0.03F, 0.03F, 0.16F}, 0, glm::vec3(0.4F));
  addBox(mesh, lamp + glm::vec3(0, 0, 0.16F), {0.16F, 0.16F, 0.14F}, 0, clothColor(random), Surface::kFabric);
  return mesh;
}

Mesh chair(Random& random) {
  const glm::vec3 cloth = clothColor(random);
  Mesh mesh;
  addBox(mesh, {0, 0.26F, 0.32F}, {0.48F, 0.48F, 0.13F}, 0, cloth, Surface::kFabric);
  addBox(mesh, {0, 0.05F, 0.45F}, {0.48F, 0.07F, 0.5F}, 0, cloth, Surface::kFabric);
  for (const float x : {-0.21F, 0.21F}) {
    for (const float y : {0.05F, 0.47F}) addBox(mesh, {x, y, 0}, {0.04F, 0.04F, 0.32F}, 0, cloth * 0.5F);
  }
  if (chance(random, 0.5F)) {  // arms
    for (const float x : {-0.26F, 0.26F}) addBox(mesh, {x, 0.26F, 0.3F}, {0.05F, 0.48F, 0.36F}, 0, cloth * 0.7F);
  }
  return mesh;
}

Mesh dripStand() {
  const glm::vec3 foot(0, 0.2F, 0);
  Mesh mesh;
  for (const float heading : {0.8F, 2.4F}) addBox(mesh, foot, {0.42F, 0.05F, 0.05F}, heading, glm::vec3(0.4F));
  addBox(mesh, foot, {0.03F, 0.03F, 1.8F}, 0, glm::vec3(0.7F));
  addBox(mesh, foot + glm::vec3(0.08F, 0, 1.5F), {0.13F, 0.05F, 0.24F}, 0, glm::vec3(0.8F, 0.85F, 0.88F));
  return mesh;
}

Mesh plant(Random& random) {
  const glm::vec3 middle(0, 0.3F, 0);
  Mesh mesh;
  addBox(mesh, middle, {0.3F, 0.3F, 0.35F}, 0.3F, clothColor(random));
  for (int leaf = 0; leaf < 9; ++leaf) {
    const float a = 0.7F * static_cast<float>(leaf);
    const glm::vec3 tip(0.22F * std::cos(a), 0.22F * std::sin(a), 0.75F + 0.12F * std::cos(3 * a));
    addCapsule(mesh, {middle + glm::vec3(0, 0, 0.34F),
                      middle + tip,
                      0.03F,
                      0.06F,
                      {0, 0, 1},
                      0.5F,
                      glm::vec3(0.15F, 0.38F, 0.14F),
                      Surface::kPlain});
  }
  return mesh;
}

Mesh pictureOnWall(Random& random) {
  Mesh mesh;
  const float width = uniform(random, 0.3F, 0.7F);
  const float height = uniform(random, 0.3F, 0.6F);
  addBox(mesh, {0, 0.01F, -height / 2}, {width, 0.02F, height}, 0, clothColor(random), Surface::kTiles);
  return mesh;
}

Mesh rug(Random& random) {
  const glm::vec3 size{uniform(random, 1.0F, 1.8F), uniform(random, 0.8F, 1.3F), 0.012F};
  const Surface surface = chance(random, 0.5F) ? Surface::kStripes : Surface::kFabric;
  Mesh mesh;
  addBox(mesh, glm::vec3(0), size, 0, clothColor(random), surface);
  return mesh;
}

namespace {

constexpr glm::vec3 kSteel(0.6F, 0.62F, 0.65F);
constexpr glm::vec3 kRubber(0.08F);

void addTube(Mesh& mesh, const glm::vec3& a, const glm::vec3& b) {
  addCapsule(mesh, {a, b, 0.014F, 0.014F, {0, 1, 0}, 1, kSteel, Surface::kPlain});
}

/// Upright and seen from the side.
void addWheel(Mesh& mesh, const glm::vec3& middle, float radius) {
  addCapsule(mesh, {middle, middle, radius, radius, {1, 0, 0}, 0.1F, kRubber, Surface::kPlain});
}

Mesh walker(Random& random) {
  Mesh mesh;
  for (const float x : {-0.27F, 0.27F}) {
    addBox(mesh, {x, 0.06F, 0.9F}, {0.04F, 0.16F, 0.035F}, 0, kRubber);
    addTube(mesh, {x, 0.14F, 0.9F}, {x, 0.55F, 0.12F});
    addTube(mesh, {x, 0.22F, 0.75F}, {x, 0.06F, 0.12F});
    for (const float y : {0.06F, 0.57F}) addWheel(mesh, {x, y, 0.1F}, 0.1F);
  }
  addTube(mesh, {-0.27F, 0.2F, 0.78F}, {0.27F, 0.2F, 0.78F});
  addBox(mesh, {0, 0.28F, 0.52F}, {0.44F, 0.22F, 0.04F}, 0, clothColor(random) * 0.6F, Surface::kFabric);
  addBox(mesh, {0, 0.45F, 0.3F}, {0.36F, 0.16F, 0.18F}, 0, clothColor(random) * 0.5F, Surface::kFabric);
  return mesh;
}

Mesh wheelchair(Random& random) {
  const glm::vec3 cloth = clothColor(random) * 0.45F;
  Mesh mesh;
  addBox(mesh, {0, 0.38F, 0.42F}, {0.44F, 0.44F, 0.06F}, 0, cloth, Surface::kFabric);
  addBox(mesh, {0, 0.15F, 0.46F}, {0.44F, 0.05F, 0.48F}, 0, cloth, Surface::kFabric);
  for (const float x : {-0.24F, 0.24F}) {
    addTube(mesh, {x, 0.13F, 0.3F}, {x, 0.13F, 0.95F});
    addTube(mesh, {x, 0.13F, 0.95F}, {x, 0.01F, 0.95F});
    addBox(mesh, {x, 0.36F, 0.66F}, {0.05F, 0.36F, 0.04F}, 0, kRubber);
    addTube(mesh, {x, 0.58F, 0.45F}, {x, 0.78F, 0.14F});
    addWheel(mesh, {x * 1.2F, 0.25F, 0.3F}, 0.3F);
    addWheel(mesh, {x, 0.66F, 0.08F}, 0.08F);
    addBox(mesh, {x * 0.5F, 0.82F, 0.12F}, {0.16F, 0.18F, 0.02F}, 0, kRubber);
  }
  return mesh;
}

}  // namespace

const std::array<Movable, 3> kMovables = {{{"chair", chair, 0.5F, 0.24F, 0.45F, 0},
                                           {"walker", walker, 0.66F, 0, 0, 0.6F},
                                           {"wheelchair", wheelchair, 0.9F, 0.34F, 0.48F, 0.78F}}};

}  // namespace simulator
