#include "simulator/drawing/scene.h"

#include <cmath>

namespace simulator {
namespace {

/// Slack for the raster's steps.
constexpr float kDepthSlack = 0.03F;

TrueKeypoint look(const Renderer& renderer, const Scene& scene, const glm::vec3& place, float depth) {
  const glm::vec3 seen = scene.camera.project(place);
  TrueKeypoint keypoint{seen.x, seen.y, Visibility::kOutside};
  const bool inPicture = seen.z > 0.1F && seen.x >= 0 && seen.y >= 0 &&
                         seen.x < static_cast<float>(scene.camera.width) &&
                         seen.y < static_cast<float>(scene.camera.height);
  if (!inPicture) return keypoint;
  const float before = renderer.depthAt(seen.x, seen.y);
  keypoint.visibility = before > seen.z - depth - kDepthSlack ? Visibility::kVisible : Visibility::kHidden;
  return keypoint;
}

/// The blanket lies close on the limbs, so depth alone cannot tell what it hides.
bool isUnderBlanket(const Bed& bed, float cover, const glm::vec3& place) {
  const glm::vec2 u(std::cos(bed.heading), std::sin(bed.heading));
  const glm::vec2 local = glm::vec2(place) - bed.centre;
  const float along = glm::dot(local, u) / bed.length + 0.5F;
  const float across = std::abs(glm::dot(local, glm::vec2(-u.y, u.x))) / bed.width;
  return along < blanketReach(cover) && across < 0.55F && place.z < bed.mattress + 0.4F;
}

}  // namespace

std::vector<TrueKeypoints> Scene::draw(Renderer& renderer) const {
  Mesh moving;
  std::vector<Figure> figures;
  const Figure* patient = nullptr;
  figures.reserve(people.size());
  for (const Person& person : people) {
    figures.push_back(makeFigure(person.shape, person.pose));
    addFigure(moving, figures.back());
    if (person.inBed && patient == nullptr) patient = &figures.back();
  }
  addBedding(room.beds[0], patient, cover, moving);
  renderer.draw(camera, light, room, moving);
  std::vector<TrueKeypoints> truth(people.size());
  for (std::size_t i = 0; i < figures.size(); ++i) {
    for (std::size_t k = 0; k < kKeypoints; ++k) {
      truth[i][k] = look(renderer, *this, figures[i].keypoints[k], figures[i].keypointDepth[k]);
      const bool covered = people[i].inBed && isUnderBlanket(room.beds[0], cover, figures[i].keypoints[k]);
      if (covered && truth[i][k].visibility == Visibility::kVisible) truth[i][k].visibility = Visibility::kHidden;
    }
  }
  return truth;
}

}  // namespace simulator
