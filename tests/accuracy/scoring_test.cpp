// Who of the labelled people counts as found, and whose a skeleton is.
#include "accuracy/scoring.h"

#include <gtest/gtest.h>

#include <cmath>
#include <iterator>

#include "app/observer.h"
#include "app/process_state.h"
#include "reference/truth.h"

bool g_IsDevMode;
AnalysisObserver* g_observer;

namespace {

std::size_t indexOf(BodyPart part) { return static_cast<std::size_t>(part); }

/// Somebody upright, 50 wide and 320 high, whose shoulders' middle is there; a pair of joints every 40 pixels.
Skeleton bodyAt(int x, int y, float score = 0.8F) {
  Keypoints keypoints;
  for (const BodyPart part : BodyParts) {
    const int row = (static_cast<int>(part) + 1) / 2;
    const int side = part == BodyPart::Nose ? 0 : static_cast<int>(part) % 2 == 1 ? 25 : -25;
    keypoints[part] = Keypoint(Point(x + side, y + 40 * (row - 3)), part, score);
  }
  return {keypoints, 0, 0.9F};
}

/// A person whose joints are all labelled where the skeleton's are.
LabelledPerson labelledAs(const Skeleton& skeleton) {
  LabelledPerson person;
  person.joints.emplace();
  for (const auto& [part, keypoint] : skeleton.keypoints) {
    (*person.joints)[indexOf(part)] = {{double(keypoint.point.x), double(keypoint.point.y)}, 2};
  }
  completeFromJoints(person, 1280 * 720);
  return person;
}

/// Somebody of whom only the shoulders' middle, the hips and the head's size are known.
LabelledPerson markedAt(double x, double y, double head) {
  LabelledPerson person;
  person.mid = Place{x, y};
  person.hip = Place{x, y + 2 * head};
  person.head = head;
  person.findable = true;
  return person;
}

TEST(Similarity, FollowsTheFormulaJointByJoint) {
  const Skeleton body = bodyAt(400, 300);
  LabelledPerson person = labelledAs(body);
  EXPECT_DOUBLE_EQ(keypointSimilarity(person, body), 1.0);
  // Given a body that covers 10000 pixels, when it is seen 20 pixels beside its labels (each joint weighs by how well
  // people agree on it; the number is COCO's formula worked out by hand):
  person.area = 10000;
  EXPECT_NEAR(keypointSimilarity(person, bodyAt(412, 284)), 0.331114, 1e-6);
  // Given only a shoulder is labelled, 20 pixels from where it was seen:
  for (LabelledJoint& joint : *person.joints) joint.visibility = 0;
  LabelledJoint& shoulder = (*person.joints)[indexOf(BodyPart::LeftShoulder)];
  shoulder = {{shoulder.at.x + 12, shoulder.at.y - 16}, 1};
  EXPECT_NEAR(keypointSimilarity(person, body), std::exp(-400 / (2 * 10000 * 0.158 * 0.158)), 1e-9);
  // when a nose is labelled as well, whose place people agree on far better, then the mean of both counts.
  (*person.joints)[indexOf(BodyPart::Nose)] = {{400, 200}, 2};
  EXPECT_NEAR(keypointSimilarity(person, body),
              (std::exp(-400 / 499.28) + std::exp(-400 / (2 * 10000 * 0.052 * 0.052))) / 2, 1e-9);
  // Without an area half of the box stands for it.
  person.area = 0;
  person.box = Box{0, 0, 200, 100};
  EXPECT_NEAR(keypointSimilarity(person, body),
              (std::exp(-400 / 499.28) + std::exp(-400 / (2 * 10000 * 0.052 * 0.052))) / 2, 1e-9);
}

TEST(Found, IsWhoseShouldersAreMetWithinHalfAHeadOrWhoseJointsAgree) {
  const LabelledPerson marked = markedAt(400, 300, 60);
  EXPECT_TRUE(finds(bodyAt(418, 324), marked));  // 30 pixels
  EXPECT_FALSE(finds(bodyAt(418, 325), marked));
  // Given a person with a wrong mark, then the joints alone find it, as long as they are similar enough.
  LabelledPerson labelled = labelledAs(bodyAt(400, 300));
  labelled.mid = Place{0, 0};
  EXPECT_TRUE(finds(bodyAt(410, 300), labelled));
  EXPECT_FALSE(finds(bodyAt(440, 300), labelled));
  Skeleton headless = bodyAt(400, 300);
  headless.hasSuperior = false;
  EXPECT_FALSE(finds(headless, marked));
}

TEST(Findable, AreThoseWhoShowEnough) {
  const auto isFindable = [](const auto& change) {
    LabelledPerson person = labelledAs(bodyAt(400, 300));
    person.box.reset();
    person.mid.reset();
    change(*person.joints);
    completeFromJoints(person, 1280 * 720);
    return person.findable;
  };
  const auto hide = [](LabelledJoints& joints, std::size_t from) {
    for (std::size_t i = from; i < joints.size(); ++i) joints[i].visibility = 0;
  };
  EXPECT_TRUE(isFindable([](LabelledJoints&) {}));
  EXPECT_FALSE(isFindable([](LabelledJoints& joints) { joints[indexOf(BodyPart::RightShoulder)].visibility = 0; }));
  // The box of the upper seven joints is smaller than 0.7 % of the picture, unless one of them lies further down.
  EXPECT_FALSE(isFindable([&](LabelledJoints& joints) { hide(joints, 7); }));
  const auto stretched = [&](LabelledJoints& joints) {
    hide(joints, 7);
    joints[0].at.y += 400;
  };
  EXPECT_TRUE(isFindable(stretched));
  EXPECT_FALSE(isFindable([&](LabelledJoints& joints) {
    stretched(joints);
    joints[1].visibility = joints[2].visibility = 0;
  }));
}

TEST(Judge, GivesEachPersonOneSkeletonTheClosestFirst) {
  // Given two people half a head apart, when the first skeleton would do for both, then each gets its own.
  const LabelledPicture two{{markedAt(400, 300, 80), markedAt(430, 300, 80)}, {}};
  const Verdict verdict = judge(two, {bodyAt(424, 300), bodyAt(395, 300)});
  EXPECT_EQ(verdict.finder, (std::vector<std::size_t>{1, 0}));
  EXPECT_TRUE(verdict.doubles.empty() && verdict.astray.empty() && verdict.nobodys.empty());
  // When a third one comes, it is a double, and never finds anybody who is found already.
  const Verdict three = judge(two, {bodyAt(424, 300), bodyAt(395, 300), bodyAt(410, 310)});
  EXPECT_EQ(three.finder, verdict.finder);
  EXPECT_EQ(three.doubles, std::vector<std::size_t>{2});
}

TEST(Judge, TellsWhatBelongsToNobody) {
  LabelledPerson group;
  group.box = Box{900, 100, 200, 300};
  const LabelledPicture picture{{markedAt(300, 300, 60), group}, {{{700, 300}, 100}}};
  Skeleton faint = bodyAt(1000, 240, 0.05F);
  const Skeletons skeletons{
      bodyAt(300, 400),  // on somebody, yet too low to find them
      bodyAt(500, 300),  // beyond everybody
      bodyAt(770, 300),  // in the circle
      bodyAt(860, 240),  // one side in the group's grown box
      bodyAt(839, 240),  // beside it
      faint,             // in the box, but no joint was seen
  };
  const Verdict verdict = judge(picture, skeletons);
  EXPECT_FALSE(verdict.isFound(0));
  EXPECT_EQ(verdict.astray, (std::vector<std::size_t>{0, 3}));
  EXPECT_EQ(verdict.nobodys, (std::vector<std::size_t>{1, 4, 5}));
  EXPECT_TRUE(verdict.doubles.empty());
}

TEST(CompareChanges, PutsTheProgramsBesideTheReferences) {
  const std::vector<EventChange> reference{{20, "A", true}, {40, "B", true}, {60, "B", false}, {80, "A", false}};
  const std::vector<EventChange> program{{22.5, "A", true}, {37, "B", true}, {41, "B", true}, {60.5, "A", false}};
  std::string text;
  for (const ComparedChange& change : compareChanges(reference, program)) {
    text += change.known().event + (change.known().active ? "+" : "-");
    text += change.reference && change.program ? std::to_string(change.program->time_s - change.reference->time_s)
            : change.program                   ? "false"
                                               : "missed";
    text += ' ';
  }
  EXPECT_EQ(text, "A+2.500000 B+false B+1.000000 B-missed A-false A-missed ");
}

TEST(Truth, TellsPostures) {
  std::string joints = "[[1, 2, 2]";
  for (int i = 1; i < 17; ++i) joints += ", [1, 2, 0]";
  joints += "]";
  std::string people;
  for (const char* flags : {R"("in_bed": true, "standing": false, )", R"("standing": true, )",
                            R"("lying_on_floor": true, )", R"("in_bed": false, )", R"("in_bed": 3, )", ""}) {
    people += std::string(people.empty() ? "{" : ", {") + flags + R"("keypoints": )" + joints + "}";
  }
  EXPECT_EQ(parseTruth(R"({"t": 1, "people": [)" + people + "]}").postures,
            (std::vector<Posture>{Posture::kInBed, Posture::kStanding, Posture::kLyingOnFloor, Posture::kChanging,
                                  Posture::kChanging, Posture::kChanging}));
}

}  // namespace
