// Bodies, rooms and the pictures drawn of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <glm/gtc/constants.hpp>
#include <set>
#include <utility>

#include "simulator/dataset.h"
#include "simulator/scene.h"

namespace simulator {
namespace {

constexpr std::size_t kNose = 0;
constexpr std::size_t kLeftEar = 3;
constexpr std::size_t kRightEar = 4;
constexpr std::size_t kLeftShoulder = 5;
constexpr std::size_t kRightShoulder = 6;
constexpr std::size_t kLeftHip = 11;
constexpr std::size_t kRightHip = 12;
constexpr std::size_t kLeftKnee = 13;

/// Pairs of keypoints that one rigid piece of the body holds together: limbs, shoulders, hips, face.
constexpr std::array<std::size_t, 30> kBones = {5,  7,  7,  9,  6,  8, 8, 10, 5, 6, 11, 12, 11, 13, 13,
                                                15, 12, 14, 14, 16, 0, 1, 0,  2, 1, 3,  2,  4,  3,  4};

std::vector<Pose> allPostures() {
  return {standingPose({1, 2}, 0.3F),      walkingPose({1, 2}, 2, 1),
          sittingPose({1, 2}, -1),         kneelingPose({1, 2}, 3),
          bendingPose({1, 2}, 1),          lyingPose({1, 2}, 0.5F, 0),
          lyingPose({1, 2}, -2.5F, -1.4F), blend(standingPose({1, 2}, 0), lyingPose({1, 2}, 2, 1), 0.4F)};
}

/// Lowest and highest drawn point.
std::pair<float, float> extent(const Figure& figure) {
  Mesh mesh;
  addFigure(figure, mesh);
  const auto [low, high] = std::minmax_element(
      mesh.begin(), mesh.end(), [](const Vertex& a, const Vertex& b) { return a.position.z < b.position.z; });
  return {low->position.z, high->position.z};
}

glm::vec3 middle(const Figure& figure, std::size_t a, std::size_t b) {
  return (figure.keypoints[a] + figure.keypoints[b]) / 2.0F;
}

TEST(Body, KeepsItsBonesItsFrontAndItsPlaceHoweverThePoseIsDisturbed) {
  Random random(5);
  std::set<float> heights;
  for (unsigned number = 0; number < kAllBodies; ++number) {
    const BodyShape shape = makeBody(number);
    EXPECT_TRUE(heights.insert(shape.height).second) << "body " << number << " is there twice";
    const Figure upright = makeFigure(shape, standingPose({0, 0}, 0));
    const auto [low, high] = extent(upright);
    EXPECT_NEAR(high - low, shape.height, 0.06F * shape.height);
    for (Pose pose : allPostures()) {
      const Figure calm = makeFigure(shape, pose);
      const glm::vec3 up = middle(calm, kLeftShoulder, kRightShoulder) - middle(calm, kLeftHip, kRightHip);
      const glm::vec3 right = calm.keypoints[kRightShoulder] - calm.keypoints[kLeftShoulder];
      const glm::vec3 face = calm.keypoints[kNose] - middle(calm, kLeftEar, kRightEar);
      EXPECT_GT(glm::dot(glm::cross(up, right), face), 0) << "the nose points forward";
      EXPECT_GT(glm::dot(right, calm.keypoints[kRightHip] - calm.keypoints[kLeftHip]), 0);
      disturb(pose, random, 0.3F);
      pose.root.z = uniform(random, -1, 2);
      settle(shape, pose, 0.55F);
      const Figure figure = makeFigure(shape, pose);
      EXPECT_NEAR(extent(figure).first, 0.55F, 0.03F) << "the lowest point lies on the surface";
      for (std::size_t i = 0; i < kBones.size(); i += 2) {
        const std::size_t a = kBones[i], b = kBones[i + 1];
        const float length = glm::distance(upright.keypoints[a], upright.keypoints[b]);
        EXPECT_GT(length, 0.01F);
        EXPECT_NEAR(glm::distance(figure.keypoints[a], figure.keypoints[b]), length, 1e-4F) << a << " to " << b;
      }
    }
  }
}

TEST(Room, EveryFixedRoomIsShallowAndKeepsItsBedClear) {
  for (unsigned number = 0; number < kAllRooms; ++number) {
    const Room room = makeRoom(number);
    SCOPED_TRACE(number);
    EXPECT_LE(room.depth, 4.5F);
    const Bed& bed = room.bed;
    for (const auto& [along, across] : {std::pair{0.0F, 0.0F}, {0.0F, 1.0F}, {1.0F, 0.0F}, {1.0F, 1.0F}}) {
      const glm::vec3 corner = bed.at(along, across);
      EXPECT_TRUE(corner.x > 0 && corner.y > 0 && corner.x < room.width && corner.y < room.depth);
    }
    const glm::vec2 length = glm::vec2(bed.at(1, 0.5F) - bed.at(0, 0.5F)) / bed.length;
    const glm::vec2 width = glm::vec2(bed.at(0.5F, 1) - bed.at(0.5F, 0)) / bed.width;
    const auto beside = [&](glm::vec2 place) {  // metres from the bed's nearest side, negative on it
      const glm::vec2 local = place - bed.centre;
      return std::max(std::abs(glm::dot(local, length)) - bed.length / 2,
                      std::abs(glm::dot(local, width)) - bed.width / 2);
    };
    for (const Vertex& vertex : room.mesh) {
      EXPECT_TRUE(vertex.position.z < bed.mattress + 0.01F || vertex.position.z >= room.height ||
                  beside(glm::vec2(vertex.position)) > -0.05F);
    }
    EXPECT_FALSE(room.isFree(bed.centre, 0) || room.isFree(glm::vec2(bed.at(-0.1F, 0.5F)), 0.3F));
    EXPECT_FALSE(room.isFree({0.1F, room.depth / 2}, 0.2F)) << "in the wall";
    EXPECT_TRUE(room.isFree(room.door, 0.3F)) << "people come in through the door";
    EXPECT_TRUE(room.mesh.size() % 3 == 0 && room.wallVertices % 3 == 0 && room.wallVertices < room.mesh.size());
  }
}

TEST(Dataset, RandomScenesKeepToTheirSideOfWhatIsSetAside) {
  std::set<float> heldOutRooms;
  std::set<float> heldOutBodies;
  for (unsigned n = kHeldOutRooms; n < kAllRooms; ++n) heldOutRooms.insert(makeRoom(n).width);
  for (unsigned n = kHeldOutBodies; n < kAllBodies; ++n) heldOutBodies.insert(makeBody(n).height);
  Random random(2);
  std::size_t inBed = 0, seeTheBed = 0;
  std::array<std::set<int>, 2> slots;  // of 20 cm along the camera's wall: trained on, set aside
  for (int i = 0; i < 280; ++i) {
    const bool heldOut = i % 2 == 0;
    const Scene scene = randomScene(random, heldOut);
    EXPECT_EQ(heldOutRooms.contains(scene.room.width), heldOut);
    const glm::vec3& camera = scene.camera.position;
    slots[heldOut ? 1 : 0].insert(static_cast<int>(camera.x / 0.2F));
    EXPECT_TRUE(camera.x > 0 && camera.x < scene.room.width && camera.z >= 2);
    EXPECT_LE(camera.z, std::min(3.5F, scene.room.height));
    const glm::vec3 bed = scene.camera.project(scene.room.bed.at(0.5F, 0.5F));
    seeTheBed += bed.z > 0 && bed.x > 0 && bed.x < 1280 && bed.y > 0 && bed.y < 720;
    for (const Person& person : scene.people) {
      EXPECT_EQ(heldOutBodies.contains(person.shape.height), heldOut);
      inBed += person.inBed;
      if (!person.inBed) {
        EXPECT_NEAR(extent(makeFigure(person.shape, person.pose)).first, 0, 0.03F);
      }
    }
  }
  EXPECT_GT(inBed, 80U);
  EXPECT_GT(seeTheBed, 270U);
  EXPECT_GE(slots[1].size(), 3U);
  EXPECT_GE(slots[0].size(), 12U);
  for (const int slot : slots[1]) EXPECT_FALSE(slots[0].contains(slot));
}

class Drawing : public testing::Test {
 protected:
  Drawing() {
    m_scene.room = makeRoom(0);
    m_scene.camera.position = {m_scene.room.width / 2, 0.15F, 2.4F};
    m_scene.camera.heading = glm::half_pi<float>();
    m_scene.camera.pitch = 0.65F;
    setOptics(m_scene.camera, {});
  }

