// From raw heads to people, and from people through the tensors and the program's own decoder back to the same people.
#include "platform/workstation/inference/pose_adapter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

#include "pose/PosenetDecoder.h"

namespace {

using workstation::AdapterSettings;
using workstation::DecodedPerson;
using workstation::kPersonPoints;
using workstation::PoseHeads;

// ---- from heads to people ----

constexpr int kRows = 20, kColumns = 30;
constexpr size_t kHeadCells = 600;
constexpr float kCold = -9, kWarm = 2;  // logits

float probability(float logit) { return 1 / (1 + std::exp(-logit)); }

/// Heads in which people are drawn.
struct Drawing {
  std::vector<float> center = std::vector<float>(kHeadCells, kCold);
  std::vector<float> regression = std::vector<float>(34 * kHeadCells, 0.0F);
  std::vector<float> heat = std::vector<float>(17 * kHeadCells, kCold);
  std::vector<float> offset = std::vector<float>(34 * kHeadCells, 0.25F);

  static size_t at(size_t channel, int y, int x) {
    return (channel * kRows + static_cast<size_t>(y)) * kColumns + static_cast<size_t>(x);
  }

  /// Joint k of somebody centred at (y, x): two cells further down for each four of k, one to the right for each of k
  /// % 4.
  static int rowOf(size_t k, int y) { return y + 2 * static_cast<int>(k / 4) - 4; }
  static int columnOf(size_t k, int x) { return x + static_cast<int>(k % 4); }

  void person(int y, int x, float logit) {
    center[at(0, y, x)] = logit;
    for (size_t k = 0; k < kPersonPoints; ++k) {
      const int row = rowOf(k, y), column = columnOf(k, x);
      // The regression is half a cell off; the heat tells better, and the offset best.
      regression[at(2 * k, y, x)] = static_cast<float>(row - y) + 0.5F;
      regression[at(2 * k + 1, y, x)] = static_cast<float>(column - x) - 0.5F;
      heat[at(k, row, column)] = kWarm;
    }
  }

  PoseHeads heads() const { return {center, regression, heat, offset, kRows, kColumns}; }
};

TEST(PeopleDecoder, FindsEachPersonWhereHeatAndOffsetSay) {
  Drawing drawing;
  drawing.person(10, 5, 1);
  drawing.person(8, 22, 2);
  drawing.person(15, 14, -2);                    // too unlikely
  drawing.center[Drawing::at(0, 10, 7)] = 0.5F;  // in the reach of a higher centre
  const auto people = workstation::decodePeople(drawing.heads(), {});
  ASSERT_EQ(people.size(), 2U);
  EXPECT_FLOAT_EQ(people[0].score, probability(2));
  const float loss = std::exp(-0.5F / (0.3F * kRows));
  for (size_t k = 0; k < kPersonPoints; ++k) {
    EXPECT_FLOAT_EQ(people[0].points[k].y, static_cast<float>(Drawing::rowOf(k, 8)) + 0.25F);
    EXPECT_FLOAT_EQ(people[1].points[k].x, static_cast<float>(Drawing::columnOf(k, 5)) + 0.25F);
    EXPECT_NEAR(people[1].points[k].score, probability(kWarm) * loss, 1e-5F);
  }
}

TEST(PeopleDecoder, TakesOnePersonSeenFromTwoCentresForOne) {
  Drawing drawing;
  drawing.person(10, 5, 2);
  drawing.center[Drawing::at(0, 10, 8)] = 1;
  for (size_t k = 0; k < kPersonPoints; ++k) {
    drawing.regression[Drawing::at(2 * k, 10, 8)] = static_cast<float>(Drawing::rowOf(k, 10) - 10);
    drawing.regression[Drawing::at(2 * k + 1, 10, 8)] = static_cast<float>(Drawing::columnOf(k, 5) - 8);
  }
  EXPECT_EQ(workstation::decodePeople(drawing.heads(), {}).size(), 1U);
  EXPECT_EQ(workstation::decodePeople(drawing.heads(), {.twin_distance = 0}).size(), 2U);
  EXPECT_EQ(workstation::decodePeople(drawing.heads(), {.twin_distance = 0, .most_people = 1}).size(), 1U);
}

TEST(PeopleDecoder, SurvivesWhatIsNoNumberOrFarAway) {
  for (const float bad :
       {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), 1e30F, -1e30F}) {
    for (std::vector<float> Drawing::*map :
         {&Drawing::center, &Drawing::regression, &Drawing::heat, &Drawing::offset}) {
      Drawing drawing;
      drawing.person(10, 5, 2);
      std::fill((drawing.*map).begin(), (drawing.*map).end(), bad);
      for (const DecodedPerson& person : workstation::decodePeople(drawing.heads(), {})) {
        for (const auto& point : person.points) EXPECT_TRUE(std::isfinite(point.y + point.x + point.score));
      }
    }
  }
}

