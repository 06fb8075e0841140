#include "pose/skeleton.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <tuple>

#include "pose/skeleton_fusion.h"

namespace {

using enum BodyPart;

/// All 17 keypoints in one place.
Keypoints everywhere(const Point& point, float score) {
  Keypoints keypoints;
  for (const BodyPart part : BodyParts) keypoints[part] = {point, part, score};
  return keypoints;
}

void place(Keypoints& keypoints, BodyPart part, int x, int y, float score) { keypoints[part] = {{x, y}, part, score}; }

/// Head at (x, top), feet at (x, bottom), shoulders as wide as `width`.
Skeleton person(int x, int top, int bottom, int width, int detectorRotation, float score = 0.5F) {
  Keypoints keypoints = everywhere({x, top}, 0.5F);
  for (const BodyPart part : {LeftAnkle, RightAnkle}) place(keypoints, part, x, bottom, 0.5F);
  place(keypoints, LeftShoulder, x + width / 2, top, 0.5F);
  place(keypoints, RightShoulder, x - width / 2, top, 0.5F);
  return {keypoints, detectorRotation, score};
}

bool operator==(const Point& a, const Point& b) { return a.x == b.x && a.y == b.y; }

TEST(SkeletonPoints, TheSuperiorPointGoesDownTheRanking) {
  Keypoints keypoints = everywhere({1, 1}, 0.1F);  // a score of exactly 0.1 does not count
  Point point(-1, -1);
  EXPECT_FALSE(getSuperior(keypoints, point));
  EXPECT_TRUE(point == Point(-1, -1));
  int x = 100;
  for (const BodyPart part : {LeftShoulder, RightEar, LeftEar, RightEye, LeftEye, Nose}) {
    place(keypoints, part, ++x, 5, 0.11F);
    ASSERT_TRUE(getSuperior(keypoints, point));
    EXPECT_TRUE(point == Point(x, 5)) << bodyPartToName(part);
  }
  place(keypoints, RightShoulder, -104, -8, 0.11F);  // with the left one at (101, 5)
  ASSERT_TRUE(getSuperior(keypoints, point));
  EXPECT_TRUE(point == Point(-1, -1)) << "the middle is truncated toward zero";
  const Keypoints shoulder = {{RightShoulder, {{7, 8}, RightShoulder, 0.2F}}};
  ASSERT_TRUE(getSuperior(shoulder, point));
  EXPECT_TRUE(point == Point(7, 8));
}

TEST(SkeletonPoints, FeetAndHipsNeedNoScore) {
  for (const auto& [find, left, right] :
       {std::tuple{&getInferior, LeftAnkle, RightAnkle}, std::tuple{&getHipMedian, LeftHip, RightHip}}) {
    Keypoints keypoints;
    Point point;
    EXPECT_FALSE(find(keypoints, point));
    place(keypoints, left, 3, 10, 0.0F);
    EXPECT_TRUE(find(keypoints, point) && point == Point(3, 10));
    place(keypoints, right, 6, 11, 0.0F);
    EXPECT_TRUE(find(keypoints, point) && point == Point(4, 10));
  }
}

TEST(SkeletonShape, TheBoxLeavesOutArmsAndTheEdgesWeakEnds) {
  Keypoints keypoints = everywhere({50, 60}, 0.5F);
  for (const BodyPart arm : {LeftElbow, RightElbow, LeftWrist, RightWrist}) place(keypoints, arm, 900, 900, 1.0F);
  place(keypoints, Nose, 10, 70, 0.0F);
  place(keypoints, LeftKnee, 55, 90, 0.0F);
  const Skeleton skeleton(keypoints, 0, 0.5F);
  EXPECT_TRUE(skeleton.boundingBox.topLeft == Point(10, 60) && skeleton.boundingBox.bottomRight == Point(55, 90));
  ASSERT_EQ(skeleton.edges.size(), 19U - 4U - 2U);  // four start at the nose, two meet at the left knee
  EXPECT_EQ(skeleton.edges.front().a.bodyPart, LeftEar);
  EXPECT_EQ(skeleton.edges.back().b.bodyPart, RightAnkle);
  EXPECT_TRUE(isHead(skeleton.edges.front()));
  EXPECT_FALSE(isHead(skeleton.edges.back()));
  keypoints.erase(RightAnkle);
  EXPECT_THROW(getEdges(keypoints), std::out_of_range);
  EXPECT_EQ(getBoundingBox({}).topLeft.x, std::numeric_limits<int>::max());
}

TEST(SkeletonShape, HeightAndRotationFollowTheAxis) {
  for (const auto& [head, feet, height, expected] :
       {std::tuple(Point(100, 50), Point(100, 250), 200.0F, 0), std::tuple(Point(9, 250), Point(9, 50), 200.0F, 180),
        std::tuple(Point(40, 80), Point(340, 80), 300.0F, 90), std::tuple(Point(340, 80), Point(40, 80), 300.0F, 270),
        std::tuple(Point(30, 40), Point(0, 0), 50.0F, 180)}) {
    Keypoints keypoints = everywhere(head, 0.5F);
    for (const BodyPart part : {LeftAnkle, RightAnkle}) place(keypoints, part, feet.x, feet.y, 0.0F);
    const Skeleton skeleton(keypoints, 0, 0.5F);
    int rotation = -7;
    EXPECT_TRUE(skeleton.getRotation(rotation));
    EXPECT_EQ(std::tuple(skeleton.skeletonHeight, rotation), std::tuple(height, expected));
  }
  int rotation = -7;
  EXPECT_FALSE(Skeleton().getRotation(rotation));
  EXPECT_EQ(rotation, -7);
}

TEST(SkeletonShape, BoundariesBelongToTheRangeAbove) {
  const std::vector<std::pair<float, int>> expected = {
      {0.7853982F, 180}, {0.7853981F, 270}, {-0.7853982F, 270}, {-0.7853983F, 0},    {2.3561945F, 90}, {3.1415927F, 90},
      {-3.1415927F, 90}, {-2.3561945F, 0},  {-2.3561947F, 90},  {std::nanf(""), -1}, {4.0F, -1}};
  for (const auto& [angle, rotation] : expected) EXPECT_EQ(skeletonAngleToRotation(angle), rotation) << angle;
  for (const int d : {0, 90, 180, 270, -1}) {
    for (const int r : {0, 90, 180, 270, -1}) {
      EXPECT_EQ(isAdjacentDetector(d, r), d >= 0 && r >= 0 && std::abs(d - r) % 180 == 90) << d << " " << r;
    }
  }
}

TEST(SkeletonValidity, RejectsWhatIsNoPerson) {
  EXPECT_TRUE(person(500, 100, 300, 100, 0).isValid(1000, 1000));
  EXPECT_TRUE(person(500, 100, 300, 100, 90).isValid(1000, 1000));
  EXPECT_FALSE(person(500, 100, 300, 100, 180).isValid(1000, 1000)) << "upside-down to the run";
  EXPECT_FALSE(person(500, 100, 150, 100, 0).isValid(1000, 1000)) << "half a percent of the picture";
  EXPECT_FALSE(person(500, 50, 950, 800, 0).isValid(1000, 1000)) << "72 percent of it";
  EXPECT_FALSE(person(500, 349, 49, 100, 180).isValid(1000, 1000)) << "feet at the picture's top";
  EXPECT_TRUE(person(500, 350, 50, 100, 180).isValid(1000, 1000));
  EXPECT_FALSE(Skeleton().isValid(1000, 1000)) << "neither top nor feet";
  EXPECT_TRUE(Skeleton({{Nose, {{5, 5}, Nose, 0.5F}}}, Edges(), 0, 0.5F).isValid(1000, 1000)) << "no feet, no size";
}

TEST(SkeletonValidity, TheMarginToThePictureEdgeGrowsWithTheBox) {
  const std::tuple<int, int, int, int, bool> cases[] = {{10, 10, 90, 170, false},   {9, 10, 90, 170, true},
                                                        {10, 9, 90, 170, true},     {110, 110, 190, 190, false},
                                                        {110, 110, 191, 190, true}, {110, 110, 190, 191, true}};
  for (const auto& [left, top, right, bottom, isNear] : cases) {
    Skeleton skeleton;
    skeleton.boundingBox = {{left, top}, {right, bottom}};
    EXPECT_EQ(skeleton.isNearEdge(200, 200), isNear) << left << " " << top << " " << right << " " << bottom;
  }
}

/// Skeletons `apart` pixels from each other sideways, with boxes that do not overlap.
Skeletons row(int apart, const std::vector<std::pair<int, float>>& rotationsAndScores) {
  Skeletons skeletons;
  for (const auto& [rotation, score] : rotationsAndScores) {
    skeletons.push_back(person(100 + apart * static_cast<int>(skeletons.size()), 50, 250, 0, rotation, score));
  }
  return skeletons;
}

TEST(Fusion, MergesQuarterTurnsAndKeepsTheStrongerOtherwise) {
  using Found = std::vector<std::pair<int, float>>;  // detector rotation, score
  struct Case {
    int apart;
    Found given;
    Found expected;
  };
  const Case cases[] = {{50, {{0, 0.5F}, {0, 0.75F}}, {{0, 0.75F}}},
                        {50, {{0, 0.75F}, {180, 0.5F}}, {{0, 0.75F}}},
                        {50, {{180, 0.5F}, {0, 0.5F}}, {{0, 0.5F}}},  // of equals the earlier goes
                        {100, {{0, 0.5F}, {90, 0.25F}}, {{-1, 0.75F}}},
                        {101, {{0, 0.5F}, {90, 0.25F}}, {{0, 0.5F}, {90, 0.25F}}},
                        {50, {{0, 0.25F}, {90, 0.25F}, {180, 0.75F}}, {{180, 0.75F}}},  // a merged one never merges
                        {50, {{90, 0.5F}, {0, 0.25F}, {270, 0.5F}}, {{-1, 0.75F}}}};
  for (const Case& c : cases) {
    Skeletons skeletons = row(c.apart, c.given);
    clusterSkeletons(skeletons);
    Found found;
    for (const Skeleton& one : skeletons) found.emplace_back(one.detectorRotation, one.score);
    EXPECT_EQ(found, c.expected);
  }
}

TEST(Fusion, CombinesInOrderAndKeepsTheConfident) {
  const Skeletons far = row(400, {{0, 0.5F}, {270, 0.25F}, {180, 0.75F}, {90, 0.625F}});
  const Skeletons west = {far[3], person(100, 50, 250, 0, 90, 0.25F)};  // the second is where far[0] is
  Skeletons headless = far;
  for (Skeleton& one : headless) one.hasSuperior = false;
  const auto found = [&](const Skeletons& north, float threshold) {
    std::vector<int> rotations;
    for (const Skeleton& one : combineSkeletons(north, {far[1]}, {far[2]}, west, threshold, 1, 1)) {
      rotations.push_back(one.detectorRotation);
    }
    return rotations;
  };
  EXPECT_EQ(found({far[0]}, 0.2F), (std::vector{270, 180, 90, -1}));
  EXPECT_EQ(found({far[0]}, 0.25F), (std::vector{180, 90, -1})) << "a score equal to the threshold is not enough";
  EXPECT_TRUE(combineSkeletons(headless, {}, {}, {}, 0.2F, 1, 1).empty());
}

TEST(Fusion, WeighsDistanceByScoresPartsAndOverlap) {
  Skeleton a(everywhere({0, 0}, 0.0F), 0, 0.5F);
  Skeleton b = a;
  EXPECT_TRUE(std::isnan(getDistance(a, b))) << "no score, no distance";
  place(a.keypoints, Nose, 0, 0, 0.5F);
  place(b.keypoints, Nose, 30, 40, 0.25F);         // 50 away, weight 0.75 * 2
  place(b.keypoints, LeftShoulder, 10, 0, 0.25F);  // 10 away, weight 0.25 * 8
  EXPECT_FLOAT_EQ(getDistance(a, b), (1.5F * 50.0F + 2.0F * 10.0F) / 3.5F);
  a.boundingBox = {{0, 0}, {40, 10}};
  b.boundingBox = {{30, 5}, {50, 15}};  // 10 x 5 in common, the smaller has 200
  EXPECT_FLOAT_EQ(getDistance(a, b), (1.5F * 50.0F + 2.0F * 10.0F) / 3.5F * 0.75F);
  EXPECT_EQ(getIOS({{0, 0}, {100, 100}}, {{20, 20}, {30, 30}}), 1.0F);
  std::vector<float> weights;
  weights.reserve(bodyPartWeights.size());
  for (const auto& [part, weight] : bodyPartWeights) weights.push_back(weight);
  EXPECT_EQ(weights, (std::vector<float>{2, 1, 1, 1, 1, 8, 8, 1, 1, 1, 1, 8, 8, 4, 4, 2, 2}));
  EXPECT_EQ(getIOS({{0, 0}, {10, 10}}, {{10, 0}, {20, 10}}), 0.0F);
  b.keypoints.erase(RightAnkle);
  EXPECT_THROW(getDistance(a, b), std::out_of_range);
}

TEST(Fusion, MergedKeypointsLieAtTheWeightedMean) {
  Keypoints first = everywhere({10, 50}, 0.3F);
  place(first, LeftWrist, 90, 90, 0.0F);
  Keypoints second = everywhere({20, 90}, 0.1F);
  place(second, LeftWrist, 90, 90, 0.0F);
  const Skeleton merged = merge(Skeleton(first, 0, 0.5F), Skeleton(second, 90, 0.75F));
  EXPECT_TRUE(merged.keypoints.at(Nose).point == Point(12, 60));
  EXPECT_FLOAT_EQ(merged.keypoints.at(Nose).score, 0.4F);
  EXPECT_TRUE(merged.keypoints.at(LeftWrist).point == Point(0, 0));
  EXPECT_EQ(merged.detectorRotation, -1);
  EXPECT_EQ(merged.score, 1.25F);
  EXPECT_TRUE(merged.superior == Point(12, 60));
}

}  // namespace
