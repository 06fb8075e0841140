#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cmath>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>

#include "app/process_state.h"
#include "geometry/calibrator.h"
#include "geometry/distance_controller.h"
#include "geometry/shell_command.h"
#include "platform/scripted/lens.h"
#include "platform/scripted/stage/pictures.h"
#include "platform/scripted/video.h"
#include "tests/platform/state_folder.h"
#include "video/VideoStreamSource.h"

namespace {

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
  const scripted::Lens lens("UINT32 3700;\n");
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

struct Sensor {
  const char* product;
  double width_mm, height_mm;
};

/// One of each size on the makers' data sheets, the mixed one among them, and what counts for an unknown camera.
constexpr Sensor kSensors[] = {
    {"AXIS P3255-LVE", 6.34, 3.53}, {"AXIS Q1615 Mk III", 6.34, 3.53}, {"AXIS Q1715", 6.34, 3.53},
    {"AXIS Q1656", 8.1, 4.51},      {"AXIS Q1656-B", 8.1, 4.51},       {"AXIS Q1656-BE", 8.1, 4.51},
    {"AXIS Q1656-BLE", 8.1, 4.51},  {"AXIS Q1656-LE", 8.1, 4.51},      {"AXIS P3268-LV", 8.1, 4.51},
    {"AXIS P3268-LVE", 8.1, 4.51},  {"AXIS P3265-LV", 6.34, 4.51},     {"AXIS P3265-LVE", 6.34, 4.51},
    {"AXIS P3265-V", 6.34, 4.51},   {"AXIS Q3536-LVE", 8.1, 4.51},     {"AXIS Q3538-LVE", 10.67, 8.0},
    {"no such camera", 6.2, 3.5}};

TEST_F(Calibration, EverySensorShowsAStakeAsHighAsItsLensMakesIt) {
  const scripted::Lens lens("UINT32 3700;\n");
  for (const bool portrait : {false, true}) {
    turn(portrait);
    for (const auto& [product, width, height] : kSensors) {
      // A camera 2 m above the floor that looks straight ahead, and a square of 1 m that begins 3 m before it. A sensor
      // that is turned by a quarter lies with its height along the picture's width.
      const double fx = g_StreamWidth * 3.7 / (portrait ? height : width);
      const double fy = g_StreamHeight * 3.7 / (portrait ? width : height);
      const auto seen = [&](double x, double away, double up) {
        return cv::Point2f(static_cast<float>(g_StreamWidth / 2.0 + fx * x / away),
                           static_cast<float>(g_StreamHeight / 2.0 + fy * (2 - up) / away));
      };
      const cv::Point2f a = seen(-0.5, 4, 0), b = seen(-0.5, 3, 0), c = seen(0.5, 3, 0), d = seen(0.5, 4, 0);
      ASSERT_TRUE(controller.calibrate(product, Quad(a.x, a.y, b.x, b.y, c.x, c.y, d.x, d.y), 1, 1)) << product;
      const cv::Point2f top = controller.world_to_screen_point({1, 0, -1});
      EXPECT_NEAR(top.x, seen(0.5, 4, 1).x, 0.5) << product << portrait;
      EXPECT_NEAR(top.y, seen(0.5, 4, 1).y, 0.5) << product << portrait;
    }
  }
}

TEST_F(Calibration, DegenerateQuadsAreRejectedAndKeepTheOldMapping) {
  const scripted::Lens lens("UINT32 3700;\n");
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
  controller.calibrate("AXIS Q1656", kFloor, 1e30F, 2.0F);  // no int holds this width
}

TEST_F(Calibration, FocalLengthComesFromTheLens) {
  for (const auto& [answer, focalLength] :
       {std::pair{"UINT32 3700;\n", 3700}, {"UINT32 12;\n", 12}, {"UINT32 2147483647;\n", 2147483647}}) {
    const scripted::Lens lens(answer);
    EXPECT_EQ(controller.getFocalLength(), focalLength);
  }
  for (const char* noNumber : {"", "UINT", "UINT32 ", "UINT32 ;\n", "UINT32 many;\n", "UINT32 4294967295;\n"}) {
    const scripted::Lens lens(noNumber);
    try {
      ADD_FAILURE() << noNumber << controller.getFocalLength();
    } catch (const std::logic_error& e) {
      EXPECT_EQ(e.what(), "busctl answers \"" + std::string(noNumber) + "\" instead of the focal length of the lens");
    }
  }
}

TEST(ShellCommand, HasAnEndWithAllThatItStarted) {
  EXPECT_EQ(outputOf("printf 'a\\0b'; seq 300 | tail -n 1", std::chrono::minutes(1)), std::string("a\0b300\n", 7));
  EXPECT_EQ(outputOf("exec >&-; sleep 1000", std::chrono::minutes(1)), "") << "nothing more can come";
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  EXPECT_THROW(outputOf("(trap '' TERM; sleep 1000) & wait", std::chrono::seconds(1)), std::runtime_error);
  close(ends[1]);
  char none = 0;
  EXPECT_EQ(read(ends[0], &none, 1), 0) << "the pipe's other end is held as long as somebody lives";
  close(ends[0]);
}

class Chessboard : public ::testing::Test {
 protected:
  Chessboard() {
    openlog("geometry_test", 0, LOG_USER);
    g_StreamWidth = 640;
    g_StreamHeight = 360;
    scripted::camera() = {};
  }
  static void show(float focalLength, float slantX, float slantY) {
    scripted::camera().frame = scripted::chessboardFrame(640, 360, focalLength, slantX, slantY);
  }
  /// The numbers of the matrix logged last.
  std::vector<double> matrix() const {
    std::vector<double> numbers(9);
    const std::string log = state.read("system.log");
    const std::string line = "info: Distance_Controller::log_intrinsic_matrix ";
    std::size_t at = log.size();
    for (std::size_t row = 3; row-- > 0;) {
      at = log.rfind(line, at - 1);
      std::istringstream text(log.substr(at + line.size()));
      text >> numbers[3 * row] >> numbers[3 * row + 1] >> numbers[3 * row + 2];
    }
    return numbers;
  }
  bool logged(const std::string& text) const { return state.read("system.log").find(text) != std::string::npos; }