TEST(PoseAdapter, ALaterLookAddsOnlyWhomTheEarlierOverlooked) {
  Drawing first, second;
  first.person(10, 5, 2);
  second.person(10, 5, 2);
  second.person(8, 22, 1);
  AdapterSettings settings;
  settings.scales = {{{}, 20}, {{}, 20.5F}};
  settings.same_distance = 0.2F;
  settings.confidence_gain = 2;
  settings.confidence_bias = -1;
  const std::vector<PoseHeads> heads = {first.heads(), second.heads()};
  const auto people = workstation::findPeople(heads, settings);
  ASSERT_EQ(people.size(), 2U);
  EXPECT_FLOAT_EQ(people[0].points[0].y, 6.25F * 20) << "as the first look sees it";
  EXPECT_FLOAT_EQ(people[1].points[0].x, 22.25F * 20.5F);
  const float score = probability(kWarm) * std::exp(-0.5F / (0.3F * kRows));
  EXPECT_NEAR(people[0].points[3].score, probability(2 * std::log(score / (1 - score)) - 1), 1e-4F);
  settings.same_distance = 0;
  EXPECT_EQ(workstation::findPeople(heads, settings).size(), 3U);
}

// ---- from people to tensors and back ----

constexpr int kGridRows = 46, kGridColumns = 81;
constexpr float kStride = 16;

/// Somebody `height` pixels tall, the head at (y, x), drawn along (dy, dx); joint k has the score 0.5 + k / 50.
DecodedPerson figure(float y, float x, float height, float dy, float dx) {
  constexpr float kAlong[] = {0,     -0.02F, -0.02F, 0,    0,     0.15F, 0.15F, 0.3F, 0.3F,
                              0.45F, 0.45F,  0.5F,   0.5F, 0.72F, 0.72F, 1,     1};
  constexpr float kAside[] = {0,     0.02F,  -0.02F, 0.05F,  -0.05F, 0.12F,  -0.12F, 0.2F, -0.2F,
                              0.22F, -0.22F, 0.08F,  -0.08F, 0.09F,  -0.09F, 0.1F,   -0.1F};
  DecodedPerson person;
  for (size_t k = 0; k < kPersonPoints; ++k) {
    person.points[k] = {y + height * (kAlong[k] * dy + kAside[k] * dx), x + height * (kAlong[k] * dx - kAside[k] * dy),
                        0.5F + static_cast<float>(k) / 50};
  }
  return person;
}

struct Poses {
  int count = 0;
  std::vector<PosenetDecoder::PoseKeypoints> points = std::vector<PosenetDecoder::PoseKeypoints>(20);
  std::vector<PosenetDecoder::PoseKeypointScores> scores = std::vector<PosenetDecoder::PoseKeypointScores>(20);
  std::vector<float> total = std::vector<float>(20);
};

/// Written as bytes, read as the program reads them.
Poses thereAndBack(const std::vector<DecodedPerson>& people) {
  constexpr size_t kCells = 3726;
  std::vector<uint8_t> heat(kCells * 17, 99), shorts(kCells * 34, 99), mids(kCells * 64, 99);
  workstation::writePose(
      people,
      {{heat, {0.08174263F, 210}}, {shorts, {0.7368203F, 142}}, {mids, {1.4407082F, 123}}, kGridRows, kGridColumns});
  const auto floats = [](const std::vector<uint8_t>& bytes, float scale, int zero) {
    std::vector<float> values(bytes.size());
    std::transform(bytes.begin(), bytes.end(), values.begin(),
                   [&](uint8_t q) { return static_cast<float>(q - zero) * scale; });
    return values;
  };
  Poses poses;
  poses.count =
      PosenetDecoder::DecodeAllPoses(floats(heat, 0.08174263F, 210).data(), floats(shorts, 0.7368203F / 16, 142).data(),
                                     floats(mids, 1.4407082F / 16, 123).data(), kGridRows, kGridColumns, 20, 0.01F, 5,
                                     2.0F, 16, poses.points.data(), poses.scores.data(), poses.total.data());
  return poses;
}

