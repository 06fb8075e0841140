#include <tuple>

#include "tests/analysis/room.h"

namespace {

TEST_F(Room, OutOfBedStartsOnTheEleventhCycleAndStopsOnReturn) {
  drawBed(1, inBed1());
  run(30, {inBed1()});
  EXPECT_FALSE(outOfBed());
  run(10, {standing(0.5, 3)});
  EXPECT_FALSE(outOfBed());
  run(1, {standing(0.5, 3)});
  EXPECT_TRUE(outOfBed());
  run(1, {inBed1()});
  EXPECT_FALSE(outOfBed());
  run(8 + 10, {});  // the count begins anew, and 8 cycles out of sight still count as in bed
  EXPECT_FALSE(outOfBed());
  EXPECT_EQ(g_findingsHistory.getNumberOfEntries(), 0);
  run(1, {});
  EXPECT_TRUE(outOfBed());
}

TEST_F(Room, EveryActiveBedMustHoldSomebody) {
  drawBed(1, inBed1());
  drawBed(2, inBed2());
  run(12, {inBed1(), inBed2()});
  EXPECT_FALSE(outOfBed());
  run(11, {inBed1(), standing(0.5, 2.5)});
  EXPECT_TRUE(outOfBed());
  // A point in both areas marks the first only.
  g_AreaofInterest.set_detection(2, g_AreaofInterest.get_detection(1));
  run(1, {inBed1(), standing(0.5, 2.5)});
  EXPECT_TRUE(outOfBed());
  g_DetectionParams.b_Detection2Active = false;
  run(1, {inBed1(), standing(0.5, 2.5)});
  EXPECT_FALSE(outOfBed());
  drawBed(3, inBed2());
  run(11, {inBed1(), standing(0.5, 2.5)});
  EXPECT_TRUE(outOfBed());
  run(1, {inBed1(), inBed2()});
  EXPECT_FALSE(outOfBed());
}

TEST_F(Room, AFallIsConfirmedAtTheSixteenthFindingOfSomebodyWhoLies) {
  run(10, {lying(0.3, 3.2)});
  EXPECT_EQ(activity(), Activity::unknownActivity);
  run(1, {lying(0.3, 3.2)});
  EXPECT_EQ(activity(), Activity::lying_down);
  run(4, {lying(0.3, 3.2)});
  EXPECT_FALSE(fall());
  run(1, {lying(0.3, 3.2)});
  EXPECT_EQ(activity(), Activity::fallen);
  EXPECT_TRUE(fall());
}

/// The fifteenth finding shows what rules a fall out for as long as it is among the newest six.
TEST_F(Room, OneFindingThatSpeaksAgainstAFallDelaysItBySixCycles) {
  const Skeleton person = lying(0.3, 3.2);
  const auto [x, y] = person.superior;
  const t_Polygon around{{x - 9, y - 9}, {x + 9, y - 9}, {x + 9, y + 9}, {x - 9, y + 9}};
  Skeleton atTheEdge = person;
  atTheEdge.boundingBox.topLeft.y = 0;
  Skeleton withoutFeet = person;
  withoutFeet.hasInferior = false;
  for (const auto& [name, seen, inBed, excluded, cyclesUntilFall] : {std::tuple{"nothing", person, false, false, 16},
                                                                     {"in bed", person, true, false, 21},
                                                                     {"excluded", person, false, true, 21},
                                                                     {"edge", atTheEdge, false, false, 21},
                                                                     {"no feet", withoutFeet, false, false, 21}}) {
    g_findingsHistory = FindingsHistory(12);
    run(14, {person});
    g_AreaofInterest.set_detection(1, inBed ? around : t_Polygon{});
    g_AreaofInterest.set_exclusion(3, around);
    g_AreaofInterest.set_exclusion_active(3, excluded);
    run(1, {seen});
    g_AreaofInterest = area_of_interest();
    int cycles = 15;
    for (; !fall() && cycles < 40; ++cycles) run(1, {person});
    EXPECT_EQ(cycles, cyclesUntilFall) << name;
    g_findingsHistory = FindingsHistory(12);
    run(1, {});
  }
}

TEST_F(Room, WhoMovesAcrossTheFloorHasNotFallenUntilLyingStill) {
  // A tenth of the body's length in the picture a second is the limit: 0.13 m here.
  for (int i = 0; i < 24; ++i) run(1, {lying(-0.6 + 0.05 * i, 3.2)});
  EXPECT_TRUE(fall());
  g_findingsHistory = FindingsHistory(12);
  for (int i = 0; i < 24; ++i) run(1, {lying(-1.2 + 0.1 * i, 3.2)});
  EXPECT_EQ(activity(), Activity::lying_down);
  run(24, {lying(1.1, 3.2)});
  EXPECT_TRUE(fall());
}

TEST_F(Room, FindingsOfOneMomentShowNoMovement) {
  for (int i = 0; i < 24; ++i) run(1, {lying(-1.2 + 0.1 * i, 3.2)}, 0);
  EXPECT_FALSE(g_findingsHistory.getLatestFinding(0).isMoving);
}

TEST_F(Room, FeetOnTheFloorTellStandingFromLying) {
  for (const double away : {2.0, 2.5, 3.0, 3.5, 4.0, 4.5}) {
    for (const double x : {-1.2, -0.6, 0.0, 0.6, 1.2}) {
      for (const bool feetOnFloor : {true, false}) {
        g_FloorParams.b_FeetOnFloor = feetOnFloor;
        g_findingsHistory = FindingsHistory(12);
        run(16, {standing(x, away)});
        EXPECT_EQ(activity(), feetOnFloor ? Activity::standing : Activity::fallen) << x << " " << away;
        g_findingsHistory = FindingsHistory(12);
        run(16, {lying(x, away)});
        EXPECT_EQ(activity(), Activity::fallen) << x << " " << away;
      }
    }
  }
}

TEST_F(Room, ExpectedPlacesStandUprightAboveTheFeet) {
  const Point feet = seen({0.9, 3, 0}), below = seen({0.9, 3, -1}), neck = seen({0.9, 3, 1.4});
  const double toNeck = std::hypot(neck.x - feet.x, neck.y - feet.y);
  const Point tall{static_cast<int>(feet.x + (neck.x - feet.x) / toNeck * 200),
                   static_cast<int>(feet.y + (neck.y - feet.y) / toNeck * 200)};
  const float upright = -1.5F, across = 3.0F;
  for (const auto& [feetOnFloor, hasHeight, angle, topOfBox, inferior, superior] :
       {std::tuple{true, true, across, 9, feet, tall},
        {true, false, across, 9, feet, neck},
        {false, false, across, 9, below, neck},
        {true, false, upright, 9, feet, Point(neck.x, 9 + 30)},
        {true, false, upright, neck.y - 20, feet, neck}}) {
    g_FloorParams.b_FeetOnFloor = feetOnFloor;
    Skeleton person;
    person.hasInferior = person.hasAngle = true;
    person.angle = angle;
    person.boundingBox = {{500, topOfBox}, {560, topOfBox + 100}};
    Findings findings(1, Finding(0, {0, 0}, person, Footings::floor));
    Finding& finding = findings.back();
    finding.averageInferior = feet;
    finding.averageSuperior = {700, 300};
    finding.averageSkeletonHeight = 200.0F;
    finding.hasValidAverageSkeletonHeight = hasHeight;
    FindingsHistory(12).setExpectedLocations(findings);
    for (const auto& [found, expected] :
         {std::pair{finding.expectedInferior, inferior}, {finding.expectedSuperior, superior}}) {
      EXPECT_NEAR(found.x, expected.x, 3) << topOfBox;
      EXPECT_NEAR(found.y, expected.y, 3) << topOfBox;
    }
    EXPECT_EQ(finding.averageSuperior.x - 700, finding.expectedInferior.x - feet.x);
    EXPECT_EQ(finding.averageSuperior.y - 300, finding.expectedInferior.y - feet.y);
  }
}

/// A bed that an installer has drawn inside an exclusion area, as around a mirror behind it, is a bed all the same.
TEST_F(Room, ABedInsideAnExclusionAreaCountsAsABed) {
  drawBed(1, inBed1());
  g_AreaofInterest.set_exclusion(2, {{0, 0}, {1280, 0}, {1280, 720}, {0, 720}});
  g_AreaofInterest.set_exclusion_active(2, true);
  run(30, {inBed1(), standing(0.5, 3)});
  EXPECT_FALSE(outOfBed());
  run(20, {lying(0.3, 3)});
  EXPECT_TRUE(outOfBed());
  EXPECT_FALSE(fall()) << "outside the bed nobody counts";
}

/// In the picture the carer stands above somebody who lies, and sways by more than lies between them across.
TEST_F(Room, PeopleAboveOneAnotherAreToldApart) {
  const auto aside = [](const Skeleton& person, int x) {
    Keypoints moved = person.keypoints;
    for (auto& [part, keypoint] : moved) keypoint.point.x += x;
    return Skeleton(moved, -1, 1.0F);
  };
  const Skeleton patient = lying(0, 2.3);
  const Skeleton carer = aside(standing(0, 4.4), patient.superior.x - standing(0, 4.4).superior.x);
  ASSERT_GT(std::abs(carer.superior.y - patient.superior.y), 60);
  for (int i = 0; i < 24; ++i) {
    const int sway = i % 2 == 0 ? 6 : -6;
    run(1, i % 3 == 0 ? Skeletons{aside(carer, sway), patient} : Skeletons{patient, aside(carer, sway)});
  }
  EXPECT_TRUE(fall());
  EXPECT_EQ(g_findingsHistory.getIDs(), (IDVector{0, 1}));
}

TEST_F(Room, SwitchedOffDetectionsStopTheirEventsAndStartNone) {
  drawBed(1, inBed1());
  const Skeletons people{lying(0.3, 3)};
  run(16, people);
  EXPECT_TRUE(outOfBed() && fall());
  g_DetectionParams.b_DetectPatientOutOfBed = g_DetectionParams.b_DetectFallenPersons = false;
  run(1, people);
  EXPECT_FALSE(outOfBed() || fall());
  run(20, people);
  EXPECT_FALSE(outOfBed() || fall());
}

TEST_F(Room, SomebodyWithoutATopIsTrackedButOccupiesNoBed) {
  Skeleton patient = inBed1();
  drawBed(1, patient);
  patient.hasSuperior = false;
  run(11, {patient});
  EXPECT_TRUE(outOfBed());
  EXPECT_EQ(g_findingsHistory.getNumberOfEntries(), 0);
  EXPECT_EQ(g_Tracker.list_object_keys(), t_IDs{0});
}

}  // namespace
