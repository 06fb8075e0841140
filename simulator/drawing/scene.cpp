#include "simulator/drawing/scene.h"

#include <cmath>

#include "simulator/rooms/bedding.h"

namespace simulator {
namespace {

/// Slack for the raster's steps.
constexpr float kDepthSlack = 0.03F;

/// The blanket lies close on the limbs, so depth alone cannot tell what it hides.
bool isUnderBlanket(const Bed& bed, float cover, const glm::vec3& place) {
  const glm::vec2 u(std::cos(bed.heading), std::sin(bed.heading));
  const glm::vec2 local = glm::vec2(place) - bed.centre;
  const float along = glm::dot(local, u) / bed.length + 0.5F;
  const float across = std::abs(glm::dot(local, glm::vec2(-u.y, u.x))) / bed.width;
  return along < blanketReach(cover) && across < 0.55F && place.z < bed.mattress + 0.4F;
}

}  // namespace

TrueKeypoint Scene::look(const Renderer& renderer, const Person& person, const glm::vec3& place, float depth) const {
  const glm::vec3 seen = camera.project(place);
  TrueKeypoint keypoint{seen.x, seen.y, Visibility::kOutside};
  if (!camera.sees(place)) return keypoint;
  const bool shown = renderer.depthAt(seen.x, seen.y) > seen.z - depth - kDepthSlack;
  const bool covered = person.underBlanket && isUnderBlanket(room.beds[person.bed], covers[person.bed], place);
  keypoint.visibility = shown && !covered ? Visibility::kVisible : Visibility::kHidden;
  return keypoint;
}

std::vector<TrueKeypoints> Scene::draw(Renderer& renderer) const {
  Mesh moving = things;
  std::vector<Figure> figures;
  std::array<const Figure*, kMostBeds> patients{};
  figures.reserve(people.size());
  for (const Person& person : people) {
    figures.push_back(makeFigure(person.shape, person.pose));
    addFigure(moving, figures.back());
    if (person.underBlanket && patients[person.bed] == nullptr) patients[person.bed] = &figures.back();
  }
  for (std::size_t i = 0; i < room.beds.size(); ++i)
    addBedding(room.beds[i], patients[i], covers[i], ampleBlankets, moving);
  renderer.draw(camera, light, room, moving);
  std::vector<TrueKeypoints> truth(people.size());
  for (std::size_t i = 0; i < figures.size(); ++i) {
    for (std::size_t k = 0; k < kKeypoints; ++k) {
      truth[i][k] = look(renderer, people[i], figures[i].keypoints[k], figures[i].keypointDepth[k]);
    }
  }
  return truth;
}

}  // namespace simulator
