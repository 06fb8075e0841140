#include "simulator/dataset.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <glm/gtc/constants.hpp>
#include <iostream>
#include <stdexcept>

namespace simulator {
namespace {

constexpr std::size_t kMostPeople = 3;
constexpr int kCropSide = 320;
constexpr int kDetectorSide = 300;

/// Places people into one scene.
class Casting {
 public:
  Casting(Scene& scene, Random& random, bool heldOut) : m_scene(scene), m_random(random), m_heldOut(heldOut) {}

  void run() {
    if (chance(m_random, 0.5F)) inBed();
    const std::size_t more = m_scene.people.empty() ? 1 + m_random() % 2 : m_random() % 3;
    for (std::size_t i = 0; i < more; ++i) onFloor();
  }

 private:
  BodyShape body() {
    const unsigned number = m_heldOut
                                ? kHeldOutBodies + static_cast<unsigned>(m_random()) % (kAllBodies - kHeldOutBodies)
                                : static_cast<unsigned>(m_random()) % kHeldOutBodies;
    return makeBody(number);
  }

  float roll() {
    const float kind = uniform(m_random, 0, 1);
    if (kind < 0.5F) return uniform(m_random, -0.35F, 0.35F);
    if (kind < 0.85F) return (chance(m_random, 0.5F) ? 1.0F : -1.0F) * uniform(m_random, 1.1F, 1.7F);
    return glm::pi<float>() + uniform(m_random, -0.4F, 0.4F);
  }

  void add(const BodyShape& shape, const Pose& pose, bool inBed) {
    Person person;
    person.id = static_cast<int>(m_scene.people.size());
    person.shape = shape;
    person.pose = pose;
    person.inBed = inBed;
    m_scene.people.push_back(person);
  }

  void inBed() {
    const Bed& bed = m_scene.room.bed;
    const BodyShape shape = body();
    const glm::vec2 place(bed.at(uniform(m_random, 0.44F, 0.54F), uniform(m_random, 0.4F, 0.6F)));
    Pose lying = lyingPose(place, bed.heading + uniform(m_random, -0.12F, 0.12F),
                           chance(m_random, 0.7F) ? uniform(m_random, -0.3F, 0.3F) : roll());
    lying.neckBend += uniform(m_random, 0.1F, 0.5F);
    disturb(lying, m_random, 0.16F);
    settle(shape, lying, bed.mattress - 0.02F);
    Pose pose = lying;
    m_scene.cover = chance(m_random, 0.8F) ? uniform(m_random, 0.3F, 1.0F) : uniform(m_random, 0.0F, 0.2F);
    const float kind = uniform(m_random, 0, 1);
    if (kind > 0.75F) {
      Pose up = sittingUp(place, bed);
      settle(shape, up, bed.mattress - 0.02F);
      pose = blend(lying, up, uniform(m_random, 0.2F, 1.0F));
      m_scene.cover = uniform(m_random, 0.0F, 0.3F);
      if (kind > 0.88F) {
        pose = blend(up, onEdge(shape), uniform(m_random, 0.3F, 1.0F));
        m_scene.cover = 0;
      }
      disturb(pose, m_random, 0.1F);
    }
    add(shape, pose, true);
  }

  static Pose sittingUp(glm::vec2 place, const Bed& bed) {
    Pose pose = sittingPose(place, bed.heading + glm::pi<float>());
    for (Limb& leg : pose.legs) leg = {1.45F, 0.1F, 0, 0.15F};
    return pose;
  }

  Pose onEdge(const BodyShape& shape) {
    const Bed& bed = m_scene.room.bed;
    const bool right = glm::distance(glm::vec2(bed.at(0.5F, 0)), glm::vec2(m_scene.room.width / 2, 1.5F)) <
                       glm::distance(glm::vec2(bed.at(0.5F, 1)), glm::vec2(m_scene.room.width / 2, 1.5F));
    const glm::vec2 place(bed.at(uniform(m_random, 0.35F, 0.6F), right ? 0.12F : 0.88F));
    Pose pose = sittingPose(place, bed.heading + (right ? -1.0F : 1.0F) * glm::half_pi<float>());
    pose.root.z = bed.mattress + 0.07F * shape.height;
    return pose;
  }