float worstDistance(const DecodedPerson& person, const PosenetDecoder::PoseKeypoints& pose) {
  float worst = 0;
  for (size_t k = 0; k < kPersonPoints; ++k) {
    worst =
        std::max(worst, std::hypot(person.points[k].y - pose.keypoint[k].y, person.points[k].x - pose.keypoint[k].x));
  }
  return worst;
}

TEST(PoseAdapter, TheDecoderFindsTheSamePeopleAgain) {
  const std::vector<DecodedPerson> people = {
      figure(60, 200, 620, 1, 0),    // fills the picture: its limbs are longer than an offset reaches
      figure(300, 700, 260, 1, 0),   // somebody upright
      figure(330, 780, 240, 1, 0),   // close beside
      figure(600, 640, 300, 0, 1),   // lying, the head at the left
      figure(400, 1100, 90, -1, 0),  // head down and small
  };
  const Poses poses = thereAndBack(people);
  ASSERT_EQ(poses.count, static_cast<int>(people.size()));
  for (size_t i = 0; i < people.size(); ++i) {
    const auto pose = std::min_element(
        poses.points.begin(), poses.points.begin() + poses.count,
        [&](const auto& a, const auto& b) { return worstDistance(people[i], a) < worstDistance(people[i], b); });
    EXPECT_LT(worstDistance(people[i], *pose), 3.0F) << "person " << i;
    const auto& scores = poses.scores[static_cast<size_t>(pose - poses.points.begin())];
    for (size_t k = 0; k < kPersonPoints; ++k)
      EXPECT_NEAR(scores.keypoint[k], people[i].points[k].score, 0.02F) << i << " " << k;
  }
  EXPECT_EQ(thereAndBack({}).count, 0);
}

TEST(PoseAdapter, PeopleWhoOverlapKeepTheirOwnJoints) {
  const DecodedPerson front = figure(200, 400, 300, 1, 0);
  DecodedPerson behind = figure(200, 452, 300, 1, 0);  // every joint some three cells beside
  behind.points[9].score = 0;                          // a hidden wrist is no wrist
  const Poses poses = thereAndBack({front, behind});
  ASSERT_EQ(poses.count, 2);
  const size_t second = worstDistance(behind, poses.points[1]) < worstDistance(behind, poses.points[0]) ? 1 : 0;
  EXPECT_LT(worstDistance(front, poses.points[1 - second]), 3.0F);
  EXPECT_LT(worstDistance(behind, poses.points[second]), 3.0F);
  EXPECT_LT(poses.scores[second].keypoint[9], 0.001F);
}

TEST(PoseAdapter, CandidatesAreTheBestPeopleThenNobody) {
  DecodedPerson weak = figure(100, 100, 100, 1, 0);
  for (auto& point : weak.points) point.score = 0.25F;
  std::vector<float> scores(3, 9), boxes(12, 9), count(1, 9), classes(3, 9);
  workstation::writeCandidates(std::vector<DecodedPerson>{weak, figure(60, 150, 270, 1, 0)}, 300, 300,
                               {scores, boxes, count, classes});
  EXPECT_NEAR(scores[0], 0.66F, 1e-5F);
  EXPECT_NEAR(scores[1], 0.25F, 1e-5F);
  EXPECT_EQ(scores[2], 0);
  EXPECT_EQ(count[0], 2);
  EXPECT_EQ(classes, std::vector<float>(3, 0));
  EXPECT_NEAR(boxes[0], 0.182F, 1e-3F);  // eyes
  EXPECT_EQ(boxes[2], 1) << "ankles below the square";
  EXPECT_NEAR(boxes[3] - boxes[1], 0.396F, 1e-3F);  // wrists
  EXPECT_EQ(std::accumulate(boxes.begin() + 8, boxes.end(), 0.0F), 0);
  std::vector<float> one(1), its_box(4);
  workstation::writeCandidates(std::vector<DecodedPerson>{weak, figure(60, 150, 270, 1, 0)}, 300, 300,
                               {one, its_box, count, one});
  EXPECT_EQ(count[0], 1);
}

}  // namespace
