// Bodies, rooms and the pictures drawn of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <glm/gtc/constants.hpp>
#include <string>
#include <utility>

#include "simulator/drawing/scene.h"
#include "simulator/figures/postures.h"
#include "simulator/stories/area.h"

namespace simulator {
namespace {

constexpr std::size_t kNose = 0, kLeftHip = 11, kLeftKnee = 13;

/// Pairs of keypoints that one rigid piece of the body holds together: limbs, shoulders, hips, face.
constexpr std::array<std::size_t, 30> kBones = {5,  7,  7,  9,  6,  8, 8, 10, 5, 6, 11, 12, 11, 13, 13,
                                                15, 12, 14, 14, 16, 0, 1, 0,  2, 1, 3,  2,  4,  3,  4};

std::vector<Pose> allPostures() {
  return {standingPose({1, 2}, 0.3F),      walkingPose({1, 2}, 2, 1),
          sittingPose({1, 2}, -1),         kneelingPose({1, 2}, 3),
          bendingPose({1, 2}, 1),          lyingPose({1, 2}, 0.5F, 0),
          floorSittingPose({1, 2}, 2),     crawlingPose({1, 2}, 1, 2),
          sideLyingPose({1, 2}, 1, true),  halfLyingPose({1, 2}, 2),
          lyingPose({1, 2}, -2.5F, -1.4F), blend(standingPose({1, 2}, 0), lyingPose({1, 2}, 2, 1), 0.4F)};
}

/// Another posture: every joint is turned a little.
Pose disturbed(Pose pose, Random& random) {
  const auto turn = [&](float& angle) { angle += uniform(random, -0.5F, 0.5F); };
  for (float* angle : {&pose.spineBend, &pose.neckBend, &pose.neckTurn}) turn(*angle);
  for (auto* limbs : {&pose.arms, &pose.legs}) {
    for (Limb& limb : *limbs) {
      for (float* angle : {&limb.flex, &limb.abduct, &limb.twist, &limb.bend}) turn(*angle);
    }
  }
  pose.root.z = uniform(random, -1, 2);
  return pose;
}

/// The lowest drawn point's height.
float bottomOf(const Figure& figure) {
  Mesh mesh;
  addFigure(mesh, figure);
  const auto isLower = [](const Vertex& a, const Vertex& b) { return a.position.z < b.position.z; };
  return std::min_element(mesh.begin(), mesh.end(), isLower)->position.z;
}

TEST(Body, KeepsItsBonesAndItsPlaceHoweverThePoseIsDisturbed) {
  Random random(5);
  for (unsigned number = 0; number < kAllBodies; ++number) {
    const BodyShape shape = makeBody(number);
    const Figure upright = makeFigure(shape, standingPose({0, 0}, 0));
    for (const Pose& posture : allPostures()) {
      Pose pose = disturbed(posture, random);
      settle(shape, pose, 0.55F);
      const Figure figure = makeFigure(shape, pose);
      EXPECT_NEAR(bottomOf(figure), 0.55F, 0.03F) << "the lowest point lies on the surface";
      for (std::size_t i = 0; i < kBones.size(); i += 2) {
        const std::size_t a = kBones[i], b = kBones[i + 1];
        EXPECT_NEAR(glm::distance(figure.keypoints[a], figure.keypoints[b]),
                    glm::distance(upright.keypoints[a], upright.keypoints[b]), 1e-4F)
            << a << " to " << b;
      }
    }
  }
}

/// Free space in metres between the outlines of two boxes on the floor plan; 0 where they touch or overlap.
float gapBetween(const Box& a, const Box& b) {
  const glm::vec2 gap(glm::max(a.low - b.high, b.low - a.high));
  return glm::length(glm::max(gap, glm::vec2(0)));
}

Box boxOf(const Bed& bed) {
  const glm::vec3 foot = bed.at(0, 0), head = bed.at(1, 1), frame(0.08F, 0.08F, 1);
  return {glm::min(foot, head) - frame, glm::max(foot, head) + frame};
}

/// Whatever stands in the room is the bed or one of the pieces, and stays between floor, ceiling and walls.
void expectAllDrawnIsKnown(const Room& room) {
  std::vector<Box> known(room.furniture.begin(), room.furniture.end());
  for (const Bed& bed : room.beds) known.push_back(boxOf(bed));
  constexpr float kSlack = 1e-3F;
  for (std::size_t i = 0; i < room.mesh.size(); ++i) {
    const glm::vec3& point = room.mesh[i].position;
    const auto holds = [&](const Box& box) {
      return glm::all(glm::lessThan(box.low - kSlack, point)) && glm::all(glm::lessThan(point, box.high + kSlack));
    };
    ASSERT_TRUE(holds({{0, 0, 0}, {room.width, room.depth, room.height}}));
    ASSERT_TRUE(i < room.flatVertices || std::any_of(known.begin(), known.end(), holds));
  }
}

void expectGoodPlace(const Room& room, const Piece& piece) {
  const float toSide = std::min(piece.low.x, room.width - piece.high.x), toFar = room.depth - piece.high.y;
  float toBed = 10;
  for (const Bed& bed : room.beds) {
    const glm::vec3 edge = bed.at(0.2F, room.freeSide(bed));
    toBed = std::min(toBed, gapBetween(piece, boxOf(bed)));
    EXPECT_GT(gapBetween(piece, {edge, edge}), 0.5F) << "where people get up";
  }
  EXPECT_GT(toBed, 0);
  EXPECT_LT(std::min({toSide, toFar, toBed}), 0.2F) << "at a wall or at a bed";
  EXPECT_NEAR(piece.low.z, 0, 1e-3F);
  EXPECT_GT(piece.low.y, 1) << "cameras hang on the near wall";
  EXPECT_GT(gapBetween(piece, {glm::vec3(room.door, 0), glm::vec3(room.door, 0)}), 0.4F);
  if (piece.name != "wardrobe") return;
  EXPECT_GT(piece.high.z, 1.5F);
  EXPECT_EQ(piece.high.y - piece.low.y > piece.high.x - piece.low.x, toSide < toFar) << "its back is at the wall";
}

TEST(Room, FurnitureStandsAtWallsAndBedsAndInNobodysWay) {
  int wardrobes = 0;
  for (unsigned number = 0; number < kAllRooms; ++number) {
    const Room room = makeRoom(number);
    SCOPED_TRACE(number);
    ASSERT_EQ(room.beds.size(), number < kFirstOfTwoBeds ? 1U : number < kFirstOfThreeBeds ? 2U : 3U);
    EXPECT_LE(room.depth, room.beds.size() == 1 ? 4.5F : 5.5F);
    EXPECT_GE(room.furniture.size(), 2U);
    expectAllDrawnIsKnown(room);
    for (std::size_t i = 0; i < room.beds.size(); ++i) {
      const glm::vec3 head = room.beds[i].at(0.9F, 0.5F);
      const auto isBeside = [&](const Piece& piece) { return gapBetween(piece, {head, head}) < 0.8F; };
      EXPECT_TRUE(std::any_of(room.furniture.begin(), room.furniture.end(), isBeside)) << "no table at bed " << i + 1;
      for (std::size_t k = 0; k < i; ++k) EXPECT_GT(gapBetween(boxOf(room.beds[i]), boxOf(room.beds[k])), 0.8F);
    }
    for (std::size_t i = 0; i < room.furniture.size(); ++i) {
      const Piece& piece = room.furniture[i];
      for (std::size_t k = 0; k < i; ++k) EXPECT_GT(gapBetween(piece, room.furniture[k]), 0) << k << " and " << i;
      expectGoodPlace(room, piece);
      if (piece.name == "wardrobe") ++wardrobes;
    }
  }
  EXPECT_GT(wardrobes, 12);
}

/// Whether a point is further than `slack` pixels outside one of the sides of an area, walked clockwise.
bool isLeftOfASide(const Area& area, glm::vec2 point, float slack) {
  for (std::size_t i = 0; i < 4; ++i) {
    const glm::vec2 side = area[(i + 1) % 4] - area[i], away = point - area[i];
    if (side.x * away.y - side.y * away.x < -slack * glm::length(side)) return true;
  }
  return false;
}

float sizeOf(const Area& area) {
  float twice = 0;
  for (std::size_t i = 0; i < 4; ++i) twice += area[i].x * area[(i + 1) % 4].y - area[(i + 1) % 4].x * area[i].y;
  return twice / 2;
}

/// Of each of a bed's places up to the shoulders of who sits up in it, whether the area has it; those in the picture.
std::pair<int, int> covered(const Camera& camera, const Bed& bed, const Area& area) {
  int all = 0, inside = 0;
  for (int i = 0; i < 1000; ++i) {
    const auto digit = [&](int tens) { return static_cast<float>(i / tens % 10) / 9; };
    const glm::vec3 place = bed.at(digit(1), digit(10)) + glm::vec3(0, 0, digit(100) * kAirAboveMattress);
    if (!camera.sees(place)) continue;
    ++all;
    inside += isLeftOfASide(area, glm::vec2(camera.project(place)), 1.5F) ? 0 : 1;
  }
  return {all, inside};
}

/// Given every bed of all rooms, looked at from near and far so that some leave the picture, when its volume is drawn,
/// then the area is one that the page takes, and covers the bed without taking in half the room.
TEST(Bed, ItsVolumeIsCoveredByFourCornersInThePicture) {
  for (unsigned number = 0; number < kAllRooms; ++number) {
    const Room room = makeRoom(number);
    for (const Bed& bed : room.beds) {
      for (const float aside : {0.3F, 0.7F, 1.3F}) {
        SCOPED_TRACE(std::to_string(number) + ", " + std::to_string(aside));
        Camera camera;
        camera.position = {room.width / 2, 0.15F, 2.5F};
        const glm::vec3 way = bed.at(0.5F, aside) - camera.position;
        camera.heading = std::atan2(way.y, way.x);
        camera.pitch = std::atan2(-way.z, glm::length(glm::vec2(way)));
        camera.roll = 0.1F;
        setOptics(camera, {});
        const Area area = volumeArea(camera, bed), mattress = mattressArea(camera, bed);
        for (const glm::vec2 corner : area) {
          EXPECT_FALSE(isLeftOfASide(area, corner, 0.01F)) << "it is convex, clockwise";
          EXPECT_TRUE(corner.x >= 0 && corner.y >= 0 && corner.x <= 1279 && corner.y <= 719);
        }
        const auto [all, inside] = covered(camera, bed, area);
        EXPECT_GT(inside, 0.92 * all);
        EXPECT_GT(sizeOf(area), sizeOf(mattress));
        EXPECT_LT(sizeOf(area), 2.5 * sizeOf(mattress));
        EXPECT_LT(glm::distance(area[0], mattress[0]), glm::distance(area[2], mattress[0])) << "in the same order";
      }
    }
  }
}

class Drawing : public testing::Test {
 protected:
  Drawing() {
    m_scene.room = makeRoom(0);
    m_scene.camera.position = {m_scene.room.width / 2, 0.15F, 2.4F};
    m_scene.camera.heading = glm::half_pi<float>();
    m_scene.camera.pitch = 0.65F;
    setSize(640, 360);
  }

