// The web page's requests, from the query to the reply, the running program and the store.
#include <axhttp.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <algorithm>
#include <limits>
#include <memory>

#include "analysis/area_of_interest.h"
#include "app/process_state.h"
#include "config/parameter_controller.h"
#include "config/parameter_io.h"
#include "config/request_handler.h"
#include "geometry/calibrator.h"
#include "geometry/distance_controller.h"
#include "overlay/overlay_manager.h"
#include "platform/scripted/lens.h"
#include "platform/scripted/stage/pictures.h"
#include "platform/scripted/video.h"
#include "tests/config/page_settings.h"
#include "tests/platform/state_folder.h"
#include "video/VideoStreamSource.h"

namespace {

constexpr AXRequestCallback kHandler = request_handler;
const std::string kText = "Content-Type: text/plain\r\nStatus: 200 OK\r\n\r\n";
const std::string kXml = "Content-Type: text/xml\r\nStatus: 200 OK\r\n\r\n";
const std::string kRefused = "Content-Type: text/plain\r\nStatus: 406\tNot Acceptable\r\n\r\n";

template <typename T, auto release>
struct Releaser {
  void operator()(T* object) const { release(object); }
};
template <typename T, auto release>
using Owner = std::unique_ptr<T, Releaser<T, release>>;

class Requests : public ::testing::Test {
 protected:
  Requests() {
    state.write("video.mp4", "");
    state.write("camera.json", R"({"source": "video.mp4"})");
    setenv("VELMOR_MANIFEST", VELMOR_SOURCE_DIR "/package/manifest.json", 1);
    openlog("request_test", 0, LOG_USER);
    g_StreamWidth = 1280;
    g_StreamHeight = 720;
    g_StatusCode = 200;
    scripted::camera().channels = {{{1280, 720}, {640, 360}}, {{640, 360}}};
    g_ParameterController.init_controller("velmor_care");
    g_CalibrationParams = g_ParameterController.load_calibration();
    g_DetectionParams = g_ParameterController.load_detection_params();
  }
  ~Requests() override {
    g_videoStreamSource.reset();
    g_IsDevMode = g_IsPortrait = false;
  }

  static std::string ask(const std::string& action, Query query = {}) {
    if (!action.empty()) query["action"] = action;
    const Owner<GHashTable, g_hash_table_unref> table(g_hash_table_new(g_str_hash, g_str_equal));
    for (auto& [key, value] : query) g_hash_table_insert(table.get(), const_cast<char*>(key.c_str()), value.data());
    const Owner<GOutputStream, g_object_unref> stream(g_memory_output_stream_new_resizable());
    kHandler("/local/velmor_care/control.cgi", "GET", nullptr, query.empty() ? nullptr : table.get(), stream.get(),
             nullptr);
    EXPECT_FALSE(g_output_stream_is_closed(stream.get())) << "it belongs to the server";
    auto* memory = G_MEMORY_OUTPUT_STREAM(stream.get());
    return {static_cast<const char*>(g_memory_output_stream_get_data(memory)),
            g_memory_output_stream_get_data_size(memory)};
  }
  static void save(const Query& query) { EXPECT_EQ(ask("set_all_parameters", query), ""); }
  static void saveWith(const std::string& key, const std::string& value) {
    Query query = pageSettings();
    query[key] = value;
    save(query);
  }
  /// What the settings document says of an element.
  static std::string shown(const std::string& element) {
    const std::string text = ask("get_all_parameters");
    const std::size_t begin = text.find("<" + element + ">") + element.size() + 2;
    return text.substr(begin, text.find('<', begin) - begin);
  }
  bool logged(const std::string& line) { return state.read("system.log").find(line) != std::string::npos; }

