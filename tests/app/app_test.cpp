#include <glib-unix.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <functional>
#include <regex>
#include <stdexcept>
#include <thread>

#include "analysis/FindingsHistory.h"
#include "analysis/area_of_interest.h"
#include "analysis/tracker.h"
#include "app/calibration_params.h"
#include "app/lifecycle/analysis_cycle.h"
#include "app/lifecycle/init_ai.h"
#include "app/lifecycle/shutdown.h"
#include "app/lifecycle/startup.h"
#include "app/process_state.h"
#include "config/parameter_controller.h"
#include "events/event_manager.h"
#include "geometry/calibrator.h"
#include "geometry/distance_controller.h"
#include "overlay/overlay_manager.h"
#include "platform/scripted/inference.h"
#include "platform/scripted/lens.h"
#include "platform/scripted/overlays.h"
#include "platform/scripted/stage/networks.h"
#include "platform/scripted/video.h"
#include "pose/BodypixPoseEstimator.h"
#include "tests/platform/state_folder.h"
#include "validation/Validator.h"
#include "video/VideoStreamSource.h"

namespace {

using namespace scripted;

void nothing() {}
[[noreturn]] void stop() { _exit(g_ThreadID == 0 ? 0 : 7); }

/// Whoever asks the process to end finds it stuck.
[[noreturn]] void getStuck() {
  kill(getpid(), SIGTERM);
  for (;;) pause();
}

/// Runs the main loop as main does, with something just before it and after it.
[[noreturn]] void runLoop(GSourceFunc tick, void (*before)() = nothing, void (*after)() = stop) {
  init_signals();
  deliverSigtermWhileWaiting();
  gp_Loop = g_main_loop_new(nullptr, FALSE);
  g_ThreadID = g_timeout_add(0, tick, nullptr);  // always ready, as a replay's ticker is
  before();
  g_main_loop_run(gp_Loop);
  after();
  _exit(7);
}

gboolean raiseHere(gpointer) {
  raise(SIGTERM);
  return G_SOURCE_CONTINUE;
}

/// A turn always has something to do: a client that polls, say.
gboolean raiseBesideAReadyDescriptor(gpointer) {
  static int ready = -1;
  if (ready < 0) {
    ready = eventfd(1, EFD_CLOEXEC);
    g_unix_fd_add(
        ready, G_IO_IN, [](gint, GIOCondition, gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    kill(getpid(), SIGTERM);
  }
  return G_SOURCE_CONTINUE;
}

gboolean raiseElsewhere(gpointer) {
  std::thread([] {
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    raise(SIGTERM);
  }).join();
  return G_SOURCE_CONTINUE;
}

TEST(Shutdown, SigtermEndsTheLoopWithZeroAndAStartWithOne) {
  const GSourceFunc keepOn = [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; };
  EXPECT_EXIT((init_signals(), raise(SIGTERM), _exit(7)), testing::ExitedWithCode(1), "");
  EXPECT_EXIT((init_signals(), raiseElsewhere(nullptr), _exit(7)), testing::ExitedWithCode(1), "");
  EXPECT_EXIT((init_signals(), raise(SIGPIPE), _exit(3)), testing::ExitedWithCode(3), "");
  EXPECT_EXIT(runLoop(keepOn, [] { raise(SIGTERM); }), testing::ExitedWithCode(0), "") << "pending at the start";
  for (const GSourceFunc tick : {raiseHere, raiseElsewhere, raiseBesideAReadyDescriptor}) {
    EXPECT_EXIT(runLoop(tick), testing::ExitedWithCode(0), "");
  }
}

TEST(Shutdown, AnEndThatHangsIsCutShort) {
  EXPECT_EXIT((init_signals(), deliverSigtermWhileWaiting(), getStuck()), testing::ExitedWithCode(1), "");
  EXPECT_EXIT(runLoop([](gpointer) -> gboolean { getStuck(); }), testing::ExitedWithCode(0), "") << "in a cycle";
  EXPECT_EXIT(runLoop(raiseHere, nothing, getStuck), testing::ExitedWithCode(0), "") << "in a source that holds on";
}

void leave(const std::function<void()>& thrower) noexcept {
  init_terminate();
  thrower();
}

TEST(Shutdown, AnExceptionThatLeavesMainIsOneLineAndStatus255) {
  const StateFolder state;
  EXPECT_EXIT(leave([] { throw std::runtime_error("no stream"); }), testing::ExitedWithCode(255),
              "^velmor_care: no stream\n$");
  EXPECT_EXIT(leave([] { throw "no file"; }), testing::ExitedWithCode(255), "^velmor_care: no file\n$");
  EXPECT_EXIT(leave([] { throw 7; }), testing::ExitedWithCode(255), "^velmor_care: an exception of unknown type\n$");
  EXPECT_EXIT(leave([] { throw std::runtime_error((syslog(LOG_ERR, "no model"), "no model")); }),
              testing::ExitedWithCode(255), "^[^\n]*: no model\n$")
      << "what was logged on the way is not said again";
}

/// Puts the pose models into a package, and lets the inference service describe each model by its name.
void provideModels(const StateFolder& package) {
  const std::filesystem::path folder = "usr/local/packages/velmor_care";
  std::filesystem::create_directories(package / folder);
  for (const char* model : {"pose_landscape.onnx", "pose_portrait.onnx"}) package.write(folder / model, "model");
  setenv("VELMOR_ROOT", package.path().c_str(), 1);
  inference().on_load = [](const std::string& name) {
    const bool isUpright = name.ends_with("portrait.onnx");
    describePoseModel(isUpright ? 1280 : 720, isUpright ? 720 : 1280, isUpright ? 81 : 46, isUpright ? 46 : 81);
    if (name.ends_with("detector.onnx")) inference().outputs.resize(4);
  };
}

/// Cycles on an inference service that sees nobody unless told otherwise.
class Cycle : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    const StateFolder package;
    provideModels(package);
    const std::string detectors = "mnt/flash/usr/local/packages/velmor_care";
    std::filesystem::create_directories(package / detectors);
    package.write(detectors + "/person_detector.onnx", "model");
    g_InitialParams = {LAROD_CHIP_CPU, "pose_landscape.onnx", "pose_portrait.onnx", "person_detector.onnx", 300, 300};
    camera().frame.assign(1920 * 1080 * 3 / 2, 128);
    EXPECT_EQ(init_ai(), 0);
    init_overlay_manager();
  }
  Cycle() {
    openlog("cycle_test", 0, LOG_USER);
    inference().faults.clear();
    inference().output_bytes = PoseGrid(46, 81).outputs();
    g_DetectionParams = {};
    g_DetectionParams.b_DetectPatientOutOfBed = g_DetectionParams.b_DetectFallenPersons = true;
    g_findingsHistory = FindingsHistory(12);
    init_event_manager();
  }
  ~Cycle() override { delete g_EventManager; }
  /// The status after a cycle that follows one of that length.
  static int statusAfter(int executionTime_ms) {
    g_ExecutionTime = executionTime_ms;
    EXPECT_EQ(do_one_analysis(), 0);
    return g_StatusCode;
  }

  StateFolder state;
};

TEST_F(Cycle, StatusTellsEventsAndOverload) {
  const int redraws = overlays().redraws;
  EXPECT_EQ(statusAfter(0), 200);
  EXPECT_EQ(overlays().redraws, redraws + 1);
  overlays().faults = {{"axoverlay_redraw", 0}};
  EXPECT_EQ(statusAfter(1499), 200) << "without an overlay the program still watches";
  overlays().faults.clear();
  EXPECT_EQ(statusAfter(1500), 600);
  EXPECT_NE(g_ExecutionTime, 1500);
  Finding fallen(5, {0, 0}, {}, Footings::floor);
  fallen.activity = Activity::fallen;
  g_findingsHistory.add(fallen);
  EXPECT_EQ(statusAfter(0), 503);
  g_DetectionParams.b_Detection1Active = true;
  for (int i = 0; i < 10; ++i) EXPECT_EQ(statusAfter(0), 503);
  EXPECT_EQ(statusAfter(0), 502);
  EXPECT_EQ(statusAfter(1500), 600);
}

TEST_F(Cycle, FusesTheFourTurnsOfOneFreshPicture) {
  g_CalibrationParams.f_Sensitivity = 0.4F;
  // One person a run, upright in the turned picture and apart from the others in the upright one.
  PoseGrid north(46, 81);
  PoseGrid west(81, 46);
  PoseGrid east(81, 46);
  north.add(standingPerson(300, 100, 400), 2.0F);
  west.add(standingPerson(600, 700, 400), 2.0F);
  east.add(standingPerson(650, 800, 400), 2.0F);
  const auto rotationsFound = [&](float detectorScore, uint8_t luma) {
    std::fill_n(camera().frame.begin(), 1280 * 720, luma);
    inference().next_outputs = {north.outputs(), north.outputs(), detectorOutputs(0, detectorScore), west.outputs(),
                                east.outputs()};
    EXPECT_EQ(do_one_analysis(), 0);
    std::vector<int> rotations;
    for (const Skeleton& one : g_skeletons) rotations.push_back(one.detectorRotation);
    return rotations;
  };
  EXPECT_EQ(rotationsFound(0.5F, 16), (std::vector{0, 270, 180, 90}));
  EXPECT_EQ(inference().last_input[0], 0);
  EXPECT_EQ(rotationsFound(0.4F, 235), (std::vector{0, 270, 90})) << "only those upside down need confirmation";
  EXPECT_EQ(inference().last_input[0], 255);
}

TEST_F(Cycle, AFailedModelRunEndsTheCycleAndWhatWasDrawnLastStays) {
  ASSERT_EQ(do_one_analysis(), 0);
  const int redraws = overlays().redraws;
  for (const int run : {0, 1, 2, 3}) {
    g_skeletons.resize(3);
    g_ExecutionTime = 77;
    inference().faults = {{"larodRunJob", run}};
    EXPECT_EQ(do_one_analysis(), 1);
    EXPECT_EQ(std::tuple(g_StatusCode, g_ExecutionTime, g_skeletons.size()), std::tuple(401, 77, 3U)) << run;
  }
  EXPECT_EQ(overlays().redraws, redraws);
  EXPECT_NE(state.read("system.log").find("Error running portrait model for 270 degree rotated frame "),
            std::string::npos);
  inference().faults.clear();
  EXPECT_EQ(statusAfter(0), 200);
  EXPECT_TRUE(g_skeletons.empty());
}

TEST(Startup, APortraitCameraOnTheDefaultsStartsAndCalibrates) {
  const StateFolder state;
  state.write("video.mp4", "");
  state.write("camera.json", R"({"source": "video.mp4", "rotation": 270, "parameters": {
      "Detection2Active": "true", "ShowCalibrationMarkers": "true", "AnonOverlaysOn": "true"}})");
  setenv("VELMOR_MANIFEST", VELMOR_SOURCE_DIR "/package/manifest.json", 1);
  init_parameter_controller();
  EXPECT_TRUE(g_IsPortrait && g_FloorParams.b_FeetOnFloor && g_calibrator.shouldRender());
  float rectangleWidth = 0, rectangleHeight = 0;
  g_calibrator.getSize(rectangleWidth, rectangleHeight);
  EXPECT_EQ((std::array{rectangleWidth, rectangleHeight}), (std::array{1.5F, 2.0F}));
  EXPECT_EQ(g_InitialParams.s_mobilenetModelFileName, "person_detector.onnx");
  EXPECT_TRUE(g_AreaofInterest.is_detected(2, {300, 300}));
  provideModels(state);
  openlog("startup_test", 0, LOG_USER);
  EXPECT_EQ(init_ai(), -1) << "there is no detector";
  EXPECT_NE(state.read("system.log").find("init_ai Validator init failed"), std::string::npos);
  int width = 0, height = 0;
  g_bodypixPoseEstimatorEW->getModelSize(width, height);
  EXPECT_EQ((std::array{g_modelWidth, g_modelHeight, width, height}), (std::array{720, 1280, 1280, 720}));
  EXPECT_EQ((std::array{g_StreamWidth, g_StreamHeight}), (std::array{720, 1280}));
  const auto& stream = camera().settings;
  EXPECT_TRUE(stream.at("width") == 1280 && stream.at("height") == 720 && stream.at("rotation") == 270);
  g_overlayManager.reset();
  init_overlay_manager();
  EXPECT_EQ(toString({g_OverlayInfo.anonymizedStreamWidth, g_OverlayInfo.anonymizedStreamHeight}),
            g_CalibrationParams.str_AnonOverlay);
  EXPECT_EQ(g_OverlayInfo.overlayStreamWidth, 0U);
  const Lens lens("UINT32 3700;\n");
  ASSERT_TRUE(init_3D());
  const int* points = g_DetectionParams.i_FallCalibration;
  const auto green =
      g_DistanceController.screen_point_to_world_floor({static_cast<float>(points[2]), static_cast<float>(points[3])});
  EXPECT_NEAR(green.x, g_DetectionParams.f_WRectM, 1e-3);
  EXPECT_NEAR(green.y, 0, 1e-3);
  g_IsPortrait = false;
}

