#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "app/calibration_params.h"
#include "app/initial_params.h"
#include "app/observer.h"
#include "app/process_state.h"
#include "config/parameter_controller.h"
#include "platform/scripted/inference.h"
#include "platform/scripted/parameters.h"
#include "platform/scripted/stage/networks.h"
#include "platform/scripted/stage/pictures.h"
#include "platform/scripted/system_log.h"
#include "platform/scripted/video.h"
#include "validation/Validator.h"

namespace {

using namespace scripted;
using Bytes = std::vector<uint8_t>;

constexpr int kSide = 60;  // of the detector's input

/// A body of 250 x 500 pixels in a picture of 1280 x 720; upside down when its feet are on top.
Skeleton body(int left, int headY, int feetY) {
  Keypoints keypoints;
  for (const BodyPart part : BodyParts) keypoints[part] = {{left, headY}, part, 0.5F};
  for (const BodyPart part : {BodyPart::LeftAnkle, BodyPart::RightAnkle}) {
    keypoints[part] = {{left + 250, feetY}, part, 0.5F};
  }
  return {keypoints, 180, 0.5F};
}

class Validation : public testing::Test {
 protected:
  Validation() {
    camera() = {};
    camera().frame.assign(1920 * 1080 * 3 / 2, 128);
    inference() = {};
    inference().inputs = {{1, kSide, kSide, 3}};
    inference().outputs.assign(4, {1, 20});
    inference().output_bytes = detectorOutputs(0.0F, 0.9F);
    systemLog().clear();
    g_CalibrationParams.f_Sensitivity = 0.5F;
    g_InitialParams.l_LarodChipType = LAROD_CHIP_CPU;
    g_InitialParams.s_mobilenetModelFileName = "detector.onnx";
    g_InitialParams.i_mobilenetModelWidth = kSide;
    g_InitialParams.i_mobilenetModelHeight = kSide;
    const std::string root = testing::TempDir() + "validation";
    const std::string package = root + "/mnt/flash/usr/local/packages/velmor_care";
    std::filesystem::create_directories(package);
    std::ofstream(package + "/detector.onnx") << "model";
    setenv("VELMOR_ROOT", root.c_str(), 1);
  }
  ~Validation() override {
    g_videoHQStreamSource.reset();
    m_validator.reset();
    EXPECT_EQ(inference().live_handles, 0);
  }

  bool init() { return m_validator->init("velmor_care"); }

