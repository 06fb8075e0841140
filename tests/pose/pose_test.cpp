#include <gtest/gtest.h>
#include <syslog.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <stdexcept>
#include <tuple>

#include "app/initial_params.h"
#include "app/observer.h"
#include "app/process_state.h"
#include "platform/scripted/inference.h"
#include "platform/scripted/stage/networks.h"
#include "platform/scripted/system_log.h"
#include "pose/BodypixPoseEstimator.h"

bool g_IsDevMode;
AnalysisObserver* g_observer;
_InitialParams g_InitialParams;

namespace {

using enum BodyPart;
using PosenetDecoder::kNumKeypoints;
using namespace scripted;

struct Tensors {
  std::vector<float> heat, near, mid;
};

/// What the network gives for a grid, as numbers.
Tensors tensorsOf(const PoseGrid& grid) {
  const auto numbers = [](const std::vector<uint8_t>& bytes, const Dequantizer& dequantizer) {
    std::vector<float> values(bytes.size());
    std::transform(bytes.begin(), bytes.end(), values.begin(), dequantizer);
    return values;
  };
  return {numbers(grid.heatmaps, heatmapDequantizer), numbers(grid.short_offsets, shortOffsetDequantizer),
          numbers(grid.mid_offsets, midOffsetDequantizer)};
}

struct Decoded {
  explicit Decoded(const PoseGrid& grid) : Decoded(grid, tensorsOf(grid)) {}
  Decoded(const PoseGrid& grid, const Tensors& in) {
    count = PosenetDecoder::DecodeAllPoses(in.heat.data(), in.near.data(), in.mid.data(), grid.height, grid.width, 20,
                                           0.01F, 5, 2.0F, 16, keypoints.data(), keypointScores.data(), scores.data());
  }