  void stand(glm::vec2 place) {
    Person person;
    person.pose = standingPose(place, -glm::half_pi<float>());
    settle(person.shape, person.pose, 0);
    m_scene.people.push_back(person);
  }

  std::vector<TrueKeypoints> draw() { return m_scene.draw(m_renderer, {}, 640, 360); }

  /// One for all tests and never destroyed: what Mesa keeps is no leak while its driver stays loaded.
  static Renderer& renderer() {
    static auto& once = *new Renderer;
    return once;
  }

  Renderer& m_renderer = renderer();
  Scene m_scene;
};

TEST_F(Drawing, ShowsThingsWhereTheCameraProjectsThem) {
  const glm::vec3 place(m_scene.room.width / 2 + 0.5F, 2, 1);
  Mesh ball;
  addFigure({{}, {}, {{place, place, 0.05F, 0.05F, {0, 1, 0}, 1, {1, 0, 1}, Surface::kLight}}}, ball);
  const glm::vec3 seen = m_scene.camera.project(place);
  for (const Window& window : {Window{}, Window{500, 100, 640, 360}, Window{-100, -50, 1280, 720}}) {
    m_renderer.draw(m_scene.camera, window, m_scene.light, m_scene.room, ball, 640, 360);
    const Picture& picture = m_renderer.picture();
    ASSERT_EQ(picture.rgb.size(), 640U * 360 * 3);
    glm::vec2 sum(0);
    float count = 0;
    for (std::size_t i = 0; i < picture.rgb.size(); i += 3) {
      if (picture.rgb[i] < 200 || picture.rgb[i + 1] > 60 || picture.rgb[i + 2] < 200) continue;
      const std::size_t column = i / 3 % 640;
      const std::size_t row = i / 3 / 640;
      sum += glm::vec2(static_cast<float>(column) + 0.5F, static_cast<float>(row) + 0.5F);
      ++count;
    }
    const float scale = 640 / window.width;
    const glm::vec2 expected = (glm::vec2(seen) - glm::vec2(window.x, window.y)) * scale;
    ASSERT_GT(count, 50);
    EXPECT_LT(glm::distance(sum / count, expected), 1.5F);
    EXPECT_NEAR(m_renderer.depthAt(expected.x, expected.y), seen.z - 0.05F, 0.02F);
    EXPECT_GT(m_renderer.depthAt(-1, 10), 10) << "beyond the border";
    EXPECT_GT(m_renderer.depthAt(10, 360), 10) << "beyond the border";
  }
}

TEST_F(Drawing, TheBlanketHidesWhatItCovers) {
  const Bed& bed = m_scene.room.bed;
  Person patient;
  patient.inBed = true;
  patient.pose = lyingPose(glm::vec2(bed.at(0.48F, 0.5F)), bed.heading, 0);
  settle(patient.shape, patient.pose, bed.mattress - 0.02F);
  m_scene.people = {patient};
  for (const auto& [cover, knees] : {std::pair{0.7F, Visibility::kHidden}, {0.0F, Visibility::kVisible}}) {
    m_scene.cover = cover;
    const TrueKeypoints truth = draw().at(0);
    EXPECT_EQ(truth[kNose].visibility, Visibility::kVisible) << cover;
    EXPECT_EQ(truth[kLeftKnee].visibility, knees) << cover;
    EXPECT_EQ(truth[kLeftKnee + 1].visibility, knees) << cover;
  }
}

TEST_F(Drawing, PeopleHideWhoIsBehindThemAndNobodyIsSeenOutsideThePicture) {
  const float x = m_scene.camera.position.x;
  stand({x, 3});
  std::vector<TrueKeypoints> truth = draw();
  for (const TrueKeypoint& keypoint : truth.at(0)) EXPECT_NE(keypoint.visibility, Visibility::kOutside);
  EXPECT_EQ(truth[0][kLeftHip].visibility, Visibility::kVisible);
  EXPECT_EQ(truth[0][kNose].visibility, Visibility::kVisible);
  stand({x, 2.4F});
  stand({x, -1});
  truth = draw();
  EXPECT_EQ(truth[0][kLeftHip].visibility, Visibility::kHidden);
  EXPECT_EQ(truth[0][kRightHip].visibility, Visibility::kHidden);
  EXPECT_EQ(truth[1][kLeftHip].visibility, Visibility::kVisible);
  for (const TrueKeypoint& keypoint : truth[2]) EXPECT_EQ(keypoint.visibility, Visibility::kOutside) << "behind us";
}

}  // namespace
}  // namespace simulator