  std::unique_ptr<Validator> m_validator = std::make_unique<Validator>();
};

TEST_F(Validation, ShowsTheDetectorTheTurnedSquareAroundTheBody) {
  ASSERT_TRUE(init());
  const auto inputFor = [&](const Skeleton& one) {
    Skeletons skeletons = {one};
    EXPECT_TRUE(m_validator->validateAndRemove(skeletons, 1280, 720));
    EXPECT_EQ(skeletons.size(), 1U);
    return inference().last_input;
  };
  // Luma tells the column, then the row, in bands of 10 pixels; 1.164 is the gain from luma to RGB. The squares are
  // 1079 and 584 pixels wide, begin at column 432 and at row 113, and come mirrored on the detector's 60 pixels.
  camera().frame = greyFrame(1920, 1080, [](unsigned x, unsigned) { return static_cast<uint8_t>(16 + x / 10); });
  const Bytes columns = inputFor(body(600, 600, 100));
  for (const auto& [place, band] : {std::pair{59UL, 43}, {0UL, 149}, {20UL, 113}}) {
    EXPECT_NEAR(columns[place * 3], 1.164 * band, 2) << "column " << place;
  }
  camera().frame = greyFrame(1920, 1080, [](unsigned, unsigned y) { return static_cast<uint8_t>(16 + y / 10); });
  const Bytes rows = inputFor(body(600, 400, 140));
  for (const auto& [place, band] : {std::pair{59UL, 11}, {0UL, 68}, {20UL, 49}}) {
    EXPECT_NEAR(rows[place * kSide * 3], 1.164 * band, 2) << "row " << place;
  }

  std::fill(camera().frame.begin(), camera().frame.begin() + 1920L * 1080, uint8_t{235});
  EXPECT_EQ(inputFor(body(250, 100, 600)), rows) << "an upright body is judged on the previous picture";
  EXPECT_EQ(inputFor(body(250, 600, 100)), Bytes(std::size_t{kSide} * kSide * 3, 255));
}

TEST_F(Validation, KeepsOnlyWhatIsAPersonAboveTheSensitivity) {
  ASSERT_TRUE(init());
  struct Case {
    float personClass, score;
    bool isConfirmed;
  };
  for (const Case& c : {Case{0.0F, 0.51F, true}, Case{0.0F, 0.5F, false}, Case{0.9F, 0.9F, true},
                        Case{-0.9F, 0.9F, true}, Case{1.0F, 0.9F, false}}) {
    inference().output_bytes = detectorOutputs(c.personClass, c.score);
    Skeletons skeletons = {body(250, 600, 100), body(600, 600, 100)};
    EXPECT_TRUE(m_validator->validateAndRemove(skeletons, 1280, 720));
    EXPECT_EQ(skeletons.size(), c.isConfirmed ? 2U : 0U) << c.personClass << " " << c.score;
  }
  inference().output_bytes = detectorOutputs(0.0F, 0.9F);
  inference().faults = {{"larodRunJob", 1}};
  Skeletons skeletons = {body(250, 600, 100), body(600, 600, 100)};
  EXPECT_TRUE(m_validator->validateAndRemove(skeletons, 1280, 720));
  ASSERT_EQ(skeletons.size(), 1U);
  EXPECT_EQ(skeletons[0].superior.x, 250);
  camera().faults = {{"vdo_stream_get_buffer", 0}};
  EXPECT_FALSE(m_validator->validateAndRemove(skeletons, 1280, 720));
  EXPECT_EQ(skeletons.size(), 1U);
}

TEST_F(Validation, CropSquareStaysInThePicture) {
  ASSERT_TRUE(init());
  struct Case {
    std::array<int, 4> box;     // x, y, w, h
    std::array<int, 4> square;  // x, y, w, h
  };
  for (const Case& c :
       {Case{{100, 100, 50, 200}, {0, 50, 300, 300}}, Case{{800, 300, 50, 200}, {663, 250, 300, 300}},
        Case{{800, 300, 201, 50}, {750, 163, 301, 301}}, Case{{1820, 900, 100, 100}, {1769, 875, 150, 150}},
        Case{{1850, 990, 100, 100}, {1769, 929, 150, 150}}, Case{{900, 0, 300, 1000}, {225, 0, 1079, 1079}}}) {
    std::array<int, 4> square = {};
    EXPECT_TRUE(m_validator->findBestCropParameters(c.box[0], c.box[1], c.box[2], c.box[3], square[0], square[1],
                                                    square[2], square[3]));
    EXPECT_EQ(square, c.square);
  }
  Skeletons skeletons = {Skeleton()};
  EXPECT_TRUE(m_validator->validateAndRemove(skeletons, 1280, 720));
  EXPECT_TRUE(skeletons.empty()) << "no box, no square";
}

TEST_F(Validation, InitSaysWhyItFails) {
  for (const std::string failure :
       {"larodConnect", "larodLoadModel", "larodCreateModelInputs", "larodCreateModelOutputs", "larodSetTensorFd",
        "larodCreateJobRequest", "chip", "file", "size", "outputs"}) {
    g_InitialParams.l_LarodChipType = failure == "chip" ? LAROD_CHIP_INVALID : LAROD_CHIP_CPU;
    g_InitialParams.s_mobilenetModelFileName = failure == "file" ? "other.onnx" : "detector.onnx";
    g_InitialParams.i_mobilenetModelWidth = failure == "size" ? 641 : kSide;
    inference().outputs.assign(failure == "outputs" ? 3 : 4, {1, 20});
    inference().faults = {{failure, failure == "larodSetTensorFd" ? 4 : 0}};  // the input's and three outputs' succeed
    m_validator = std::make_unique<Validator>();
    EXPECT_FALSE(init()) << failure;
    const std::string& line = systemLog().back().text;
    EXPECT_EQ(line.find("out of order") != std::string::npos, failure.starts_with("larod")) << line;
  }
}

TEST_F(Validation, ATurnedCameraGivesAPortraitPicture) {
  parameters() = {{{"root.Image.I0.Appearance.Rotation", "270"}}, {{"ax_parameter_get", 1}}};
  g_ParameterController.init_controller("velmor_care");
  EXPECT_EQ(g_ParameterController.get_rotation(), 270);
  g_ParameterController.init_controller("velmor_care");
  EXPECT_EQ(g_ParameterController.get_rotation(), 0) << "the store has failed";
  parameters().faults.clear();
  g_ParameterController.init_controller("velmor_care");
  g_InitialParams.i_mobilenetModelWidth = 640;  // the widest that is taken
  ASSERT_TRUE(init());
  EXPECT_EQ(camera().settings["rotation"], 270U);
  int x = 0, y = 0, w = 0, h = 0;
  EXPECT_TRUE(m_validator->findBestCropParameters(0, 1500, 200, 200, x, y, w, h));
  EXPECT_EQ(y, 1450);
  Skeletons skeletons = {body(250, 600, 100)};
  EXPECT_TRUE(m_validator->validateAndRemove(skeletons, 720, 1280));
}

}  // namespace

bool g_IsDevMode;
AnalysisObserver* g_observer;
_CalibrationParams g_CalibrationParams;
_InitialParams g_InitialParams;
parameter_controller g_ParameterController;
