// A save on its whole way: the page's request, the web server, the program, the store and its file.
#include <axhttp.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <set>

#include "app/process_state.h"
#include "config/apply_settings.h"
#include "config/parameter_controller.h"
#include "config/request_handler.h"
#include "platform/scripted/lens.h"
#include "platform/support/owners.h"
#include "tests/config/page_settings.h"
#include "tests/platform/full_disk.h"
#include "tests/platform/http_client.h"
#include "tests/platform/state_folder.h"

using nlohmann::json;

namespace {

class Saves : public testing::Test {
 protected:
  Saves() {
    state.write("video.mp4", "");
    state.write("camera.json", R"({"source": "video.mp4"})");
    setenv("VELMOR_MANIFEST", VELMOR_SOURCE_DIR "/package/manifest.json", 1);
    setenv("VELMOR_LISTEN", "127.0.0.1:0", 1);
    setenv("VELMOR_OUTPUT", "text", 1);
    openlog("save_test", 0, LOG_USER);
    g_StatusCode = 200;
    g_StreamWidth = 1280;
    g_StreamHeight = 720;
    g_ParameterController.init_controller("velmor_care");
    g_CalibrationParams = g_ParameterController.load_calibration();
    testing::internal::CaptureStdout();
    m_handler = ax_http_handler_new(request_handler, nullptr);
    const std::string page = testing::internal::GetCapturedStdout();
    m_port = static_cast<std::uint16_t>(std::stoi(page.substr(page.rfind(':') + 1)));
  }
  ~Saves() override { ax_http_handler_free(m_handler); }

  HttpReply save(const Query& settings) const {
    std::string form = "action=set_all_parameters";
    for (const auto& [key, value] : settings) form.append("&").append(key).append("=").append(value);
    return post("/local/velmor_care/control.cgi", form);
  }

  /// The settings as a file.
  json exported() const { return json::parse(request(m_port, "GET", "/platform/settings").body); }
  /// Brings such a file back.
  HttpReply bring(const json& document) const {
    const GLibPtr<gchar> text(g_uri_escape_string(document.dump().c_str(), nullptr, FALSE));
    return post("/platform/settings", std::string("document=") + text.get());
  }
  /// The keys of the newest changes, sorted.
  std::set<std::string> changedKeys(int limit) const {
    std::set<std::string> keys;
    const HttpReply reply = request(m_port, "GET", "/platform/changes?limit=" + std::to_string(limit));
    const json document = json::parse(reply.body);
    for (const json& one : document["changes"]) keys.insert(one["key"]);
    return keys;
  }

  StateFolder state;
  std::unique_ptr<scripted::Lens> lens = std::make_unique<scripted::Lens>("UINT32 3700;\n");

 private:
  HttpReply post(const std::string& path, const std::string& form) const {
    return request(m_port, "POST", path,
                   "X-Requested-With: test\r\nContent-Type: application/x-www-form-urlencoded\r\n", form);
  }

