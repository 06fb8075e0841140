#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <stdexcept>

#include "analysis/FindingsHistory.h"
#include "analysis/area_of_interest.h"
#include "analysis/detection_processing.h"
#include "analysis/tracker.h"
#include "app/process_state.h"

namespace {

Skeleton boxed(int left, int top, int width, int height) {
  Skeleton skeleton;
  skeleton.superior = {left, top};
  skeleton.hasSuperior = true;
  skeleton.boundingBox = {{left, top}, {left + width, top + height}};
  return skeleton;
}

Skeleton at(int x, int y = 0) { return boxed(x, y, 0, 0); }

/// Ids and where each was seen last.
using Seen = std::map<int, int>;

Seen track(tracker& people, const Skeletons& skeletons) {
  Seen result;
  for (const auto& [id, skeleton] : people.track_skeletons(skeletons)) result[id] = skeleton.superior.x;
  return result;
}

TEST(Tracker, MatchesGreedilyByTheNearestInputOnly) {
  tracker people;
  EXPECT_EQ(people.init(2), 0);
  EXPECT_EQ(track(people, {at(100), at(122), at(900)}), (Seen{{0, 100}, {1, 122}, {2, 900}}));
  // 110 is nearest to the first two; the second goes without, though 142 is 20 away; 142 is somebody new.
  EXPECT_EQ(track(people, {at(142), at(110), at(1500)}), (Seen{{0, 110}, {1, 122}, {2, 1500}, {3, 142}}));
  tracker ties;
  ties.init(5);
  track(ties, {at(0), at(20)});
  EXPECT_EQ(track(ties, {at(10)}), (Seen{{0, 10}, {1, 20}}));                 // the lower id wins
  EXPECT_EQ(track(ties, {at(15), at(5)}), (Seen{{0, 15}, {1, 20}, {2, 5}}));  // the lower input wins
  EXPECT_EQ(track(ties, {at(9000)}), (Seen{{0, 15}, {1, 9000}, {2, 5}}));     // no distance is too far
}

TEST(Tracker, DropsAfterTooManyCyclesWithoutReusingIds) {
  g_findingsHistory = FindingsHistory(12);
  tracker people;
  people.init(2);
  track(people, {at(0), at(500), at(900)});
  for (int id = 0; id < 3; ++id) {
    Finding finding(id, {0, 0}, at(0), Footings::floor);
    g_findingsHistory.add(finding);
  }
  EXPECT_EQ(track(people, {at(1)}).size(), 3U);
  EXPECT_EQ(track(people, {}).size(), 3U);
  EXPECT_EQ(track(people, {}), (Seen{{0, 1}}));
  EXPECT_EQ(g_findingsHistory.getIDs(), IDVector{0});
  EXPECT_EQ(track(people, {at(1), at(500)}), (Seen{{0, 1}, {3, 500}}));
  EXPECT_EQ(track(people, {}).size(), 2U) << "the count began anew";
  people.set_max_disappeared(0);
  EXPECT_TRUE(track(people, {}).empty());
  EXPECT_EQ(track(people, {at(7)}), (Seen{{4, 7}}));
}

TEST(Tracker, DistancesOfAnyInts) { EXPECT_EQ(tracker().compute_distance(at(-2000000000), at(2000000000)), 4e9F); }

TEST(AreaOfInterest, InsideABoundaryAndAPentagram) {
  const area_of_interest areas;
  const t_Polygon square{{0, 0}, {10, 0}, {10, 10}, {0, 10}};
  const t_Polygon reversed(square.rbegin(), square.rend());
  for (const t_Polygon& polygon : {square, reversed}) {
    for (const t_XYPoint& inside : {t_XYPoint(5, 5), {0, 5}, {5, 0}, {0, 0}}) {
      EXPECT_TRUE(areas.is_winding_number_nonzero(inside, polygon)) << inside.first << "," << inside.second;
    }
    for (const t_XYPoint& outside : {t_XYPoint(15, 5), {-5, 5}, {10, 5}, {5, 10}, {10, 0}, {10, 10}, {0, 10}}) {
      EXPECT_FALSE(areas.is_winding_number_nonzero(outside, polygon)) << outside.first << "," << outside.second;
    }
  }
  const t_Polygon pentagram{{50, 0}, {79, 90}, {2, 35}, {98, 35}, {21, 90}};
  EXPECT_FALSE(areas.is_winding_number_nonzero({50, 50}, pentagram));
  EXPECT_TRUE(areas.is_winding_number_nonzero({50, 20}, pentagram));
  EXPECT_FALSE(areas.is_winding_number_nonzero({5, 5}, {}));
  constexpr int kMost = std::numeric_limits<int>::max();
  constexpr int kLeast = std::numeric_limits<int>::min();
  EXPECT_TRUE(areas.is_winding_number_nonzero({0, 0}, {{kLeast, kLeast}, {kMost, kLeast}, {0, kMost}}));
  EXPECT_TRUE(areas.is_winding_number_nonzero({9, 9}, {{kLeast, kMost}, {kLeast, kLeast}, {kMost, 0}}));
}

TEST(AreaOfInterest, IdsAndSwitches) {
  area_of_interest areas;
  const t_Polygon square{{0, 0}, {10, 0}, {10, 10}, {0, 10}};
  for (const int id : {1, 2, 3}) {
    EXPECT_TRUE(areas.set_detection(id, square) && areas.set_exclusion(id, square));
    EXPECT_EQ(areas.is_detected(id, {5, 5}), id == 1);
    EXPECT_FALSE(areas.is_excluded({5, 5}));
    EXPECT_TRUE(areas.set_detection_active(id, true) && areas.set_exclusion_active(id, true));
    EXPECT_TRUE(areas.is_detected(id, {5, 5}) && areas.is_excluded({5, 5}));
    EXPECT_FALSE(areas.is_detected(id, {15, 5}) || areas.is_excluded({15, 5}));
    areas.set_exclusion_active(id, false);
  }
  EXPECT_FALSE(areas.set_detection(4, square) || areas.set_exclusion_active(0, false) || areas.is_detected(4, {5, 5}));
  EXPECT_TRUE(areas.get_detection(4).empty() && areas.get_detection_active(0) && areas.get_exclusion_active(4));
}

TEST(Finding, RadiusFollowsTheShortSide) {
  for (const auto& [width, height, radius] :
       {std::tuple{20, 100, 20.0F}, {60, 100, 30.0F}, {50, 100, 25.0F}, {100, 50, 25.0F}, {100, 40, 40.0F}}) {
    const Finding finding(0, {0, 0}, boxed(5, 5, width, height), Footings::floor);
    EXPECT_EQ(finding.getExpectedSuperiorAreaRadius(), radius) << width << "x" << height;
  }
}

/// Findings of one person without feet, so that no floor is needed, half a second apart.
class History : public ::testing::Test {
 protected:
  const Finding& add(int x, int y) {
    ticker_clock::setReplayTime(m_now += std::chrono::milliseconds(500));
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
  FindingVector others{Finding(9, {0, 0}, at(0), Footings::bed), Finding(1, {0, 0}, at(0), Footings::bed)};
  history.add(others);
  EXPECT_EQ(history.getIDs(), (IDVector{1, 3, 9}));
  history.remove(3);
  history.remove(77);
  EXPECT_EQ(history.getNumberOfEntries(), 2);
}

TEST_F(History, AveragesBeginWithTheEleventhFindingAndTruncate) {
  for (int i = 0; i < 10; ++i) EXPECT_FALSE(add(-i, i).hasValidAverageSuperior);
  const Finding& eleventh = add(-11, 11);
  EXPECT_EQ(eleventh.averageSuperior.x, -5);  // -56 / 11
  EXPECT_EQ(eleventh.averageSuperior.y, 5);
  EXPECT_FALSE(eleventh.hasValidAverageInferior || eleventh.hasValidExpectedSuperior);
  EXPECT_FLOAT_EQ(eleventh.instantVelocity.x, -11.0F / 5000.0F);
  EXPECT_FLOAT_EQ(eleventh.averageVelocity.x, -11.0F / 5000.0F / 11.0F);
  EXPECT_FLOAT_EQ(add(-12, 0).averageVelocity.x, (-11.0F / 5000.0F - 12.0F / 5500.0F) / 12.0F);
}

TEST(HistorySteps, SkeletonHeightIsTruncatedAsItIsSummed) {
  const FindingsHistory history(3);
  Findings findings(3, Finding(0, {0, 0}, at(0), Footings::floor));
  for (Finding& finding : findings) {
    finding.skeleton.hasSkeletonHeight = true;
    finding.skeleton.skeletonHeight = 10.9F;
  }
  findings.back().skeleton.skeletonHeight = 12.9F;
  history.setAverageSkeletonHeight(findings);  // 10, + 10.9 -> 20, + 12.9 -> 32, / 3
  EXPECT_EQ(findings.back().averageSkeletonHeight, 10.0F);
  findings.pop_front();
  history.setAverageSkeletonHeight(findings);  // not yet enough findings: the newest one's own
  EXPECT_EQ(findings.back().averageSkeletonHeight, 12.9F);
  EXPECT_TRUE(findings.back().hasValidAverageSkeletonHeight);
  findings.emplace_back(0, t_one_centroid(0, 0), at(0), Footings::floor);
  for (Finding& finding : findings) finding.skeleton.hasSkeletonHeight = false;
  history.setAverageSkeletonHeight(findings);  // no height at all: that of the finding before, not valid
  EXPECT_EQ(findings.back().averageSkeletonHeight, 12.9F);
  EXPECT_FALSE(findings.back().hasValidAverageSkeletonHeight);
}

TEST(HistorySteps, PostureFromTheExpectedPlaceAndTheProportions) {
  const FindingsHistory history(12);
  for (const auto& [expectedX, hipY, footing, hasFeet, activity] :
       {std::tuple{130, 160, Footings::floor, true, Activity::standing},
        {131, 160, Footings::floor, true, Activity::lying_down},
        {69, 160, Footings::unknown, true, Activity::lying_down},
        {100, 132, Footings::floor, true, Activity::lying_down},
        {100, 134, Footings::floor, true, Activity::standing},
        {131, 160, Footings::bed, true, Activity::unknownActivity},
        {131, 160, Footings::exclusion, true, Activity::unknownActivity},
        {131, 160, Footings::floor, false, Activity::unknownActivity}}) {
    Skeleton skeleton = boxed(70, 100, 60, 100);
    skeleton.hasInferior = hasFeet;
    Findings findings(11, Finding(0, {100, 100}, skeleton, footing));
    Finding& current = findings.back();
    current.averageSuperior = {100, 100};
    current.averageHipMedian = {100, hipY};
    current.averageInferior = {100, 200};
    current.hasValidAverageSuperior = current.hasValidAverageHipMedian = current.hasValidAverageInferior = true;
    current.expectedSuperior = {expectedX, 100};
    history.setActivity(findings);
    EXPECT_EQ(current.activity, activity) << expectedX << " " << hipY;
  }
}

TEST(Duplicates, TheSmallerOfTwoOverlappingBoxesGoes) {
  const std::vector<std::pair<Skeletons, std::vector<int>>> cases{
      {{boxed(0, 0, 100, 100), boxed(79, 0, 101, 100)}, {101}},                         // 21 of 100
      {{boxed(0, 0, 100, 100), boxed(80, 0, 101, 100)}, {100, 101}},                    // exactly a fifth
      {{boxed(0, 0, 100, 100), boxed(50, 0, 90, 100), boxed(110, 0, 80, 100)}, {100}},  // also by one that goes itself
      {{boxed(0, 0, 100, 100), boxed(100, 0, 100, 100)}, {100, 100}},
      {{boxed(0, 0, 100, 100), boxed(20, 20, 0, 50)}, {100, 0}}};
  for (const auto& [skeletons, keptWidths] : cases) {
    g_skeletons = skeletons;
    DetectionProcessing::applyNonMaximumSuppression();
    std::vector<int> widths;
    for (const Skeleton& s : g_skeletons) widths.push_back(s.boundingBox.bottomRight.x - s.boundingBox.topLeft.x);
    EXPECT_EQ(widths, keptWidths);
  }
  g_skeletons = {boxed(0, 0, 100, 100), boxed(10, 0, 100, 100)};
  EXPECT_EQ(DetectionProcessing::findDuplicateSkeletons(0), std::set<int>{0});  // of two equals the first
}

}  // namespace