TEST(Startup, NamesTheSettingsThatSpoilTheFloor) {
  const std::string points =
      "FallCalibration0x .. FallCalibration3y: the four points cannot be a rectangle on the floor\n";
  const auto metres = [](const std::string& fault) {
    return fault + ": must be above 0; until the floor is saved again, falls may be missed\n";
  };
  const Lens lens("UINT32 3700;\n");
  g_StreamWidth = 1280;
  g_StreamHeight = 720;
  for (const auto& [yellowX, width, height, faults] :
       {std::tuple{385, 0.0F, 2.0F, metres("WRectM is 0.000000")},
        {665, 1.5F, 2.0F, points},
        {665, 1.5F, -2.0F, metres("HRectM is -2.000000").append(points)},
        {385, NAN, INFINITY, metres("WRectM is nan").append(metres("HRectM is inf"))},
        {385, -1.0F, 2.0F, metres("WRectM is -1.000000")}}) {
    const StateFolder state;
    openlog("startup_test", 0, LOG_USER);
    const int corners[] = {479, 381, 665, 381, 679, 591, yellowX, yellowX == 665 ? 381 : 591};
    std::copy(std::begin(corners), std::end(corners), g_DetectionParams.i_FallCalibration);
    g_DetectionParams.f_WRectM = width;
    g_DetectionParams.f_HRectM = height;
    EXPECT_EQ(init_3D(), width < 0) << "a mirrored floor is one";
    // Errors of the floor only, without time and process.
    std::string log =
        std::regex_replace(state.read("system.log"), std::regex("[^\n]*(\\] info:|findProdShortName)[^\n]*\n"), "");
    log = std::regex_replace(log, std::regex("[^\n]*\\] error: "), "");
    EXPECT_EQ(log, width < 0 ? faults : "Degenerate Matrix\n" + faults);
  }
}

}  // namespace