  bool findPlace(glm::vec2& place, float radius) {
    const bool close = !m_scene.people.empty() && chance(m_random, 0.25F);
    for (int attempt = 0; attempt < 60; ++attempt) {
      place = {uniform(m_random, 0.2F, m_scene.room.width - 0.2F), uniform(m_random, 0.9F, m_scene.room.depth - 0.2F)};
      if (close) {
        const float angle = uniform(m_random, 0, glm::two_pi<float>());
        place = glm::vec2(m_scene.people.back().pose.root) +
                uniform(m_random, 0.5F, 1.3F) * glm::vec2(std::cos(angle), std::sin(angle));
      }
      if (!m_scene.room.isFree(place, radius)) continue;
      const bool apart = std::all_of(m_scene.people.begin(), m_scene.people.end(), [&](const Person& other) {
        return glm::distance(glm::vec2(other.pose.root), place) > 0.45F;
      });
      const glm::vec3 seen = m_scene.camera.project({place, 0.6F});
      if (apart && seen.x > 20 && seen.x < 1260 && seen.y > 0 && seen.y < 700) return true;
    }
    return false;
  }

  void onFloor() {
    const BodyShape shape = body();
    glm::vec2 place;
    if (!findPlace(place, 0.28F)) return;
    const float heading = uniform(m_random, 0, glm::two_pi<float>());
    Pose standing = chance(m_random, 0.6F) ? walkingPose(place, heading, uniform(m_random, 0, glm::two_pi<float>()))
                                           : standingPose(place, heading);
    Pose lying = lyingPose(place, uniform(m_random, 0, glm::two_pi<float>()), roll());
    disturb(standing, m_random, 0.12F);
    disturb(lying, m_random, 0.3F);
    settle(shape, standing, 0);
    settle(shape, lying, 0);
    const float kind = uniform(m_random, 0, 1);
    Pose pose = standing;
    if (kind > 0.42F) pose = lying;
    if (kind > 0.8F) {
      pose = bendingPose(place, heading);
      if (kind > 0.85F) pose = kneelingPose(place, heading);
      if (kind > 0.9F) pose = blend(standing, lying, uniform(m_random, 0.15F, 0.9F));
      if (kind > 0.96F) pose = blend(kneelingPose(place, heading), lying, uniform(m_random, 0.2F, 0.8F));
      disturb(pose, m_random, 0.12F);
      settle(shape, pose, 0);
    }
    add(shape, pose, false);
  }

