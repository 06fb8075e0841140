#include "config/parameter_io.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <limits>
#include <memory>
#include <stdexcept>

#include "analysis/area_of_interest.h"
#include "app/calibration_params.h"
#include "app/detection_params.h"
#include "app/process_state.h"
#include "app/status.h"
#include "app/truncate.h"
#include "config/apply_settings.h"
#include "config/parameter_controller.h"
#include "overlay/overlay_manager.h"
#include "platform/support/owners.h"

namespace {

constexpr int kCoordinates = 8;             // of four corners
constexpr std::size_t kLongestText = 4096;  // bytes of a value

/// The first four corners.
t_Polygon polygonOf(const int* c) { return {{c[0], c[1]}, {c[2], c[3]}, {c[4], c[5]}, {c[6], c[7]}}; }

/// Pixels of a corner from percents and back; a value that no int holds becomes the nearest.
int nearestInt(std::int64_t value) {
  return static_cast<int>(
      std::clamp<std::int64_t>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}
int toPixels(int percent, int size) { return nearestInt(std::int64_t{percent} * size / 100); }
int toPercent(int pixels, int size) { return nearestInt(std::int64_t{pixels} * 100 / size); }

/// The picture's size along the axis of a coordinate: x in even elements, y in odd ones.
int sizeAlong(int element) { return element % 2 == 0 ? g_StreamWidth : g_StreamHeight; }

struct Area {
  int* corners;  ///< x1, y1 .. x4, y4
  bool* active;
};

std::array<Area, 3> bedAreas() {
  return {Area{g_DetectionParams.i_Detection1, &g_DetectionParams.b_Detection1Active},
          Area{g_DetectionParams.i_Detection2, &g_DetectionParams.b_Detection2Active},
          Area{g_DetectionParams.i_Detection3, &g_DetectionParams.b_Detection3Active}};
}

std::array<Area, 3> exclusionAreas() {
  return {Area{g_DetectionParams.i_Exclusion1, &g_DetectionParams.b_Exclusion1Active},
          Area{g_DetectionParams.i_Exclusion2, &g_DetectionParams.b_Exclusion2Active},
          Area{g_DetectionParams.i_Exclusion3, &g_DetectionParams.b_Exclusion3Active}};
}

/// Keys "AOI1_X1", "AOI1_Y1" .. "AOI1_Y4", "AOI1_ON", then those of the second and third area.
void readAreas(GHashTable* table, const std::string& prefix, const std::array<Area, 3>& areas) {
  for (std::size_t n = 0; n < areas.size(); ++n) {
    const std::string key = prefix + std::to_string(n + 1) + "_";
    for (int element = 0; element < kCoordinates; ++element) {
      const int percent = parameter_io::get_int(table, key + "XY"[element % 2] + std::to_string(element / 2 + 1));
      areas[n].corners[element] = toPixels(percent, sizeAlong(element));
    }
    *areas[n].active = parameter_io::get_bool(table, key + "ON");
  }
}

void readGeneralSettings(GHashTable* table) {
  g_CalibrationParams.f_Sensitivity = parameter_io::get_float(table, "SN");
  g_DetectionParams.b_DetectPatientOutOfBed = parameter_io::get_bool(table, "POB_ON");
  g_DetectionParams.b_DetectFallenPersons = parameter_io::get_bool(table, "FP_ON");
  g_CalibrationParams.b_DetectionOverlaysOn = parameter_io::get_bool(table, "DO");
  g_CalibrationParams.b_AnonOverlaysOn = parameter_io::get_bool(table, "AO");
  g_CalibrationParams.str_DetectionOverlay = parameter_io::get_string(table, "SDO");
  g_CalibrationParams.str_AnonOverlay = parameter_io::get_string(table, "SAO");
  g_CalibrationParams.b_ShowCalibrationMarkers = parameter_io::get_bool(table, "SCM");
}

void readFloor(GHashTable* table) {
  const char* const keys[kCoordinates] = {"XR", "YR", "XG", "YG", "XB", "YB", "XY", "YY"};
  for (int element = 0; element < kCoordinates; ++element) {
    const float pixels = parameter_io::get_float(table, keys[element]) * static_cast<float>(sizeAlong(element));
    g_DetectionParams.i_FallCalibration[element] = truncateToInt(pixels);
  }
  g_DetectionParams.f_WRectM = parameter_io::get_float(table, "XM");
  g_DetectionParams.f_HRectM = parameter_io::get_float(table, "YM");
}

std::string element(const std::string& name, const std::string& content) {
  return "<" + name + ">" + content + "</" + name + ">";
}

std::string element(const std::string& name, bool value) { return element(name, std::string(value ? "1" : "0")); }

/// Six decimals, of which the first four characters are shown.
std::string shortNumber(float value) { return std::to_string(value).substr(0, 4); }

/// "<Detection1_0>12</Detection1_0>" .. "<Detection1_7>", "<Detection1_Active>", then the other two areas.
std::string areaElements(const std::string& prefix, const std::array<Area, 3>& areas) {
  std::string text;
  for (std::size_t n = 0; n < areas.size(); ++n) {
    const std::string name = prefix + std::to_string(n + 1) + "_";
    for (int i = 0; i < kCoordinates; ++i) {
      text += element(name + std::to_string(i), std::to_string(toPercent(areas[n].corners[i], sizeAlong(i))));
    }
    text += element(name + "Active", *areas[n].active);
  }
  return text;
}

std::string floorElements() {
  std::string text;
  for (int i = 0; i < kCoordinates; ++i) {
    const float share = static_cast<float>(g_DetectionParams.i_FallCalibration[i]) / static_cast<float>(sizeAlong(i));
    text += element("FallCalibration_" + std::to_string(i), std::to_string(share));
  }
  return text + element("HRectM", shortNumber(g_DetectionParams.f_HRectM)) +
         element("WRectM", shortNumber(g_DetectionParams.f_WRectM));
}

/// The document goes through the formatter as its own format: a pair of percent signs becomes one, and a conversion,
/// for which there is no argument, stays as it stands.
std::string formatted(const std::string& document) {
  std::string text;
  for (std::size_t i = 0; i < document.size(); ++i) {
    text += document[i];
    if (document.compare(i, 2, "%%") == 0) ++i;
  }
  return text;
}

}  // namespace

std::string parameter_io::get_string(GHashTable* table, const std::string& key) {
  const auto* value = static_cast<const char*>(table == nullptr ? nullptr : g_hash_table_lookup(table, key.c_str()));
  if (value == nullptr) {
    throw std::invalid_argument("there is no " + key);
  }
  std::string text = value;
  // The store would refuse these, and stay closed for what comes after.
  if (text.size() > kLongestText || g_utf8_validate(value, -1, nullptr) == FALSE) {
    throw std::invalid_argument(key + " is no text of up to " + std::to_string(kLongestText) + " bytes in UTF-8");
  }
  return text;
}

int parameter_io::get_int(GHashTable* table, const std::string& key) {
  return nearestInt(std::strtol(get_string(table, key).c_str(), nullptr, 10));
}

float parameter_io::get_float(GHashTable* table, const std::string& key) {
  const double value = std::strtod(get_string(table, key).c_str(), nullptr);
  if (std::abs(value) > static_cast<double>(std::numeric_limits<float>::max())) {
    return value > 0 ? std::numeric_limits<float>::infinity() : -std::numeric_limits<float>::infinity();
  }
  return static_cast<float>(value);
}

bool parameter_io::get_bool(GHashTable* table, const std::string& key) { return get_string(table, key) == "1"; }

int parameter_io::set_parameters(GHashTable* table) {
  readGeneralSettings(table);
  select_streams();
  g_ParameterController.save_calibration(g_CalibrationParams);
  readAreas(table, "AOI", bedAreas());
  store_points_into_AOI();
  readAreas(table, "EX", exclusionAreas());
  store_points_into_exclusions();
  readFloor(table);
  show_stakes();
  std::exception_ptr problem;
  bool calibrated = false;
  try {
    calibrated = calibrate_floor();
  } catch (...) {
    problem = std::current_exception();  // told when everything is stored
  }
  if (!calibrated) {
    syslog(LOG_ERR, "Failed Calibration");
  }
  g_ParameterController.save_detection(g_DetectionParams);
  if (problem) {
    std::rethrow_exception(problem);
  }
  return 0;
}

int parameter_io::get_parameters(GDataOutputStream* stream) {
  const _CalibrationParams& calibration = g_CalibrationParams;
  const _DetectionParams& detection = g_DetectionParams;
  const std::string document =
      element("app", element("Sensitivity", shortNumber(calibration.f_Sensitivity)) +
                         element("PatientOutOfBed_Active", detection.b_DetectPatientOutOfBed) +
                         element("FallenPersons_Active", detection.b_DetectFallenPersons) +
                         element("ShowCalibrationMarkers", calibration.b_ShowCalibrationMarkers) +
                         element("DetectionOverlaysOn", calibration.b_DetectionOverlaysOn) +
                         element("AnonOverlaysOn", calibration.b_AnonOverlaysOn) +
                         element("SelectedDetectionOverlay", calibration.str_DetectionOverlay) +
                         element("SelectedAnonOverlay", calibration.str_AnonOverlay) +
                         element("CamsResAsCsv", CameraResolutionsAsCsv()) + areaElements("Detection", bedAreas()) +
                         areaElements("Exclusion", exclusionAreas()) + floorElements());
  output_to_front_end(stream, "%s", formatted(document).c_str());
  return 0;
}

int parameter_io::get_status_code(GDataOutputStream* stream) {
  output_to_front_end(stream, "%d", g_StatusCode);
  return 0;
}

int parameter_io::get_status_string(GDataOutputStream* stream) {
  output_to_front_end(stream, "%s", status_to_string(g_StatusCode).c_str());
  return 0;
}

int parameter_io::get_execution_time(GDataOutputStream* stream) {
  output_to_front_end(stream, "%d", g_ExecutionTime);
  return 0;
}

int parameter_io::get_is_portrait(GDataOutputStream* stream) {
  output_to_front_end(stream, "%d", g_IsPortrait ? 1 : 0);
  return 0;
}

void parameter_io::output_to_front_end(GDataOutputStream* stream, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const GLibPtr<gchar> text(g_strdup_vprintf(format, arguments));
  va_end(arguments);
  g_data_output_stream_put_string(stream, text.get(), nullptr, nullptr);
}

void parameter_io::store_points_into_AOI() {
  int number = 0;
  for (const Area& bed : bedAreas()) {
    g_AreaofInterest.set_detection(++number, polygonOf(bed.corners));
    g_AreaofInterest.set_detection_active(number, *bed.active);
  }
}

void parameter_io::store_points_into_exclusions() {
  int number = 0;
  for (const Area& exclusion : exclusionAreas()) {
    g_AreaofInterest.set_exclusion_active(++number, *exclusion.active);
    g_AreaofInterest.set_exclusion(number, polygonOf(exclusion.corners));
  }
}

std::string parameter_io::status_to_string(int code) { return statusText(code); }

std::string parameter_io::CameraResolutionsAsCsv() { return OverlayManager::getCamerasResolutionsAsCsv(); }