  AXHttpHandler* m_handler = nullptr;
  std::uint16_t m_port = 0;
};

TEST_F(Saves, AreOneChangeOfTheFileOrToldAsNotStored) {
  ASSERT_EQ(save(pageSettings()).status, 200);
  const std::string old = state.read("parameters.conf");
  Query changed = pageSettings();
  changed["SN"] = "0.25";    // the first that is stored
  changed["AOI2_X1"] = "7";  // in the middle
  changed["XM"] = "2.5";     // the last
  const auto expectRefusal = [&] {
    const HttpReply reply = save(changed);
    EXPECT_EQ(reply.status, 500);
    EXPECT_NE(reply.body.find("could not be stored"), std::string::npos) << reply.body;
    EXPECT_EQ(state.read("parameters.conf"), old) << "nothing of the new";
  };
  std::filesystem::create_directory(state / "parameters.conf.new");  // where the new file is written
  expectRefusal();
  std::filesystem::remove(state / "parameters.conf.new");
  {
    const FullDisk full(old.size() - 20);
    expectRefusal();
  }
  EXPECT_EQ(g_DetectionParams.f_WRectM, 2.5F) << "in use";
  EXPECT_EQ(save(changed).status, 200);
  EXPECT_EQ(state.read("parameters.conf.1"), old) << "one change";
  parameter_controller next;
  next.init_controller("velmor_care");
  EXPECT_EQ(next.load_calibration().f_Sensitivity, 0.25F);
  const _DetectionParams stored = next.load_detection_params();
  EXPECT_EQ(stored.i_Detection2[0], 7 * 1280 / 100);
  EXPECT_EQ(stored.f_WRectM, 2.5F);
}

TEST_F(Saves, OfAFileGiveBackWhatWasKeptAndAreInUse) {
  ASSERT_EQ(save(pageSettings()).status, 200);
  const json kept = exported();
  const _CalibrationParams calibration = g_CalibrationParams;
  Query other = pageSettings();
  for (const char* key : {"POB_ON", "FP_ON", "DO", "AO", "SCM", "AOI1_ON", "EX3_ON"}) {
    other[key] = other[key] == "1" ? "0" : "1";
  }
  for (const auto& [key, value] : Query{{"SN", "0.9"},
                                        {"SAO", "800x450"},
                                        {"AOI2_X3", "88"},
                                        {"EX1_Y4", "1"},
                                        {"XR", "0.1"},
                                        {"YB", "0.9"},
                                        {"XM", "3"},
                                        {"YM", "4.25"}}) {
    other[key] = value;
  }
  ASSERT_EQ(save(other).status, 200);
  EXPECT_NE(exported(), kept);
  const HttpReply back = bring(kept);
  ASSERT_EQ(back.status, 200) << back.body;
  EXPECT_EQ(json::parse(back.body), json::parse(R"({"changed": 15, "rounded": {}})"));
  EXPECT_EQ(exported(), kept);
  EXPECT_EQ(g_CalibrationParams.f_Sensitivity, calibration.f_Sensitivity) << "in use";
  EXPECT_EQ(g_CalibrationParams.str_AnonOverlay, calibration.str_AnonOverlay);
  EXPECT_EQ(g_DetectionParams.f_WRectM, 1.5F);
  EXPECT_EQ(changedKeys(15),
            (std::set<std::string>{"AnonOverlaysOn", "Detection1Active", "Detection22x", "DetectFallenPersons",
                                   "DetectPatientOutOfBed", "DetectionOverlaysOn", "Exclusion13y", "Exclusion3Active",
                                   "FallCalibration0x", "FallCalibration2y", "HRectM", "Sensitivity",
                                   "SelectedAnonOverlay", "ShowCalibrationMarkers", "WRectM"}));
}

TEST_F(Saves, OfAFileAreAllOrNothing) {
  ASSERT_EQ(save(pageSettings()).status, 200);
  const json before = exported();
  const auto expectRefused = [&](const Query& parameters, const std::string& why) {
    const HttpReply reply = bring({{"parameters", parameters}});
    EXPECT_EQ(reply.status, 400) << reply.body;
    EXPECT_NE(reply.body.find(why), std::string::npos) << reply.body;
    EXPECT_EQ(std::count(reply.body.begin(), reply.body.end(), '\n'), 1) << reply.body;
    EXPECT_EQ(exported(), before);
    EXPECT_EQ(g_CalibrationParams.f_Sensitivity, 0.5F);
  };
  expectRefused({{"Sensitivity", "0.1"}, {"Detection10x", "1281"}}, "\"Detection10x\" must be a whole number");
  expectRefused({{"Sensitivity", "0.1"}, {"MaxDisappeared", "9"}}, "\"MaxDisappeared\" is read at a start alone");
  expectRefused({{"Sensitivity", "0.1"}, {"SelectedAnonOverlay", std::string(4097, 'x')}}, "at most 4096 bytes");
  expectRefused({{"Sensitivity", "0.1"}, {"FallCalibration1x", "0"}, {"FallCalibration1y", "0"}},
                "cannot be a rectangle");
  const HttpReply one = bring({{"parameters", {{"MaxDisappeared", "8.0"}, {"Detection10x", "338"}}}});
  EXPECT_EQ(one.body, "{\"changed\":1,\"rounded\":{\"Detection10x\":\"332\"}}\n") << "areas are whole percents";
  std::filesystem::create_directory(state / "parameters.conf.new");
  EXPECT_EQ(bring({{"parameters", {{"Sensitivity", "0.2"}}}}).status, 500) << "not on disk";
  std::filesystem::remove(state / "parameters.conf.new");
  lens = nullptr;
  lens = std::make_unique<scripted::Lens>("no number\n");
  const HttpReply deaf = bring({{"parameters", {{"Sensitivity", "0.3"}}}});
  EXPECT_EQ(deaf.status, 500);
  EXPECT_NE(deaf.body.find("lens"), std::string::npos) << deaf.body;
  EXPECT_EQ(exported()["parameters"]["Sensitivity"], "0.300000");
}

/// What is taken must calibrate: the next start would end without a floor.
TEST_F(Saves, OfAFileTakeNoFloorThatTheProgramCannotUse) {
  ASSERT_EQ(save(pageSettings()).status, 200);
  std::mt19937 random(7);  // NOLINT(cert-msc51-cpp): the same floors each time
  std::uniform_int_distribution<int> place(0, 12);
  int taken = 0;
  for (int i = 0; i < 30; ++i) {
    Query floor;
    for (const char* corner : {"0", "1", "2", "3"}) {
      floor[std::string("FallCalibration") + corner + "x"] = std::to_string(100 * place(random));
      floor[std::string("FallCalibration") + corner + "y"] = std::to_string(50 * place(random));
    }
    if (bring({{"parameters", floor}}).status != 200) continue;
    ++taken;
    EXPECT_TRUE(calibrate_floor()) << json(floor);
  }
  EXPECT_GT(taken, 2);
}

}  // namespace