  Scene& m_scene;
  Random& m_random;
  bool m_heldOut;
};

/// A square window, three times in four around somebody.
Window cropWindow(const Scene& scene, Random& random) {
  const float side = static_cast<float>(kCropSide) * uniform(random, 0.88F, 1.18F);
  glm::vec2 centre(uniform(random, 100, 1180), uniform(random, 100, 620));
  if (!scene.people.empty() && chance(random, 0.82F)) {
    const Person& person = scene.people[random() % scene.people.size()];
    const Figure figure = makeFigure(person.shape, person.pose);
    const glm::vec2 some(scene.camera.project(figure.keypoints[random() % kKeypoints]));
    const glm::vec2 middle(scene.camera.project(person.pose.root));
    centre = glm::mix(middle, some, uniform(random, 0, 0.7F)) +
             glm::vec2(uniform(random, -60, 60), uniform(random, -60, 60));
  }
  centre.x = std::clamp(centre.x, side / 2, std::max(side / 2, 1280 - side / 2));
  centre.y = std::clamp(centre.y, side / 2, std::max(side / 2, 720 - side / 2));
  return {centre.x - side / 2, centre.y - side / 2, side, side};
}

/// A square as the validator cuts it around somebody's box, give or take; one in three anywhere.
Window detectorWindow(const Scene& scene, Random& random) {
  float side = uniform(random, 160, 560);
  glm::vec2 centre(uniform(random, 0, 1280), uniform(random, 0, 720));
  if (!scene.people.empty() && chance(random, 0.66F)) {
    const Person& person = scene.people[random() % scene.people.size()];
    const Figure figure = makeFigure(person.shape, person.pose);
    glm::vec2 low(1e9F);
    glm::vec2 high(-1e9F);
    for (std::size_t k = 0; k < kKeypoints; ++k) {
      if (k >= 7 && k <= 10) continue;  // arms do not count
      const glm::vec2 seen(scene.camera.project(figure.keypoints[k]));
      low = glm::min(low, seen);
      high = glm::max(high, seen);
    }
    const glm::vec2 size = high - low;
    side = 1.5F * std::max(size.x, size.y) * uniform(random, 0.8F, 1.25F);
    centre = (low + high) / 2.0F - glm::vec2(size.x < size.y ? size.x / 4 : 0, size.x < size.y ? 0 : size.y / 4) +
             side * glm::vec2(uniform(random, -0.1F, 0.1F), uniform(random, -0.1F, 0.1F));
  }
  side = std::clamp(side, 60.0F, 719.0F);
  centre = glm::clamp(centre, glm::vec2(side / 2), glm::vec2(1280 - side / 2, 720 - side / 2));
  return {centre.x - side / 2, centre.y - side / 2, side, side};
}

void writeLabels(std::ofstream& out, const std::vector<TrueKeypoints>& truth, const Window& window, float scale) {
  std::array<std::array<std::array<float, 3>, kKeypoints>, kMostPeople> record{};
  for (std::size_t i = 0; i < kMostPeople; ++i) {
    for (std::size_t k = 0; k < kKeypoints; ++k) {
      if (i >= truth.size()) {
        record[i][k] = {0, 0, -1};
        continue;
      }
      const TrueKeypoint& keypoint = truth[i][k];
      record[i][k] = {(keypoint.x - window.x) * scale, (keypoint.y - window.y) * scale,
                      static_cast<float>(keypoint.visibility)};
    }
  }
  out.write(reinterpret_cast<const char*>(record.data()), sizeof(record));
}

}  // namespace

Scene randomScene(Random& random, bool heldOut) {
  Scene scene;
  const unsigned room = heldOut ? kHeldOutRooms + static_cast<unsigned>(random()) % (kAllRooms - kHeldOutRooms)
                                : static_cast<unsigned>(random()) % kHeldOutRooms;
  scene.room = makeRoom(room);
  scene.camera = makeCamera(scene.room, random, heldOut);
  scene.light = makeLight(random);
  Casting(scene, random, heldOut).run();
  return scene;
}

void writeDataset(const DatasetRequest& request) {
  std::filesystem::create_directories(request.folder);
  std::ofstream images(request.folder / "images.bin", std::ios::binary);
  std::ofstream labels(request.folder / "labels.bin", std::ios::binary);
  if (!images || !labels) throw std::runtime_error("cannot write into " + request.folder.string());
  Random random(request.seed);
  Renderer renderer;
  const bool whole = request.kind == DatasetKind::kWhole;
  const int width = whole ? 1280 : request.kind == DatasetKind::kCrops ? kCropSide : kDetectorSide;
  const int height = whole ? 720 : width;
  for (std::size_t i = 0; i < request.count; ++i) {
    const Scene scene = randomScene(random, request.heldOut);
    const Window window = whole                                 ? Window{}
                          : request.kind == DatasetKind::kCrops ? cropWindow(scene, random)
                                                                : detectorWindow(scene, random);
    const std::vector<TrueKeypoints> truth = scene.draw(renderer, window, width, height);
    const std::vector<std::uint8_t>& rgb = renderer.picture().rgb;
    images.write(reinterpret_cast<const char*>(rgb.data()), static_cast<std::streamsize>(rgb.size()));
    writeLabels(labels, truth, window, static_cast<float>(width) / window.width);
    if (!images || !labels) break;
    if ((i + 1) % 500 == 0) std::cerr << request.folder.string() << ": " << i + 1 << " of " << request.count << '\n';
  }
  if (!images.flush() || !labels.flush()) throw std::runtime_error("cannot write all of " + request.folder.string());
}

}  // namespace simulator
