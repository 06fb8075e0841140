#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "analysis/FindingsHistory.h"
#include "analysis/area_of_interest.h"
#include "analysis/detection_processing.h"
#include "analysis/tracker.h"
#include "app/truncate.h"

namespace {

Skeleton at(int x, int y) {
  Skeleton skeleton;
  skeleton.superior = {x, y};
  skeleton.hasSuperior = true;
  return skeleton;
}

Skeleton boxed(int left, int top, int width, int height) {
  Skeleton skeleton = at(left, top);
  skeleton.boundingBox = {{left, top}, {left + width, top + height}};
  return skeleton;
}

/// Ids and where each was seen last.
std::map<int, int> xById(const t_skeleton_objects_map& objects) {
  std::map<int, int> result;
  for (const auto& [id, skeleton] : objects) result[id] = skeleton.superior.x;
  return result;
}

using Seen = std::map<int, int>;

TEST(Tracker, MatchesGreedilyByTheNearestInputOnly) {
  tracker people;
  EXPECT_EQ(people.init(2), 0);
  EXPECT_EQ(xById(people.track_skeletons({at(100, 0), at(122, 0), at(900, 0)})), (Seen{{0, 100}, {1, 122}, {2, 900}}));
  // 110 is nearest to the first two; the second goes without, though 142 is 20 away; 142 is somebody new.
  EXPECT_EQ(xById(people.track_skeletons({at(142, 0), at(110, 0), at(1500, 0)})),
            (Seen{{0, 110}, {1, 122}, {2, 1500}, {3, 142}}));
  // Equal distances: the lower id and the lower input win.
  tracker ties;
  ties.init(5);
  ties.track_skeletons({at(0, 0), at(20, 0)});
  EXPECT_EQ(xById(ties.track_skeletons({at(10, 0)})), (Seen{{0, 10}, {1, 20}}));
  EXPECT_EQ(xById(ties.track_skeletons({at(15, 0), at(5, 0)})), (Seen{{0, 15}, {1, 20}, {2, 5}}));
  EXPECT_EQ(xById(ties.track_skeletons({at(9000, 0)})), (Seen{{0, 15}, {1, 9000}, {2, 5}}));  // no distance is too far
}

TEST(Tracker, DropsAfterTooManyCyclesWithoutReusingIds) {
  g_findingsHistory = FindingsHistory(12);
  tracker people;
  people.init(2);
  people.track_skeletons({at(0, 0), at(500, 0), at(900, 0)});
  for (int id = 0; id < 3; ++id) {
    Finding finding(id, {0, 0}, at(0, 0), Footings::floor);
    g_findingsHistory.add(finding);
  }
  EXPECT_EQ(people.track_skeletons({at(1, 0)}).size(), 3U);
  EXPECT_EQ(people.track_skeletons({}).size(), 3U);
  EXPECT_EQ(xById(people.track_skeletons({})), (Seen{{0, 1}}));  // a match had begun the first one's count anew
  EXPECT_EQ(g_findingsHistory.getIDs(), IDVector{0});
  EXPECT_EQ(xById(people.track_skeletons({at(1, 0), at(500, 0)})), (Seen{{0, 1}, {3, 500}}));
  people.set_max_disappeared(0);
  EXPECT_TRUE(people.track_skeletons({}).empty());
  EXPECT_EQ(xById(people.track_skeletons({at(7, 0)})), (Seen{{4, 7}}));
}

TEST(Tracker, DistancesAndTheirOrder) {
  const tracker people;
  EXPECT_FLOAT_EQ(people.compute_distance(at(3, 10), at(0, 6)), 5.0F);
  EXPECT_EQ(people.compute_distance(at(-2000000000, 0), at(2000000000, 0)), 4e9F);
  // Halves of odd sizes truncate toward zero: the centroids are (12, 20) and (8, 17).
  EXPECT_FLOAT_EQ(people.compute_distance(rectangle{10, 18, 5, 4}, rectangle{10, 20, -5, -7}), 5.0F);
  EXPECT_EQ(people.compute_all_distances(t_rectangle_list{{0, 0, 0, 0}}, {{3, 4, 0, 0}, {6, 8, 0, 0}}),
            (t_all_distances{{5, 10}}));
  const t_all_distances D{{4, 2, 2}, {7, 1, 9}, {2, 3, 8}};
  EXPECT_EQ(people.min_argsort(D), (std::vector<int>{1, 0, 2}));
  EXPECT_EQ(people.argmin_rows(D, {2, 0, 1, 0}), (std::vector<int>{0, 1, 1, 1}));
}

TEST(AreaOfInterest, InsideABoundaryAndAPentagram) {
  const area_of_interest areas;
  const t_Polygon square{{0, 0}, {10, 0}, {10, 10}, {0, 10}};
  const t_Polygon reversed(square.rbegin(), square.rend());
  for (const t_Polygon& polygon : {square, reversed}) {
    for (const auto& [point, inside] : {std::pair<t_XYPoint, bool>{{5, 5}, true},
                                        {{15, 5}, false},
                                        {{-5, 5}, false},
                                        {{0, 5}, true},
                                        {{10, 5}, false},
                                        {{5, 0}, true},
                                        {{5, 10}, false},
                                        {{0, 0}, true},
                                        {{10, 0}, false},
                                        {{10, 10}, false},
                                        {{0, 10}, false}}) {
      EXPECT_EQ(areas.is_winding_number_nonzero(point, polygon), inside) << point.first << "," << point.second;
    }
  }
  const t_Polygon pentagram{{50, 0}, {79, 90}, {2, 35}, {98, 35}, {21, 90}};
  EXPECT_FALSE(areas.is_winding_number_nonzero({50, 50}, pentagram));
  EXPECT_TRUE(areas.is_winding_number_nonzero({50, 20}, pentagram));
  EXPECT_FALSE(areas.is_winding_number_nonzero({5, 5}, {}));
  EXPECT_FALSE(areas.is_winding_number_nonzero({5, 5}, {{0, 0}, {10, 10}}));
  constexpr int kMost = std::numeric_limits<int>::max();
  EXPECT_TRUE(areas.is_winding_number_nonzero({0, 0}, {{-kMost, -kMost}, {kMost, -kMost}, {0, kMost}}));
}

TEST(AreaOfInterest, IdsAndSwitches) {
  area_of_interest areas;
  const t_Polygon square{{0, 0}, {10, 0}, {10, 10}, {0, 10}};
  EXPECT_TRUE(areas.get_detection_active(1));
  for (const int id : {1, 2, 3}) {
    EXPECT_FALSE(areas.is_detected(id, {5, 5}));
    EXPECT_FALSE(areas.get_exclusion_active(id));
    EXPECT_TRUE(areas.set_detection(id, square));
    EXPECT_TRUE(areas.set_exclusion(id, square));
    EXPECT_EQ(areas.is_detected(id, {5, 5}), id == 1);
    EXPECT_FALSE(areas.is_excluded({5, 5}));
    EXPECT_TRUE(areas.set_detection_active(id, true));
    EXPECT_TRUE(areas.set_exclusion_active(id, true));
    EXPECT_TRUE(areas.is_detected(id, {5, 5}));
    EXPECT_FALSE(areas.is_detected(id, {15, 5}));
    EXPECT_TRUE(areas.is_excluded({5, 5}));
    EXPECT_EQ(areas.get_detection(id), square);
    EXPECT_EQ(areas.get_exclusion(id), square);
    areas.set_exclusion_active(id, false);
  }
  for (const int id : {0, 4}) {
    EXPECT_FALSE(areas.set_detection(id, square) || areas.set_detection_active(id, false));
    EXPECT_FALSE(areas.set_exclusion(id, square) || areas.set_exclusion_active(id, false));
    EXPECT_TRUE(areas.get_detection(id).empty() && areas.get_exclusion(id).empty());
    EXPECT_TRUE(areas.get_detection_active(id) && areas.get_exclusion_active(id));
    EXPECT_FALSE(areas.is_detected(id, {5, 5}));
  }
}

TEST(Finding, RadiusFollowsTheShortSide) {
  for (const auto& [width, height, radius] : {std::tuple{20, 100, 20.0F},
                                              {60, 100, 30.0F},
                                              {50, 100, 25.0F},
                                              {100, 50, 25.0F},
                                              {100, 40, 40.0F},
                                              {0, 0, 0.0F}}) {
    const Finding finding(0, {0, 0}, boxed(5, 5, width, height), Footings::floor);
    EXPECT_EQ(finding.getExpectedSuperiorAreaRadius(), radius) << width << "x" << height;
  }
}

TEST(Finding, TorsoToLegsNeedsAllThreePoints) {
  Finding finding(0, {0, 0}, {}, Footings::floor);
  finding.averageSuperior = {0, 0};
  finding.averageHipMedian = {30, 40};
  finding.averageInferior = {30, 140};
  float ratio = 7;
  bool Finding::*const flags[] = {&Finding::hasValidAverageSuperior, &Finding::hasValidAverageHipMedian,
                                  &Finding::hasValidAverageInferior};
  for (const auto flag : flags) {
    EXPECT_FALSE(finding.getTorsoToLegsRatio(ratio));
    finding.*flag = true;
  }
  EXPECT_TRUE(finding.getTorsoToLegsRatio(ratio));
  EXPECT_FLOAT_EQ(ratio, 0.5F);
  finding.averageInferior = finding.averageHipMedian;
  EXPECT_FALSE(finding.getTorsoToLegsRatio(ratio));
  EXPECT_FLOAT_EQ(ratio, 0.5F);
}

/// Adds findings of one person without feet, so that no floor is needed, half a second apart unless told otherwise.
class History : public ::testing::Test {
 protected:
  const Finding& add(int x, int y, int elapsed_ms = 500) {
    ticker_clock::setReplayTime(m_now += std::chrono::milliseconds(elapsed_ms));
    FindingVector findings{Finding(3, {x, y}, at(x, y), Footings::floor)};
    history.add(findings);
    return history.getLatestFinding(3);
  }
  FindingsHistory history{12};
  TimeStamp m_now;
};

TEST_F(History, KeepsTheNewestTwelveOfEachPerson) {
  Findings findings;
  EXPECT_FALSE(history.get(3, findings));
  EXPECT_THROW(history.getLatestFinding(3), std::out_of_range);
  for (int i = 0; i < 14; ++i) add(10 * i, 0);
  ASSERT_TRUE(history.get(3, findings));
  ASSERT_EQ(findings.size(), 12U);
  EXPECT_EQ(findings.front().centroid.first, 20);
  EXPECT_EQ(findings.back().timeStamp, m_now);
  FindingVector others{Finding(9, {0, 0}, at(0, 0), Footings::bed), Finding(1, {0, 0}, at(0, 0), Footings::bed)};
  history.add(others);
  EXPECT_EQ(history.getIDs(), (IDVector{1, 3, 9}));
  history.remove(3);
  history.remove(77);
  EXPECT_EQ(history.getNumberOfEntries(), 2);
  add(0, 0);
  ASSERT_TRUE(history.get(3, findings));
  EXPECT_EQ(findings.size(), 1U);
}

TEST_F(History, AveragesBeginWithTheEleventhFindingAndTruncate) {
  for (int i = 0; i < 10; ++i) EXPECT_FALSE(add(-i, i).hasValidAverageSuperior);
  const Finding& eleventh = add(-11, 11);
  EXPECT_TRUE(eleventh.hasValidAverageSuperior);
  EXPECT_EQ(eleventh.averageSuperior.x, -5);  // -56 / 11
  EXPECT_EQ(eleventh.averageSuperior.y, 5);
  EXPECT_FALSE(eleventh.hasValidAverageInferior);
  EXPECT_FALSE(eleventh.hasValidExpectedSuperior);
  EXPECT_EQ(eleventh.activity, Activity::unknownActivity);
  EXPECT_FLOAT_EQ(eleventh.instantVelocity.x, -11.0F / 5000.0F);
  EXPECT_FLOAT_EQ(eleventh.averageVelocity.x, -11.0F / 5000.0F / 11.0F);
  EXPECT_FLOAT_EQ(add(-12, 0).averageVelocity.x, (-11.0F / 5000.0F - 12.0F / 5500.0F) / 12.0F);
}

Skeleton withHeight(float height, bool known = true) {
  Skeleton skeleton = at(0, 0);
  skeleton.hasSkeletonHeight = known;
  skeleton.skeletonHeight = height;
  return skeleton;
}

TEST(HistorySteps, SkeletonHeightIsTruncatedAsItIsSummed) {
  const FindingsHistory history(3);
  Findings findings(2, Finding(0, {0, 0}, withHeight(10.9F), Footings::floor));
  history.setAverageSkeletonHeight(findings);
  EXPECT_FLOAT_EQ(findings.back().averageSkeletonHeight, 10.9F);
  findings.emplace_back(0, t_one_centroid(0, 0), withHeight(11.9F), Footings::floor);
  history.setAverageSkeletonHeight(findings);  // 10 + 10.9 -> 20, + 11.9 -> 31, / 3
  EXPECT_EQ(findings.back().averageSkeletonHeight, 10.0F);
  EXPECT_TRUE(findings.back().hasValidAverageSkeletonHeight);
  for (Finding& finding : findings) finding.skeleton.hasSkeletonHeight = false;
  history.setAverageSkeletonHeight(findings);
  EXPECT_FLOAT_EQ(findings.back().averageSkeletonHeight, 10.9F);  // that of the finding before
  EXPECT_FALSE(findings.back().hasValidAverageSkeletonHeight);
}

TEST(HistorySteps, PostureFromTheExpectedPlaceAndTheProportions) {
  const FindingsHistory history(12);
  struct Case {
    int expectedX, hipY;
    Footings footing;
    bool hasFeet;
    Activity activity;
  };
  for (const Case& c : {Case{130, 160, Footings::floor, true, Activity::standing},
                        {131, 160, Footings::floor, true, Activity::lying_down},
                        {69, 160, Footings::unknown, true, Activity::lying_down},
                        {100, 132, Footings::floor, true, Activity::lying_down},
                        {100, 134, Footings::floor, true, Activity::standing},
                        {131, 160, Footings::bed, true, Activity::unknownActivity},
                        {131, 160, Footings::exclusion, true, Activity::unknownActivity},
                        {131, 160, Footings::floor, false, Activity::unknownActivity}}) {
    Skeleton skeleton = boxed(70, 100, 60, 100);
    skeleton.hasInferior = c.hasFeet;
    Findings findings(11, Finding(0, {100, 100}, skeleton, c.footing));
    Finding& current = findings.back();
    current.averageSuperior = {100, 100};
    current.averageHipMedian = {100, c.hipY};
    current.averageInferior = {100, 200};
    current.hasValidAverageSuperior = current.hasValidAverageHipMedian = current.hasValidAverageInferior = true;
    current.expectedSuperior = {c.expectedX, 100};
    history.setActivity(findings);
    EXPECT_EQ(current.activity, c.activity) << c.expectedX << " " << c.hipY;
  }
}

/// Somebody with a body of 100 pixels who drifts `step` pixels a cycle.
class Movement : public ::testing::TestWithParam<std::tuple<int, int, bool>> {};

TEST_P(Movement, IsDriftRelativeToTheBody) {
  const auto [step, elapsed_ms, moves] = GetParam();
  FindingsHistory history(12);
  TimeStamp now;
  for (int i = 0; i < 40; ++i) {
    ticker_clock::setReplayTime(now += std::chrono::milliseconds(elapsed_ms));
    Skeleton skeleton = boxed(600 + i * step, 300, 40, 100);
    skeleton.hasInferior = true;
    skeleton.skeletonHeight = 100;
    FindingVector findings{Finding(0, {skeleton.superior.x, 300}, skeleton, Footings::bed)};
    try {
      history.add(findings);
    } catch (const std::exception&) {
      // no floor is calibrated: what comes after the movement is not looked at
    }
  }
  const Finding& latest = history.getLatestFinding(0);
  EXPECT_EQ(latest.isMoving, moves) << latest.averageNormalFactorVelocity.x;
}

// 10 / 100000 of 100 pixels a millisecond are 5 pixels in half a second.
INSTANTIATE_TEST_SUITE_P(Speeds, Movement,
                         ::testing::Values(std::tuple{0, 500, false}, std::tuple{4, 500, false},
                                           std::tuple{6, 500, true}, std::tuple{-6, 500, true},
                                           std::tuple{6, 0, false}));

TEST(Duplicates, TheSmallerOfTwoOverlappingBoxesGoes) {
  struct Case {
    Skeletons skeletons;
    std::vector<int> keptWidths;
  };
  const std::vector<Case> cases{
      {{boxed(0, 0, 100, 100), boxed(79, 0, 101, 100)}, {101}},                         // 21 of 100
      {{boxed(0, 0, 100, 100), boxed(80, 0, 101, 100)}, {100, 101}},                    // exactly a fifth
      {{boxed(0, 0, 100, 100), boxed(10, 0, 100, 100)}, {100}},                         // equal: the first goes
      {{boxed(0, 0, 100, 100), boxed(50, 0, 90, 100), boxed(110, 0, 80, 100)}, {100}},  // also by one that goes itself
      {{boxed(0, 0, 100, 100), boxed(100, 0, 100, 100)}, {100, 100}},
      {{boxed(0, 0, 100, 100), boxed(20, 20, 0, 50)}, {100, 0}},
      {{boxed(100, 100, -50, -50), boxed(60, 60, 10, 10)}, {-50, 10}}};
  for (const Case& c : cases) {
    g_skeletons = c.skeletons;
    DetectionProcessing::applyNonMaximumSuppression();
    std::vector<int> widths;
    for (const Skeleton& s : g_skeletons) widths.push_back(s.boundingBox.bottomRight.x - s.boundingBox.topLeft.x);
    EXPECT_EQ(widths, c.keptWidths);
  }
  g_skeletons = {boxed(0, 0, 100, 100), boxed(10, 0, 100, 100)};
  EXPECT_EQ(DetectionProcessing::findDuplicateSkeletons(0), std::set<int>{0});
}

TEST(Times, AreWholeMilliseconds) {
  EXPECT_EQ(getMillisecondsBetween({1, 999'999}, {3, 1'000}), 1002);
  ticker_clock::setReplayTime(TimeStamp(std::chrono::milliseconds(2500)));
  EXPECT_EQ(getMillisecondsSince({1, 200'999}), 1300);
}

TEST(Truncation, GoesTowardZeroAndStaysWithinDifferences) {
  EXPECT_EQ(truncateToInt(-0.9F), 0);
  EXPECT_EQ(truncateToInt(7.9F), 7);
  EXPECT_EQ(truncateToInt(std::nanf("")), 0);
  EXPECT_EQ(truncateToInt(-std::numeric_limits<float>::infinity()), -536870912);
}

}  // namespace