  int count;
  std::array<PosenetDecoder::PoseKeypoints, 20> keypoints;
  std::array<PosenetDecoder::PoseKeypointScores, 20> keypointScores;
  std::array<float, 20> scores;
};

void expectAt(const PosenetDecoder::Point& actual, const Pixel& expected) {
  EXPECT_NEAR(actual.y, expected.y, 2.0F);
  EXPECT_NEAR(actual.x, expected.x, 2.0F);
}

TEST(Decoder, ReadsTheModelsQuantization) {
  for (const auto& [dequantizer, lowest, highest] : {std::tuple{heatmapDequantizer, -17.1659523F, 3.67841835F},
                                                     {shortOffsetDequantizer, -6.53928016F, 5.20379337F},
                                                     {midOffsetDequantizer, -11.0754443F, 11.8858427F}}) {
    EXPECT_FLOAT_EQ(dequantizer(0), lowest);
    EXPECT_FLOAT_EQ(dequantizer(255), highest);
  }
}

TEST(Decoder, FollowsTheBodyTreeFromAnyRoot) {
  const PersonPixels person = standingPerson(403.0F, 120.0F, 390.0F);
  PoseGrid grid(46, 81);
  grid.add(person, 2.0F);
  const Tensors in = tensorsOf(grid);
  for (int root = 0; root < kNumKeypoints; ++root) {
    const auto& from = person[static_cast<std::size_t>(root)];
    PosenetDecoder::PoseKeypoints pose;
    PosenetDecoder::PoseKeypointScores scores;
    PosenetDecoder::BacktrackDecodePose(in.heat.data(), in.near.data(), in.mid.data(), 46, 81, kNumKeypoints, 16,
                                        {{from.y / 16.0F, from.x / 16.0F}, root, 0.0F},
                                        PosenetDecoder::BuildAdjacencyList(), 5, &pose, &scores);
    for (std::size_t k = 0; k < person.size(); ++k) {
      expectAt({pose.keypoint[k].y * 16.0F, pose.keypoint[k].x * 16.0F}, person[k]);
      EXPECT_GT(scores.keypoint[k], 1.5F);
    }
  }
}

TEST(Decoder, LoneKeypointsTakeNoPlaceFromPeople) {
  PoseGrid grid(46, 81);
  grid.add(standingPerson(640.0F, 250.0F, 400.0F), -4.2F);
  for (std::size_t x = 0; x < 25; ++x) grid.heatmaps[(2 * std::size_t{81} + 3 * x) * 17 + 5] = 173;  // logit -3
  EXPECT_EQ(Decoded(grid).count, 1);
}

TEST(Decoder, APoseThatABetterOneCoversIsDropped) {
  PoseGrid grid(46, 81);
  const PersonPixels person = standingPerson(640.0F, 200.0F, 400.0F);
  grid.add(person, 2.0F, 7);
  for (std::size_t cell = 0; cell < 46UL * 81; ++cell) {
    for (const std::size_t channel : {37U, 53U}) grid.mid_offsets[cell * 64 + channel] = 123;
  }  // the left elbow, found first, does not lead to its shoulder
  const Decoded decoded(grid);
  ASSERT_EQ(decoded.count, 1);
  expectAt(decoded.keypoints[0].keypoint[0], person[0]);
}

TEST(Decoder, RootsAreLocalMaximaMovedIntoTheGrid) {
  const std::vector<float> heat = {1.0F, 1.0F, 0.5F, -9.0F, -9.0F, -9.0F, 0.6F, -9.0F};  // two rows, one keypoint type
  const std::vector<float> offsets = {-3.0F, 0.25F, 0, 0.5F, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  PosenetDecoder::KeypointQueue queue;
  PosenetDecoder::BuildKeypointWithScoreQueue(heat.data(), offsets.data(), 2, 4, 1, 0.5F, 1, &queue);
  ASSERT_EQ(queue.size(), 2U) << "equals both count, their lesser neighbours do not";
  EXPECT_EQ(queue.top().point.y, 0.0F);
  std::vector<float> columns = {queue.top().point.x};
  queue.pop();
  columns.push_back(queue.top().point.x);
  std::sort(columns.begin(), columns.end());
  EXPECT_EQ(columns, (std::vector<float>{0.25F, 1.5F}));
}

TEST(Decoder, SamplingExtrapolatesFromTheBorder) {
  const std::vector<float> tensor = {0, 10, 1, 20, 2, 40, 4, 80};  // 2 x 2 cells of two channels
  EXPECT_FLOAT_EQ(PosenetDecoder::SampleTensorAtSingleChannel(tensor.data(), 2, 2, 2, {0.5F, 0.25F}, 1),
                  0.5F * 12.5F + 0.5F * 50.0F);
  int low = 0;
  int high = 0;
  float fraction = 0.0F;
  PosenetDecoder::BuildLinearInterpolation(7.5F, 4, &low, &high, &fraction);
  EXPECT_EQ(std::tuple(low, high, fraction), std::tuple(3, 3, 4.5F));
}

TEST(Decoder, SoftSuppressionCountsOnlyWhatNoBetterPoseCovers) {
  std::vector<PosenetDecoder::PoseKeypoints> poses(2);
  std::vector<PosenetDecoder::PoseKeypointScores> scores(2);
  for (std::size_t k = 0; k < kNumKeypoints; ++k) {
    poses[1].keypoint[k] = {k < 2 ? 2.0F : 3.0F, 0.0F};  // the first two lie exactly on the radius
    scores[0].keypoint[k] = 0.5F;
    scores[1].keypoint[k] = k == 0 ? 1.0F : 0.25F;
  }
  std::vector<float> result;
  PosenetDecoder::PerformSoftKeypointNMS({0, 1}, poses, scores, kNumKeypoints, 4.0F, kNumKeypoints, &result);
  EXPECT_FLOAT_EQ(result[0], 0.5F);
  EXPECT_FLOAT_EQ(result[1], 15.0F * 0.25F / 17.0F);
  const PosenetDecoder::KeypointWithScore candidate = {{0.0F, 2.0F}, 0, 9.0F};
  EXPECT_FALSE(PosenetDecoder::PassKeypointNMS(poses, 1, candidate, 4.0F));
  EXPECT_TRUE(PosenetDecoder::PassKeypointNMS(poses, 0, candidate, 4.0F));
  EXPECT_TRUE(PosenetDecoder::PassKeypointNMS(poses, 1, candidate, 3.9F));
}

TEST(Decoder, SurvivesAnyNumbers) {
  const float inf = std::numeric_limits<float>::infinity();
  const std::array<float, 8> harmful = {inf, -inf, std::nanf(""), 1e30F, -1e30F, 3.0F, 0.0F, -2.0F};
  std::mt19937 random(7);
  const auto fill = [&](std::size_t size) {
    std::vector<float> values(size);
    std::generate(values.begin(), values.end(), [&] { return harmful[random() % harmful.size()]; });
    return values;
  };
  for (int round = 0; round < 20; ++round) {
    const Decoded decoded(PoseGrid(5, 9), {fill(45UL * 17), fill(45UL * 34), fill(45UL * 64)});
    for (std::size_t i = 0; i < static_cast<std::size_t>(decoded.count); ++i) {
      EXPECT_TRUE(decoded.scores[i] >= 0.01F && decoded.scores[i] <= 1.0F);
      for (const auto& point : decoded.keypoints[i].keypoint) {
        EXPECT_TRUE(point.y >= 0.0F && point.y <= 64.0F && point.x >= 0.0F && point.x <= 128.0F);
      }
    }
  }
}

/// Answers with a picture of one value, or not at all, and remembers the question.
class Source : public ImageFrameSource {
 public:
  bool getFrame(int height, int width, int rotation, uint8_t* pixels) override {
    asked = {height, width, rotation};
    std::fill_n(pixels, height * width * 3, uint8_t{90});
    return works;
  }
  std::array<int, 3> asked = {};
  bool works = true;
};

class Estimator : public testing::Test {
 protected:
  Estimator() {
    std::ofstream(m_modelPath) << "model";
    inference() = {};
    describePoseModel(720, 1280, 46, 81);
    systemLog().clear();
  }
  ~Estimator() override { EXPECT_EQ(inference().live_handles, 0); }

  /// Shows two people, given in pixels of the upright picture, to a run of that rotation.
  static void show(const PersonPixels& strong, const PersonPixels& weak, int rotation) {
    const bool isTurned = rotation % 180 == 90;
    PoseGrid grid(isTurned ? 81 : 46, isTurned ? 46 : 81);
    describePoseModel(isTurned ? 1280 : 720, isTurned ? 720 : 1280, isTurned ? 81 : 46, isTurned ? 46 : 81);
    for (const auto& [person, logit] : {std::pair{weak, 0.0F}, std::pair{strong, 2.5F}}) {
      grid.add(turned(person, rotation, isTurned ? 1280.0F : 720.0F, isTurned ? 720.0F : 1280.0F), logit);
    }
    inference().output_bytes = grid.outputs();
  }

  const std::string m_modelPath = testing::TempDir() + "pose_model";
  const PersonPixels m_strong = standingPerson(400.0F, 150.0F, 400.0F);
  const PersonPixels m_weak = standingPerson(850.0F, 250.0F, 350.0F);
  Source m_source;
};

TEST_F(Estimator, FindsPeopleInTheUprightPictureAtEveryRotation) {
  for (const int rotation : {0, 90, 180, 270}) {
    SCOPED_TRACE(rotation);
    show(m_strong, m_weak, rotation);
    const auto estimator = std::make_unique<BodypixPoseEstimator>(m_modelPath);
    for (int run = 0; run < 2; ++run) {
      ASSERT_TRUE(estimator->runModel(m_source, rotation));
      const auto& shape = inference().inputs[0];
      EXPECT_EQ(m_source.asked, (std::array{static_cast<int>(shape[1]), static_cast<int>(shape[2]), rotation}));
      EXPECT_EQ(inference().last_input, std::vector<uint8_t>(shape[1] * shape[2] * 3, 90));
      for (const BodyPart part : BodyParts) {
        const auto k = static_cast<std::size_t>(part);
        const Point first = estimator->getKeypoint(0, part);
        const Point second = estimator->getKeypoint(1, part);
        expectAt({static_cast<float>(first.y), static_cast<float>(first.x)}, m_strong[k]);
        expectAt({static_cast<float>(second.y), static_cast<float>(second.x)}, m_weak[k]);
      }
    }
    const Skeletons skeletons = estimator->getSkeletons();
    ASSERT_EQ(skeletons.size(), rotation == 180 ? 0U : 2U) << "upside-down to the run is not valid";
    for (const Skeleton& skeleton : skeletons) EXPECT_EQ(skeleton.detectorRotation, rotation);
  }
}

TEST_F(Estimator, TurnsKeypointsBackAndTruncatesThem) {
  describePoseModel(721, 1281, 46, 81);
  PoseGrid grid(46, 81);
  constexpr std::size_t kCell = 5 * std::size_t{81} + 10;
  grid.heatmaps[kCell * 17] = 255;            // a nose
  grid.short_offsets[kCell * 34] = 143;       // 80.74 pixels down
  grid.short_offsets[kCell * 34 + 17] = 141;  // 159.26 pixels to the right
  inference().output_bytes = grid.outputs();
  const auto estimator = std::make_unique<BodypixPoseEstimator>(m_modelPath);
  for (const auto& [rotation, x, y] :
       {std::tuple(0, 159, 80), std::tuple(90, 80, 1121), std::tuple(180, 1121, 640), std::tuple(270, 640, 159)}) {
    ASSERT_TRUE(estimator->runModel(m_source, rotation));
    const Point nose = estimator->getKeypoint(0, Nose);
    EXPECT_EQ(std::tuple(nose.x, nose.y), std::tuple(x, y)) << rotation;
  }
}

TEST_F(Estimator, ThresholdsCutPosesAndEdges) {
  show(m_strong, m_weak, 0);
  const auto estimator = std::make_unique<BodypixPoseEstimator>(m_modelPath);
  ASSERT_TRUE(estimator->runModel(m_source, 0));
  const float elbow = estimator->getKeypointScore(0, LeftElbow);
  for (const bool isAbove : {true, false}) {
    estimator->setKeypointThreshold(isAbove ? std::nextafter(elbow, 0.0F) : elbow);
    const Edges edges = estimator->getEdges(0);
    const auto isAtElbow = [](const Edge& edge) { return edge.b.bodyPart == LeftElbow; };
    EXPECT_EQ(std::any_of(edges.begin(), edges.end(), isAtElbow), isAbove);
  }
  const float weakScore = estimator->getPoseScore(1);
  for (const auto& [threshold, count] : {std::pair{weakScore, 2U}, std::pair{std::nextafter(weakScore, 1.0F), 1U}}) {
    estimator->setPoseThreshold(threshold);
    ASSERT_TRUE(estimator->runModel(m_source, 0));
    EXPECT_EQ(estimator->getSkeletons().size(), count);
  }
  inference().output_bytes = PoseGrid(46, 81).outputs();
  ASSERT_TRUE(estimator->runModel(m_source, 0));
  EXPECT_EQ(estimator->getPoseScore(0), 0.0F) << "nothing is left of the previous run";
  EXPECT_TRUE(estimator->getSkeletons().empty());
}

TEST_F(Estimator, AFailedRunKeepsTheLastResults) {
  show(m_strong, m_weak, 0);
  const auto estimator = std::make_unique<BodypixPoseEstimator>(m_modelPath);
  ASSERT_TRUE(estimator->runModel(m_source, 0));
  m_source.works = false;
  EXPECT_FALSE(estimator->runModel(m_source, 0));
  m_source.works = true;
  inference().faults = {{"larodRunJob", 0}};
  EXPECT_FALSE(estimator->runModel(m_source, 0));
  EXPECT_EQ(estimator->getSkeletons().size(), 2U);
}

TEST_F(Estimator, ConstructionFailsWithTheReasonAndLeavesNothingBehind) {
  for (const std::string failure :
       {"larodConnect", "larodLoadModel", "larodCreateModelInputs", "larodCreateModelOutputs", "larodSetTensorFd",
        "larodCreateJobRequest", "no output", "wide input", "larger grid", "no file"}) {
    describePoseModel(720, failure == "wide input" ? 9999 : 1280, 46, failure == "larger grid" ? 82 : 81);
    if (failure == "no output") inference().outputs.clear();
    inference().faults = {{failure, 0}};
    const std::string reason = failure.starts_with("larod") ? "out of order"
                               : failure == "no file"       ? "Failed to open model file /nowhere. No such file"
                                                            : "Model " + m_modelPath + " ";
    try {
      std::make_unique<BodypixPoseEstimator>(failure == "no file" ? "/nowhere" : m_modelPath);
      ADD_FAILURE() << failure;
    } catch (const std::runtime_error& error) {
      EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
      EXPECT_EQ(systemLog().back(), (LogLine{LOG_ERR, error.what()}));
    }
    EXPECT_EQ(inference().live_handles, 0) << failure;
  }
  EXPECT_THROW(MemoryMappedFile("/nowhere/file-XXXXXX", 1), const char*);
  EXPECT_THROW(MemoryMappedFile("/tmp/velmor.test-XXXXXX", 0), const char*);
}

TEST(TemporaryFile, LiesInTheFolderThatIsNamedInsteadOfTmp) {
  const auto placeOf = [](const std::string& name) {
    const MemoryMappedFile file(name, 1);
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file.getFileDescriptor())).string();
  };
  EXPECT_TRUE(placeOf("/tmp/velmor.test-XXXXXX").starts_with("/tmp/velmor.test-"));
  ASSERT_EQ(setenv("VELMOR_TMP", "/var/tmp", 1), 0);
  EXPECT_TRUE(placeOf("/tmp/velmor.test-XXXXXX").starts_with("/var/tmp/velmor.test-"));
  for (const char* unusable : {"", "/proc"}) {
    ASSERT_EQ(setenv("VELMOR_TMP", unusable, 1), 0);
    EXPECT_TRUE(placeOf("/tmp/velmor.test-XXXXXX").starts_with("/tmp/velmor.test-")) << unusable;
  }
  ASSERT_EQ(unsetenv("VELMOR_TMP"), 0);
}

}  // namespace