  StateFolder state;
  VideoStreamSource board{360, 640, 0};
  Distance_Controller controller;
};

TEST_F(Chessboard, SlantedViewsGiveTheCameraMatrix) {
  scripted::camera().frame.assign(640 * 360 * 3 / 2, 128);
  EXPECT_FALSE(controller.find_pattern(board));
  EXPECT_FALSE(controller.log_intrinsic_matrix(board));
  EXPECT_TRUE(logged("log_intrinsic_matrix no view of the chessboard yet"));
  show(500, 0, 0);
  EXPECT_FALSE(controller.log_intrinsic_matrix(board)) << "a board seen from the front does not tell";
  for (const auto& [slantX, slantY] : {std::pair{0.5F, 0.0F}, {0.0F, 0.5F}}) {
    Distance_Controller oneWay;
    show(500, slantX, slantY);
    EXPECT_FALSE(oneWay.log_intrinsic_matrix(board)) << "nor does one that is slanted one way";
    EXPECT_TRUE(controller.find_pattern(board));
  }
  show(500, -0.4F, 0.4F);
  EXPECT_TRUE(controller.log_intrinsic_matrix(board));
  EXPECT_FALSE(logged("views of the chessboard: 5")) << "one view a picture";
  EXPECT_TRUE(logged("views of the chessboard: 4")) << "that of the last picture counts too";
  const std::vector<double> found = matrix();
  const std::vector<double> expected{500, 0, 319.5, 0, 500, 179.5, 0, 0, 1};
  for (std::size_t i = 0; i < 9; ++i) EXPECT_NEAR(found[i], expected[i], i % 4 == 0 && i < 8 ? 10 : 0.01) << i;
  scripted::camera().faults = {{"vdo_stream_get_buffer", 0}};
  EXPECT_FALSE(controller.find_pattern(board));
  EXPECT_TRUE(controller.log_intrinsic_matrix(board)) << "from the views that there are";
}

TEST_F(Chessboard, TheOldestOfFiftyViewsGoes) {
  show(900, 0.5F, 0.3F);
  EXPECT_TRUE(controller.find_pattern(board));
  show(500, 0.4F, 0.4F);
  for (int i = 0; i < 50; ++i) EXPECT_TRUE(controller.find_pattern(board));
  EXPECT_FALSE(logged("views of the chessboard: 51"));
  EXPECT_TRUE(controller.log_intrinsic_matrix(board));
  EXPECT_NEAR(matrix()[0], 500, 10);
}

TEST_F(Calibration, StakesStandUprightOnTheCorners) {
  g_DistanceController = Distance_Controller();
  Calibrator calibrator;
  std::array<int, 4> stake = {9, 9, 9, 9};
  const auto stakeOn = [&](int corner) {
    return calibrator.getStakeScreenCoordinates(static_cast<Calibrator::Corner>(corner), stake[0], stake[1], stake[2],
                                                stake[3]);
  };
  calibrator.setSize(1.5F, 2.0F);
  EXPECT_FALSE(stakeOn(0)) << "the floor is not calibrated";
  const scripted::Lens lens("UINT32 3700;\n");
  ASSERT_TRUE(g_DistanceController.calibrate("AXIS Q1656", kFloor, 1.5F, 2.0F));
  calibrator = Calibrator();
  EXPECT_FALSE(stakeOn(0)) << "no size is set";
  EXPECT_EQ(stake, (std::array{9, 9, 9, 9}));
  calibrator.setSize(1.5F, 2.0F);
  for (const auto& [corner, x, y] : {std::tuple{0, 0.0F, 0.0F}, {1, 1.5F, 0.0F}, {2, 0.0F, 2.0F}, {3, 1.5F, 2.0F}}) {
    ASSERT_TRUE(stakeOn(corner));
    const cv::Point2f foot = g_DistanceController.world_to_screen_point({x, y, -0.0F});
    const cv::Point2f top = g_DistanceController.world_to_screen_point({x, y, -1.0F});
    EXPECT_EQ(stake, (std::array{static_cast<int>(foot.x), static_cast<int>(foot.y), static_cast<int>(top.x),
                                 static_cast<int>(top.y)}))
        << "truncated, corner " << corner;
    EXPECT_LT(stake[3], stake[1]) << "a metre up";
  }
  for (const int noCorner : {-1, 4}) EXPECT_FALSE(stakeOn(noCorner));
  EXPECT_TRUE(calibrator.getStakeScreenCoordinates(std::nanf(""), 1e30F, stake[0], stake[1], stake[2], stake[3]));
}

}  // namespace
