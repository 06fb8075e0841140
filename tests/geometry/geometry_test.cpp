#include <gtest/gtest.h>
#include <syslog.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include "app/process_state.h"
#include "geometry/distance_controller.h"
#include "tests/geometry/lens.h"
#include "tests/platform/state_folder.h"

namespace {

const Quad kUnit(0, 0, 1, 0, 1, 1, 0, 1);

void expectNear(const Vector3& v, float x, float y) {
  EXPECT_NEAR(v(0), x, 1e-4);
  EXPECT_NEAR(v(1), y, 1e-4);
  EXPECT_EQ(v(2), 1.0F);
}

TEST(PerspectiveTransform, MapsEveryCornerAndKeepsTheirOrder) {
  const Quad skewed(479, 381, 385, 591, 679, 591, 665, 381);
  const Quad target(0, 0, 0, 2, 1.5F, 2, 1.5F, 0);
  const Matrix3x3 T = CreatePerspectiveTransformMatrix(skewed, target);
  expectNear(ApplyTransform(T, 479, 381), 0, 0);
  expectNear(ApplyTransform(T, 385, 591), 0, 2);
  expectNear(ApplyTransform(T, 679, 591), 1.5F, 2);
  expectNear(ApplyTransform(T, 665, 381), 1.5F, 0);
  // The corner order reversed after the first one is a mirror about the diagonal.
  expectNear(ApplyTransform(CreatePerspectiveTransformMatrix(kUnit, Quad(0, 0, 0, 1, 1, 1, 1, 0)), 0.25F, 0.5F), 0.5F,
             0.25F);
  Matrix3x3 m;
  m.p = {2, -1, 3, 0.5F, 4, -2, 1, 1, 5};
  EXPECT_FLOAT_EQ(m.determinant(), 38.0F);
  EXPECT_FLOAT_EQ(Matrix3x3Multiply(m, m.inverse())(2, 2), 1.0F);
}

/// The manifest's default points: a camera 2.5 m up that looks 30 degrees down sees these.
const Quad kFloor(479, 381, 385, 591, 679, 591, 665, 381);

class Calibration : public ::testing::Test {
 protected:
  void SetUp() override { turn(false); }
  void turn(bool portrait) {
    g_IsPortrait = portrait;
    g_StreamWidth = portrait ? 720 : 1280;
    g_StreamHeight = portrait ? 1280 : 720;
  }
  Distance_Controller controller;
};

TEST_F(Calibration, MapsFloorAndPictureOntoEachOther) {
  const Lens lens("UINT32 3700;\n");
  EXPECT_FALSE(controller.isCalibrated());
  ASSERT_TRUE(controller.calibrate("AXIS Q1656", kFloor, 1.5F, 2.0F));
  EXPECT_TRUE(controller.isCalibrated());
  const cv::Point3f nearRight = controller.screen_point_to_world_floor({679, 591});
  EXPECT_NEAR(nearRight.x, 1.5F, 1e-3);
  EXPECT_NEAR(nearRight.y, 2.0F, 1e-3);
  EXPECT_EQ(nearRight.z, 1.0F);
  for (const auto& [world, screen] : {std::pair<cv::Point3f, cv::Point2f>{{0, 0, 0}, {479, 381}},
                                      {{1.5F, 0, 0}, {665, 381}},
                                      {{0, 2, 0}, {385, 591}},
                                      // 1 m above and below the point under the picture's middle line
                                      {{1.3F, 1, -1}, {640, 324.5F}},
                                      {{1.3F, 1, 1}, {640, 568}}}) {
    const cv::Point2f seen = controller.world_to_screen_point(world);
    EXPECT_NEAR(seen.x, screen.x, 1.5F) << world;
    EXPECT_NEAR(seen.y, screen.y, 1.5F) << world;
  }
}

TEST_F(Calibration, TheLogShowsWhatItIsMadeOf) {
  const StateFolder state;
  openlog("geometry_test", 0, LOG_USER);
  const Lens lens("UINT32 3700;\n");
  EXPECT_TRUE(controller.calibrate("AXIS Q1656", kFloor, 1.5F, 2.0F));
  controller.calibrate("none", kFloor, 1e30F, 2.0F);  // no int holds this width
  const std::string log = state.read("system.log");
  const std::string source = "Calibrating... source(479, 381, 385, 591, 679, 591, 665, 381) target(0, 0, 0, 2, ";
  for (const std::string& line :
       {std::string("info: Distance_Controller::calibrate focalLength 3700\n"), source + "1, 2, 1, 0)\n",
        source + "536870912, 2, 536870912, 0)\n",
        std::string("calculate_camera_matrix: sensorDimensions found for none, width=6.200000, height=3.500000\n"),
        std::string("FocalLengthInMicrons : 3700\n"), std::string("FocalLengthInMM      : 3.700000\n"),
        std::string("X_FocalLengthInPixels  : 584.69"), std::string("Y_FocalLengthInPixels  : 590.68")}) {
    EXPECT_NE(log.find(line), std::string::npos) << line;
  }
}

TEST_F(Calibration, SensorAndOrientationDecideTheFocalLengthInPixels) {
  const Lens lens("UINT32 3700;\n");
  const auto heightOfOneMetre = [this](const char* product) {
    EXPECT_TRUE(controller.calibrate(product, kFloor, 1.5F, 2.0F));
    return controller.world_to_screen_point({0.75F, 1, 0}).y - controller.world_to_screen_point({0.75F, 1, -1}).y;
  };
  const float known = heightOfOneMetre("AXIS Q1656");
  const float mixed = heightOfOneMetre("AXIS P3265-LV");
  const float unknown = heightOfOneMetre("no such camera");
  const float small = heightOfOneMetre("AXIS Q1715");
  EXPECT_GT(std::abs(mixed - known), 2.0F);
  EXPECT_GT(std::abs(small - unknown), 0.5F);
  turn(true);
  EXPECT_GT(std::abs(heightOfOneMetre("AXIS Q1656") - known), 2.0F);
}

TEST_F(Calibration, DegenerateQuadsAreRejectedAndKeepTheOldMapping) {
  const Lens lens("UINT32 3700;\n");
  ASSERT_TRUE(controller.calibrate("AXIS Q1656", kFloor, 1.5F, 2.0F));
  const cv::Point2f before = controller.world_to_screen_point({1, 1, 0});
  const Quad slantedLine(100, 100, 200, 300, 300, 500, 400, 700);
  const Quad vanishingFormula(0, 0, 5, 5, 50, 0, 7, 7);
  EXPECT_EQ(controller.determinant_check(Quad(3, 1, 2, 3, 5, 7, 11, 13)), 3 * (3 - 13) - 2 * (1 - 13) + 5 * (1 - 3));
  for (const Quad& quad : {Quad(0, 0, 10, 10, 20, 20, 30, 30), slantedLine, Quad(0, 0, 0, 0, 0, 0, 0, 0),
                           Quad(1, 1, 9, 9, 9, 9, 1, 1), vanishingFormula}) {
    EXPECT_FALSE(controller.calibrate("AXIS Q1656", quad, 1.5F, 2.0F)) << quad.x1 << " " << quad.x2;
  }
  EXPECT_FALSE(controller.calibrate("AXIS Q1656", kFloor, 0.0F, 0.0F));
  EXPECT_FALSE(controller.calibrate("AXIS Q1656", kFloor, std::numeric_limits<float>::infinity(), 2.0F));
  EXPECT_EQ(controller.world_to_screen_point({1, 1, 0}), before);
}

TEST_F(Calibration, FocalLengthComesFromTheLens) {
  for (const auto& [answer, focalLength] :
       {std::pair{"UINT32 3700;\n", 3700}, {"UINT32 12;\n", 12}, {"UINT32 2147483647;\n", 2147483647}}) {
    const Lens lens(answer);
    EXPECT_EQ(controller.getFocalLength(), focalLength);
  }
  for (const char* noNumber : {"", "UINT", "UINT32 ", "UINT32 ;\n", "UINT32 many;\n", "UINT32 4294967295;\n"}) {
    const Lens lens(noNumber);
    try {
      ADD_FAILURE() << noNumber << controller.getFocalLength();
    } catch (const std::logic_error& e) {
      EXPECT_EQ(e.what(), "busctl answers \"" + std::string(noNumber) + "\" instead of the focal length of the lens");
    }
  }
}

}  // namespace