  void setSize(int width, int height) {
    m_scene.camera.width = width;
    m_scene.camera.height = height;
    setOptics(m_scene.camera, {});
  }

  void stand(glm::vec2 place) {
    Person person;
    person.pose = standingPose(place, -glm::half_pi<float>());
    settle(person.shape, person.pose, 0);
    m_scene.people.push_back(person);
  }

  std::vector<TrueKeypoints> draw() { return m_scene.draw(m_renderer); }

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
  addFigure(ball, {{}, {}, {{place, place, 0.05F, 0.05F, {0, 1, 0}, 1, {1, 0, 1}, Surface::kLight}}});
  for (const auto& [width, height] : {std::pair{640, 360}, {300, 500}, {1280, 720}}) {
    setSize(width, height);
    const glm::vec3 seen = m_scene.camera.project(place);
    m_renderer.draw(m_scene.camera, m_scene.light, m_scene.room, ball);
    const Picture& picture = m_renderer.picture();
    ASSERT_EQ(picture.rgb.size(), static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);
    glm::vec2 sum(0);
    float count = 0;
    for (std::size_t i = 0; i < picture.rgb.size(); i += 3) {
      if (picture.rgb[i] < 200 || picture.rgb[i + 1] > 60 || picture.rgb[i + 2] < 200) continue;
      const std::size_t row = i / 3 / static_cast<std::size_t>(width);
      sum +=
          glm::vec2(static_cast<float>(i / 3 % static_cast<std::size_t>(width)) + 0.5F, static_cast<float>(row) + 0.5F);
      ++count;
    }
    ASSERT_GT(count, 50);
    EXPECT_LT(glm::distance(sum / count, glm::vec2(seen)), 1.5F);
    EXPECT_NEAR(m_renderer.depthAt(seen.x, seen.y), seen.z - 0.05F, 0.02F);
    EXPECT_GT(m_renderer.depthAt(-1, 10), 10) << "beyond the border";
  }
}

TEST_F(Drawing, TheBlanketHidesWhatItCovers) {
  const Bed& bed = m_scene.room.beds[0];
  Person patient;
  patient.underBlanket = true;
  patient.pose = lyingPose(glm::vec2(bed.at(0.48F, 0.5F)), bed.heading, 0);
  settle(patient.shape, patient.pose, bed.mattress - 0.02F);
  m_scene.people = {patient};
  for (const auto& [cover, knees] : {std::pair{0.7F, Visibility::kHidden}, {0.0F, Visibility::kVisible}}) {
    m_scene.covers[0] = cover;
    const TrueKeypoints truth = draw().at(0);
    EXPECT_EQ(truth[kNose].visibility, Visibility::kVisible) << cover;
    EXPECT_EQ(truth[kLeftKnee].visibility, knees) << cover;
  }
}

TEST_F(Drawing, PeopleHideWhoIsBehindThemAndNobodyIsSeenOutsideThePicture) {
  const float x = m_scene.camera.position.x;
  stand({x, 3});
  std::vector<TrueKeypoints> truth = draw();
  EXPECT_EQ(truth.at(0)[kLeftHip].visibility, Visibility::kVisible);
  stand({x, 2.4F});
  stand({x, -1});
  truth = draw();
  EXPECT_EQ(truth[0][kLeftHip].visibility, Visibility::kHidden);
  EXPECT_EQ(truth[1][kLeftHip].visibility, Visibility::kVisible);
  for (const TrueKeypoint& keypoint : truth[2]) EXPECT_EQ(keypoint.visibility, Visibility::kOutside) << "behind us";
}

TEST_F(Drawing, OnlyWhatMovesIsDrawnAgainAndThePictureIsTheSame) {
  const float x = m_scene.camera.position.x;
  const auto whole = [&] {  // another size before it: nothing is left of the picture before
    setSize(640, 360);
    draw();
    setSize(1280, 720);
    draw();
    return m_renderer.picture().rgb;
  };
  setSize(1280, 720);
  for (const glm::vec3 towards :
       {glm::vec3(0.2F, -0.3F, 1), glm::vec3(-0.7F, 0.5F, 0.6F), glm::vec3(0.1F, 0.9F, 0.5F)}) {
    m_scene.light.towards = glm::normalize(towards);
    whole();
    for (int step = 0; step < 4; ++step) {
      // Somebody walks, somebody else comes and goes, and the bedding with the patient moves.
      m_scene.people.clear();
      stand({x + 0.3F * static_cast<float>(step), 2.6F});
      if (step % 2 == 1) stand({x - 0.8F, 0.9F});
      m_scene.covers[0] = step < 2 ? 0 : 0.3F;
      draw();
      const std::vector<std::uint8_t> part = m_renderer.picture().rgb;
      const float hip = m_renderer.depthAt(640, 360);
      ASSERT_EQ(part, whole()) << step;
      ASSERT_EQ(hip, m_renderer.depthAt(640, 360));
    }
  }
}

TEST_F(Drawing, InInfraredTheCameraGivesTheLightAndThereIsNoColour) {
  m_scene.camera.roll = 0.2F;
  draw();
  const Picture day = m_renderer.picture();
  m_scene.light = {{0, 0, 1}, glm::vec3(0), glm::vec3(0), glm::vec3(0), glm::vec3(6), m_scene.camera.position, 0, true};
  draw();
  const Picture& night = m_renderer.picture();
  std::size_t coloured = 0;
  for (std::size_t i = 0; i < night.rgb.size(); i += 3) {
    ASSERT_TRUE(night.rgb[i] == night.rgb[i + 1] && night.rgb[i] == night.rgb[i + 2]) << i;
    if (day.rgb[i] != day.rgb[i + 1]) ++coloured;
  }
  EXPECT_GT(coloured, day.rgb.size() / 6) << "by day there was some";
  const auto floorAt = [&](float y) {
    const glm::vec3 seen = m_scene.camera.project({m_scene.room.width / 2, y, 0});
    return night.rgb[(static_cast<std::size_t>(seen.y) * 640 + static_cast<std::size_t>(seen.x)) * 3];
  };
  EXPECT_GT(floorAt(1.7F), floorAt(3.2F) + 10) << "darker farther away";
}

TEST(Sensor, NoiseIsAsStrongAsAskedAndGreyOnGrey) {
  for (const bool colored : {true, false}) {
    Picture picture{200, 100, std::vector<std::uint8_t>(60'000, 128)}, other = picture;
    addNoise(picture, 12, colored, 7);
    addNoise(other, 12, colored, 8);
    EXPECT_NE(picture.rgb, other.rgb) << "every picture has its own";
    double sum = 0, squares = 0, grey = 0;
    for (std::size_t i = 0; i < picture.rgb.size(); ++i) {
      const double difference = picture.rgb[i] - 128.0;
      sum += difference;
      squares += difference * difference;
      if (i % 3 != 0 && picture.rgb[i] == picture.rgb[i - 1]) ++grey;
    }
    EXPECT_NEAR(sum / 60'000, 0, 0.3);
    EXPECT_NEAR(std::sqrt(squares / 60'000), 12, 0.4);
    EXPECT_EQ(grey == 40'000, !colored);
  }
}

TEST(Sensor, ItsPictureTurnedClockwiseIsUpright) {
  const Picture upright{2, 3, {0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5, 5, 5}};  // 01/23/45
  const auto expect = [&](unsigned rotation, int width, const std::vector<int>& pixels) {
    const Picture seen = asMounted(upright, rotation);
    EXPECT_EQ(seen.width, width) << rotation;
    EXPECT_EQ(seen.height, 6 / width) << rotation;
    for (std::size_t i = 0; i < pixels.size(); ++i)
      EXPECT_EQ(seen.rgb.at(i * 3 + 2), pixels[i]) << rotation << " " << i;
  };
  expect(0, 2, {0, 1, 2, 3, 4, 5});
  expect(90, 3, {1, 3, 5, 0, 2, 4});
  expect(180, 2, {5, 4, 3, 2, 1, 0});
  expect(270, 3, {4, 2, 0, 5, 3, 1});
}

}  // namespace
}  // namespace simulator
