#include <gtest/gtest.h>
#include <syslog.h>

#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

#include "app/process_state.h"
#include "config/parameter_controller.h"
#include "tests/platform/state_folder.h"

namespace {

const std::string kManifest = VELMOR_SOURCE_DIR "/package/manifest.json";

nlohmann::json manifestParameters() { return nlohmann::json::parse(std::ifstream(kManifest)).at("parameters"); }

/// The controller on the workstation's store, in a folder and with a log of its own.
class Store : public ::testing::Test {
 protected:
  Store() {
    state.write("video.mp4", "");
    state.write("camera.json", R"({"source": "video.mp4", "rotation": 90, "product_name": "AXIS Q1715"})");
    setenv("VELMOR_MANIFEST", kManifest.c_str(), 1);
    openlog("config_test", 0, LOG_USER);
  }
  ~Store() override { g_IsDevMode = false; }

  void open() { controller.init_controller("velmor_care"); }
  bool logged(const std::string& text) { return state.read("system.log").find(text) != std::string::npos; }

  StateFolder state;
  parameter_controller controller;
};

TEST_F(Store, TheManifestHoldsExactlyTheParametersThatAreRead) {
  g_IsDevMode = true;
  open();
  controller.load_calibration();
  controller.load_initial_params();
  controller.load_detection_params();
  controller.load_floor_params();
  const std::string log = state.read("system.log");
  const std::regex line("Retrieving ([^:]+): ");
  std::set<std::string> read;
  for (std::sregex_iterator match(log.begin(), log.end(), line), end; match != end; ++match) read.insert((*match)[1]);
  std::set<std::string> declared;
  for (const auto& parameter : manifestParameters()) declared.insert(parameter.at("name"));
  EXPECT_EQ(read, declared);
}

/// All polygons and the floor points by their names.
std::map<std::string, int*> polygonsOf(_DetectionParams& p) {
  return {{"Detection1", p.i_Detection1},          {"Detection2", p.i_Detection2}, {"Detection3", p.i_Detection3},
          {"Exclusion1", p.i_Exclusion1},          {"Exclusion2", p.i_Exclusion2}, {"Exclusion3", p.i_Exclusion3},
          {"FallCalibration", p.i_FallCalibration}};
}

TEST_F(Store, WhatIsSavedUnderItsNameIsLoadedByANewStart) {
  open();
  _DetectionParams saved;
  int value = -20;  // every coordinate another one, the first negative
  for (const auto& [name, polygon] : polygonsOf(saved)) {
    for (int i = 0; i < 8; ++i) polygon[i] = value += 17;
  }
  saved.i_Detection1[8] = 99;  // reserved: neither saved nor loaded
  saved.b_Detection1Active = saved.b_Exclusion2Active = saved.b_DetectFallenPersons = true;
  saved.f_WRectM = 2.25F;
  saved.f_HRectM = 0.123456F;
  g_IsDevMode = true;
  EXPECT_EQ(controller.save_detection(saved), 1);
  EXPECT_TRUE(logged("info: set_gfloat_parameter: HRectM saved with 0.123456"));
  EXPECT_TRUE(logged("info: set_boolean_parameter: Detection1Active saved with true"));
  EXPECT_EQ(controller.save_calibration({0.05F, 6, true, false, "640x360", "800x450", true}), 1);
  open();  // anew: everything exists
  EXPECT_FALSE(logged("add_parameter"));
  _DetectionParams loaded = controller.load_detection_params();
  for (const auto& [name, polygon] : polygonsOf(saved)) {
    const int* read = polygonsOf(loaded)[name];
    for (int i = 0; i < 8; ++i) {
      const std::string corner = name + std::to_string(i / 2) + "xy"[i % 2];
      EXPECT_EQ(std::pair(controller.get_gint_parameter(corner), read[i]), std::pair(polygon[i], polygon[i])) << corner;
    }
  }
  EXPECT_EQ(loaded.i_Detection1[8], 0);
  EXPECT_TRUE(loaded.b_Detection1Active && loaded.b_Exclusion2Active && loaded.b_DetectFallenPersons);
  EXPECT_FALSE(loaded.b_Detection2Active || loaded.b_Exclusion1Active || loaded.b_DetectPatientOutOfBed);
  EXPECT_EQ(std::pair(loaded.f_WRectM, loaded.f_HRectM), std::pair(2.25F, 0.123456F));
  const _CalibrationParams read = controller.load_calibration();
  EXPECT_EQ(std::pair(read.i_MaxDisappeared, read.f_Sensitivity), std::pair(6, 0.05F));
  EXPECT_TRUE(read.b_DetectionOverlaysOn && !read.b_AnonOverlaysOn && read.b_ShowCalibrationMarkers);
  EXPECT_EQ(read.str_DetectionOverlay + read.str_AnonOverlay, "640x360800x450");
  for (const auto& [name, text] : {std::pair{"HRectM", "0.123456"},
                                   {"SelectedAnonOverlay", "800x450"},
                                   {"AnonOverlaysOn", "false"},
                                   {"Detection1Active", "true"},
                                   {"Exclusion2Active", "true"},
                                   {"DetectFallenPersons", "true"}}) {
    EXPECT_EQ(controller.get_string_parameter(name), text) << name;
  }
}

TEST_F(Store, ReadsTheCameraTheModelsAndOnlyTrueAsTrue) {
  open();
  EXPECT_EQ(controller.get_rotation(), 90);
  EXPECT_EQ(controller.findProdShortName(), "AXIS Q1715");
  controller.list_params();
  EXPECT_TRUE(logged("info: list_params: Parameter in list: \"WRectM\""));
  const _InitialParams params = controller.load_initial_params();
  EXPECT_EQ(params.l_LarodChipType, LAROD_CHIP_CPU);
  EXPECT_TRUE(params.i_mobilenetModelWidth == 300 && params.i_mobilenetModelHeight == 300);
  EXPECT_EQ(params.s_LandscapeModelFileName + params.s_PortraitModelFileName, "pose_landscape.onnxpose_portrait.onnx");
  for (const char* text : {"1", "TRUE", "", "true "}) {
    controller.set_string_parameter("Exclusion1Active", text);
    EXPECT_FALSE(controller.get_boolean_parameter("Exclusion1Active")) << text;
  }
}

TEST_F(Store, WhatThePackageDoesNotDeclareIsCreatedAsZero) {
  state.write("manifest.json", R"({"parameters": [{"name": "LandscapeModelFileName", "default": "7"}]})");
  setenv("VELMOR_MANIFEST", (state / "manifest.json").c_str(), 1);
  open();
  for (const auto& parameter : manifestParameters()) {
    const std::string name = parameter.at("name");
    if (name.ends_with("ModelFileName") || (name.starts_with("Detection") && !name.ends_with("On"))) continue;
    EXPECT_EQ(controller.get_string_parameter(name), "0") << name;
  }
  EXPECT_EQ(controller.get_gint_parameter("Detection10x"), 0);
  EXPECT_TRUE(logged("emergency: get_gint_parameter: failed to load Detection10x -> Detection10x is not a parameter"));
}

TEST_F(Store, AFailureIsLoggedAndClosesTheStore) {
  const std::string no = "Missing";
  const std::vector<std::pair<std::string, std::function<void()>>> failures{
      {"emergency: get_gfloat_parameter: Failed to get Missing", [&] { controller.get_gfloat_parameter(no); }},
      {"emergency: get_boolean_parameter: Failed to get Missing", [&] { controller.get_boolean_parameter(no); }},
      {"emergency: get_string_parameter: Failed to get (null)", [&] { controller.get_string_parameter(no); }},
      {"emergency: get_larodchiptype_parameter: failed to load Missing",
       [&] { EXPECT_EQ(controller.get_larodchiptype_parameter(no), LAROD_CHIP_INVALID); }},
      {"emergency: set_guint_parameter: Failed to save Missing", [&] { controller.set_guint_parameter(no, 1); }},
      {"emergency: set_gfloat_parameter: Failed to save Missing", [&] { controller.set_gfloat_parameter(no, 1); }},
      {"emergency: set_boolean_parameter Failed to save Missing", [&] { controller.set_boolean_parameter(no, true); }},
      {"emergency: set_string_parameter: Failed to save Missing", [&] { controller.set_string_parameter(no, ""); }},
      {"error: add_parameter: Failed to add parameter a b. Error: ", [&] { controller.add_parameter("a b"); }}};
  for (const auto& [line, tryIt] : failures) {
    open();
    EXPECT_EQ(controller.get_gint_parameter("MaxDisappeared"), 8);
    tryIt();
    EXPECT_TRUE(logged(line)) << line;
    EXPECT_EQ(controller.get_gint_parameter("MaxDisappeared"), 0) << line;
  }
  EXPECT_EQ(controller.findProdShortName(), "");
  EXPECT_TRUE(logged("error: findProdShortName: Unknown ProdShortName value"));
  setenv("VELMOR_MANIFEST", "/nowhere/manifest.json", 1);
  open();
  EXPECT_TRUE(logged("emergency: init_controller: Error Initializng Parameter of velmor_care"));
  EXPECT_TRUE(logged("error: find_rotation_parameter: Unknown rotation value"));
  EXPECT_EQ(controller.get_rotation(), 0);
}

}  // namespace