  StateFolder state;
  scripted::Lens lens{"UINT32 3700;\n"};
};

TEST_F(Requests, EachActionHasItsReply) {
  g_StatusCode = 503;
  g_ExecutionTime = 317;
  EXPECT_EQ(ask("get_status_code"), kText + "503");
  EXPECT_EQ(ask("get_status_string"), kText + "Fall detected");
  EXPECT_EQ(ask("get_execution_time"), kText + "317");
  EXPECT_EQ(ask("get_is_portrait"), kText + "0");
  g_IsPortrait = true;
  EXPECT_EQ(ask("get_is_portrait"), kText + "1");
  EXPECT_EQ(ask("toggle_dev_mode"), kXml);
  EXPECT_TRUE(g_IsDevMode);
  EXPECT_EQ(ask("toggle_dev_mode"), kXml);
  EXPECT_FALSE(g_IsDevMode);
  for (const char* unknown : {"", "GET_STATUS_CODE", "get_status_code ", "get_status"}) {
    EXPECT_EQ(ask(unknown, {{"x", "1"}}), "") << unknown;
  }
  EXPECT_EQ(ask(""), "") << "no query at all";
  EXPECT_EQ(g_StatusCode, 503);
}

TEST_F(Requests, ChessboardActionsLookAtTheCamera) {
  EXPECT_EQ(ask("find_pattern"), kRefused) << "no camera";
  scripted::camera().frame.assign(1280 * 720 * 3 / 2, 128);
  g_videoStreamSource = std::make_unique<VideoStreamSource>(720, 1280, 0);
  EXPECT_EQ(ask("find_pattern"), kRefused);
  EXPECT_EQ(ask("log_intrinsic_matrix"), kRefused);
  scripted::camera().frame = scripted::chessboardFrame(1280, 720, 1000, 0, 0);
  EXPECT_EQ(ask("find_pattern"), kText);
  EXPECT_EQ(ask("log_intrinsic_matrix"), kRefused) << "seen from the front only";
  g_StreamWidth = -1;
  EXPECT_EQ(ask("find_pattern"), kRefused) << "the image library throws";
}

TEST_F(Requests, SavedSettingsReachTheProgramAndTheStore) {
  save(pageSettings());
  EXPECT_EQ(g_StatusCode, 200);
  for (int n = 1; n <= 3; ++n) {
    for (int corner = 0; corner < 4; ++corner) {
      const int x = percentSent(n, 2 * corner);
      const int y = percentSent(n, 2 * corner + 1);
      const auto i = static_cast<std::size_t>(corner);
      EXPECT_EQ(g_AreaofInterest.get_detection(n)[i], (std::pair{x * 1280 / 100, y * 720 / 100}));
      EXPECT_EQ(g_AreaofInterest.get_exclusion(n)[i], (std::pair{(x + 1) * 1280 / 100, (y + 1) * 720 / 100}));
    }
    EXPECT_EQ(g_AreaofInterest.get_detection_active(n), n == 2);
    EXPECT_EQ(g_AreaofInterest.get_exclusion_active(n), n == 2);
  }
  EXPECT_EQ(g_OverlayInfo.overlayStreamWidth, 1280U);
  EXPECT_EQ(g_OverlayInfo.anonymizedStreamWidth, 0U) << "switched off";
  float width = 0;
  float height = 0;
  g_calibrator.getSize(width, height);
  EXPECT_TRUE(width == 1.5F && height == 2.0F && g_calibrator.shouldRender());
  const int* floor = g_DetectionParams.i_FallCalibration;
  const auto green =
      g_DistanceController.screen_point_to_world_floor({static_cast<float>(floor[2]), static_cast<float>(floor[3])});
  EXPECT_NEAR(green.x, 1.5F, 1e-3);
  EXPECT_NEAR(green.y, 0, 1e-3);
  EXPECT_FALSE(logged("Failed Calibration"));
  const _DetectionParams stored = g_ParameterController.load_detection_params();
  EXPECT_TRUE(std::equal(floor, floor + 8, stored.i_FallCalibration));
  EXPECT_TRUE(stored.b_DetectPatientOutOfBed && !stored.b_DetectFallenPersons && stored.f_HRectM == 2.0F);
  EXPECT_EQ(g_ParameterController.load_calibration().i_MaxDisappeared, 8) << "the page does not know it";
  Query masks = pageSettings();
  masks["AO"] = "1";
  masks["DO"] = "true";  // is not 1
  save(masks);
  EXPECT_TRUE(g_OverlayInfo.anonymizedStreamWidth == 640 && g_OverlayInfo.overlayStreamWidth == 0);
}

TEST_F(Requests, TheDocumentHoldsAllSettingsInOrder) {
  save(pageSettings());
  std::string expected =
      "<app><Sensitivity>0.50</Sensitivity><PatientOutOfBed_Active>1</PatientOutOfBed_Active>"
      "<FallenPersons_Active>0</FallenPersons_Active><ShowCalibrationMarkers>1</ShowCalibrationMarkers>"
      "<DetectionOverlaysOn>1</DetectionOverlaysOn><AnonOverlaysOn>0</AnonOverlaysOn>"
      "<SelectedDetectionOverlay>1280x720</SelectedDetectionOverlay><SelectedAnonOverlay>640x360</SelectedAnonOverlay>"
      "<CamsResAsCsv>640x360,1280x720,</CamsResAsCsv>";
  const auto add = [&expected](const std::string& name, const std::string& value) {
    expected.append("<").append(name).append(">").append(value).append("</").append(name).append(">");
  };
  for (const std::string kind : {"Detection", "Exclusion"}) {
    for (int n = 1; n <= 3; ++n) {
      for (int i = 0; i < 8; ++i) {
        const int size = i % 2 == 0 ? 1280 : 720;
        const int sent = percentSent(n, i) + (kind == "Exclusion" ? 1 : 0);
        add(kind + std::to_string(n) + "_" + std::to_string(i), std::to_string(sent * size / 100 * 100 / size));
      }
      add(kind + std::to_string(n) + "_Active", n == 2 ? "1" : "0");
    }
  }
  const char* shares[] = {"0.374219", "0.529167", "0.519531", "0.529167",
                          "0.530469", "0.820833", "0.300781", "0.820833"};
  for (int i = 0; i < 8; ++i) add("FallCalibration_" + std::to_string(i), shares[i]);
  EXPECT_EQ(ask("get_all_parameters"), kXml + expected + "<HRectM>2.00</HRectM><WRectM>1.50</WRectM></app>");
}

TEST_F(Requests, NumbersAreConvertedWithoutSurprises) {
  const float inf = std::numeric_limits<float>::infinity();
  const int most = std::numeric_limits<int>::max();
  for (const auto& [sent, pixels] : {std::pair{"33", 422}, {" -5x", -64}, {"abc", 0}, {"99999999999", most}}) {
    saveWith("AOI1_X1", sent);
    EXPECT_EQ(g_DetectionParams.i_Detection1[0], pixels) << sent;
    if (pixels == 422) {
      EXPECT_EQ(shown("Detection1_0"), "32") << "both conversions truncate";
    }
  }
  for (const auto& [sent, pixels] : {std::pair{"0.5", 640}, {"0.7", 896}, {"nan", 0}, {"-1e300", -536870912}}) {
    saveWith("XR", sent);
    EXPECT_EQ(g_DetectionParams.i_FallCalibration[0], pixels) << sent;
  }
  for (const auto& [sent, value, text] :
       {std::tuple{"12.5", 12.5F, "12.5"}, {"0.05", 0.05F, "0.05"}, {"1e999", inf, "inf"}, {"-1e300", -inf, "-inf"}}) {
    saveWith("SN", sent);
    EXPECT_EQ(g_CalibrationParams.f_Sensitivity, value) << sent;
    EXPECT_EQ(shown("Sensitivity"), text);
  }
}

TEST_F(Requests, AMissingKeyEndsTheUpdateWhereItStands) {
  save(pageSettings());
  Query changed = pageSettings();
  changed["SN"] = "0.25";
  changed["AOI1_X1"] = "50";
  changed["YM"] = "4";
  const auto saveWithout = [&](const std::string& key) {
    Query query = changed;
    query.erase(key);
    save(query);
  };
  saveWithout("SDO");
  EXPECT_EQ(g_CalibrationParams.f_Sensitivity, 0.25F) << "what stands before is applied";
  EXPECT_EQ(g_ParameterController.load_calibration().f_Sensitivity, 0.5F) << "and not stored";
  for (const auto& [key, value] : changed) {
    g_StatusCode = 200;
    saveWithout(key);
    EXPECT_EQ(g_StatusCode, 400) << key;
    EXPECT_EQ(g_DetectionParams.f_HRectM, 2) << key << " comes before";
  }
  EXPECT_TRUE(logged("error:  Exception from set_all_parameters trying to set parameters."));
  EXPECT_EQ(g_DetectionParams.i_Detection1[0], 640);
  EXPECT_EQ(g_ParameterController.load_calibration().f_Sensitivity, 0.25F);
  EXPECT_EQ(g_ParameterController.load_detection_params().i_Detection1[0], 128);
}

TEST_F(Requests, AFloorThatCannotBeCalibratedIsLoggedAndStored) {
  saveWith("XM", "0");
  EXPECT_TRUE(logged("error: Failed Calibration"));
  EXPECT_EQ(g_StatusCode, 200);
  EXPECT_EQ(g_ParameterController.load_detection_params().f_WRectM, 0);
}

TEST_F(Requests, ALensThatCannotBeAskedLosesNoSetting) {
  const scripted::Lens away("Failed to get property");
  saveWith("XM", "2.5");
  EXPECT_TRUE(logged("error: Failed Calibration"));
  EXPECT_EQ(g_StatusCode, 400);
  EXPECT_EQ(g_ParameterController.load_detection_params().f_WRectM, 2.5F);
}

TEST_F(Requests, PercentSignsPassTheFormatterUnevaluated) {
  for (const auto& [text, read] : {std::pair{"100%%", "100%"}, {"%s%n%m", "%s%n%m"}, {"%%%d%", "%%d%"}}) {
    saveWith("SDO", text);
    EXPECT_EQ(shown("SelectedDetectionOverlay"), read);
    EXPECT_EQ(g_ParameterController.load_calibration().str_DetectionOverlay, text);
  }
}

TEST_F(Requests, NoInputDoesHarm) {
  const std::string values[] = {"",
                                "\x01\x02\x7f\r\n\t",
                                "%s%n%s%n",
                                "</app><script>\"'&",
                                "\xff\xfe",
                                std::string(4096, 'x'),
                                std::string(4097, '9')};
  for (const char* key : {"SN", "SDO", "AOI3_ON", "EX2_Y4", "YY", "XM"}) {
    for (const std::string& value : values) {
      g_StatusCode = 200;
      saveWith(key, value);
      const bool isText = value.size() <= 4096 && value[0] != '\xff';
      EXPECT_EQ(g_StatusCode, isText ? 200 : 400) << key << " " << value.substr(0, 40);
      const std::string text = ask("get_all_parameters");
      EXPECT_TRUE(text.starts_with(kXml + "<app><Sensitivity>") && text.ends_with("</WRectM></app>"));
      EXPECT_EQ(ask(value, pageSettings()), "") << "nor is it an action";
    }
    save(pageSettings());
    parameter_controller next;
    next.init_controller("velmor_care");
    EXPECT_EQ(next.load_calibration().str_DetectionOverlay, "1280x720") << "the store goes on working after " << key;
    EXPECT_EQ(next.load_detection_params().f_HRectM, 2) << key;
  }
}

}  // namespace
