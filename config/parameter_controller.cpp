#include "config/parameter_controller.h"

#include <syslog.h>

#include <cstdlib>
#include <cstring>

#include "app/process_state.h"

namespace {

constexpr int kCorners = 4;

/// For messages: the text of an error that the store may not have given.
const char* messageOf(const GError* error) { return error == nullptr ? "(null)" : error->message; }

const char* textOf(const gchar* text) { return text == nullptr ? "(null)" : text; }

/// Decimal text to int; what was written as unsigned comes back to the same int.
int toInt(const gchar* text) { return text == nullptr ? 0 : static_cast<int>(std::strtol(text, nullptr, 10)); }

/// Calls `use(name, element)` for a polygon's coordinates: corner by corner, x before y; "Detection1" gives
/// "Detection10x" with element 0 to "Detection13y" with element 7.
template <typename Array, typename Use>
void forEachCoordinate(const std::string& polygon, Array& coordinates, Use use) {
  for (int corner = 0; corner < kCorners; ++corner) {
    const std::string name = polygon + std::to_string(corner);
    use(name + "x", coordinates[2 * corner]);
    use(name + "y", coordinates[2 * corner + 1]);
  }
}

}  // namespace

void parameter_controller::init_controller(const std::string& appName) {
  m_Parameter.reset(ax_parameter_new(appName.c_str(), nullptr));
  if (!m_Parameter) {
    syslog(LOG_EMERG, "%s: Error Initializng Parameter of %s", "init_controller", appName.c_str());
  }
  for (const char* name : {"Sensitivity", "LarodChipType", "MaxDisappeared"}) {
    add_parameter(name);
  }
  m_rotation = find_rotation_parameter("Rotation");
  add_detection_parameters();
}

void parameter_controller::add_detection_parameters() {
  for (const char* name :
       {"DetectPatientOutOfBed", "DetectFallenPersons", "Exclusion1Active", "Exclusion2Active", "Exclusion3Active"}) {
    add_parameter(name);
  }
  const int elements[2 * kCorners] = {};
  for (const char* polygon : {"Exclusion1", "Exclusion2", "Exclusion3", "FallCalibration"}) {
    forEachCoordinate(polygon, elements, [this](const std::string& name, int) { add_parameter(name); });
  }
  for (const char* name : {"HRectM", "WRectM", "DetectionOverlaysOn", "AnonOverlaysOn", "SelectedDetectionOverlay",
                           "SelectedAnonOverlay", "ShowCalibrationMarkers", "mobilenetModelFileName",
                           "mobilenetModelWidth", "mobilenetModelHeight", "FeetOnFloor"}) {
    add_parameter(name);
  }
}

_CalibrationParams parameter_controller::load_calibration() {
  _CalibrationParams params;
  params.f_Sensitivity = get_gfloat_parameter("Sensitivity");
  params.i_MaxDisappeared = get_gint_parameter("MaxDisappeared");
  params.b_DetectionOverlaysOn = get_boolean_parameter("DetectionOverlaysOn");
  params.b_AnonOverlaysOn = get_boolean_parameter("AnonOverlaysOn");
  params.b_ShowCalibrationMarkers = get_boolean_parameter("ShowCalibrationMarkers");
  params.str_DetectionOverlay = get_string_parameter("SelectedDetectionOverlay");
  params.str_AnonOverlay = get_string_parameter("SelectedAnonOverlay");
  return params;
}

_InitialParams parameter_controller::load_initial_params() {
  _InitialParams params;
  params.s_LandscapeModelFileName = get_string_parameter("LandscapeModelFileName");
  params.s_PortraitModelFileName = get_string_parameter("PortraitModelFileName");
  params.l_LarodChipType = get_larodchiptype_parameter("LarodChipType");
  params.s_mobilenetModelFileName = get_string_parameter("mobilenetModelFileName");
  params.i_mobilenetModelWidth = static_cast<unsigned int>(get_gint_parameter("mobilenetModelWidth"));
  params.i_mobilenetModelHeight = static_cast<unsigned int>(get_gint_parameter("mobilenetModelHeight"));
  return params;
}

_DetectionParams parameter_controller::load_detection_params() {
  _DetectionParams params;
  const auto load = [this](const std::string& name, int& element) { element = get_gint_parameter(name); };
  forEachCoordinate("Detection1", params.i_Detection1, load);
  forEachCoordinate("Detection2", params.i_Detection2, load);
  forEachCoordinate("Detection3", params.i_Detection3, load);
  params.b_Detection1Active = get_boolean_parameter("Detection1Active");
  params.b_Detection2Active = get_boolean_parameter("Detection2Active");
  params.b_Detection3Active = get_boolean_parameter("Detection3Active");
  params.b_DetectPatientOutOfBed = get_boolean_parameter("DetectPatientOutOfBed");
  params.b_DetectFallenPersons = get_boolean_parameter("DetectFallenPersons");
  params.b_Exclusion1Active = get_boolean_parameter("Exclusion1Active");
  params.b_Exclusion2Active = get_boolean_parameter("Exclusion2Active");
  params.b_Exclusion3Active = get_boolean_parameter("Exclusion3Active");
  forEachCoordinate("Exclusion1", params.i_Exclusion1, load);
  forEachCoordinate("Exclusion2", params.i_Exclusion2, load);
  forEachCoordinate("Exclusion3", params.i_Exclusion3, load);
  forEachCoordinate("FallCalibration", params.i_FallCalibration, load);
  params.f_HRectM = get_gfloat_parameter("HRectM");
  params.f_WRectM = get_gfloat_parameter("WRectM");
  return params;
}

_FloorParams parameter_controller::load_floor_params() {
  _FloorParams params;
  params.b_FeetOnFloor = get_boolean_parameter("FeetOnFloor");
  return params;
}

int parameter_controller::save_calibration(const _CalibrationParams& params) {
  set_gfloat_parameter("Sensitivity", params.f_Sensitivity);
  set_guint_parameter("MaxDisappeared", static_cast<unsigned int>(params.i_MaxDisappeared));
  set_boolean_parameter("DetectionOverlaysOn", params.b_DetectionOverlaysOn);
  set_boolean_parameter("AnonOverlaysOn", params.b_AnonOverlaysOn);
  set_boolean_parameter("ShowCalibrationMarkers", params.b_ShowCalibrationMarkers);
  set_string_parameter("SelectedDetectionOverlay", params.str_DetectionOverlay);
  set_string_parameter("SelectedAnonOverlay", params.str_AnonOverlay);
  return 1;
}

int parameter_controller::save_detection(const _DetectionParams& params) {
  const auto save = [this](const std::string& name, int element) {
    set_guint_parameter(name, static_cast<unsigned int>(element));
  };
  forEachCoordinate("Detection1", params.i_Detection1, save);
  forEachCoordinate("Detection2", params.i_Detection2, save);
  forEachCoordinate("Detection3", params.i_Detection3, save);
  set_boolean_parameter("Detection1Active", params.b_Detection1Active);
  set_boolean_parameter("Detection2Active", params.b_Detection2Active);
  set_boolean_parameter("Detection3Active", params.b_Detection3Active);
  set_boolean_parameter("DetectPatientOutOfBed", params.b_DetectPatientOutOfBed);
  set_boolean_parameter("DetectFallenPersons", params.b_DetectFallenPersons);
  set_boolean_parameter("Exclusion1Active", params.b_Exclusion1Active);
  set_boolean_parameter("Exclusion2Active", params.b_Exclusion2Active);
  set_boolean_parameter("Exclusion3Active", params.b_Exclusion3Active);
  forEachCoordinate("Exclusion1", params.i_Exclusion1, save);
  forEachCoordinate("Exclusion2", params.i_Exclusion2, save);
  forEachCoordinate("Exclusion3", params.i_Exclusion3, save);
  forEachCoordinate("FallCalibration", params.i_FallCalibration, save);
  set_gfloat_parameter("HRectM", params.f_HRectM);
  set_gfloat_parameter("WRectM", params.f_WRectM);
  return 1;
}

std::string parameter_controller::findProdShortName() {
  const char* function = "findProdShortName";
  const Text value = readPlatform("root.Brand.ProdShortName", function);
  syslog(LOG_INFO, "%s: The value of root.Brand.ProdShortName is %s", function, textOf(value.get()));
  if (!value) {
    syslog(LOG_ERR, "%s: Unknown ProdShortName value", function);
  }
  std::string name = value ? value.get() : "";
  syslog(LOG_INFO, "%s: About to return ProdShortName: %s", function, name.c_str());
  return name;
}

int parameter_controller::find_rotation_parameter(const std::string& /*name*/) {
  const char* function = "find_rotation_parameter";
  const Text value = readPlatform("root.Image.I0.Appearance.Rotation", function);
  syslog(LOG_INFO, "%s: The value of rotation is %s", function, textOf(value.get()));
  if (!value) {
    syslog(LOG_ERR, "%s: Unknown rotation value", function);
    return 0;
  }
  const int rotation = toInt(value.get());
  syslog(LOG_INFO, "%s: About to return rotation number: %d", function, rotation);
  return rotation;
}

void parameter_controller::set_guint_parameter(const std::string& name, unsigned int value) {
  if (!write(name, std::to_string(value))) {
    syslog(LOG_EMERG, "%s: Failed to save %s", "set_guint_parameter", name.c_str());
  }
}

void parameter_controller::set_gfloat_parameter(const std::string& name, float value) {
  const char* function = "set_gfloat_parameter";
  const std::string text = std::to_string(value);
  if (!write(name, text)) {
    syslog(LOG_EMERG, "%s: Failed to save %s", function, name.c_str());
  } else if (g_IsDevMode) {
    syslog(LOG_INFO, "%s: %s saved with %s", function, name.c_str(), text.c_str());
  }
}

void parameter_controller::set_boolean_parameter(const std::string& name, bool value) {
  const char* function = "set_boolean_parameter";
  const char* text = value ? "true" : "false";
  if (!write(name, text)) {
    syslog(LOG_EMERG, "%s Failed to save %s", function, name.c_str());
  } else if (g_IsDevMode) {
    syslog(LOG_INFO, "%s: %s saved with %s", function, name.c_str(), text);
  }
}

void parameter_controller::set_string_parameter(const std::string& name, const std::string& value) {
  if (!write(name, value)) {
    syslog(LOG_EMERG, "%s: Failed to save %s", "set_string_parameter", name.c_str());
  }
}

int parameter_controller::get_gint_parameter(const std::string& name) {
  Error error;
  const Text value = readLogged(name, error);
  if (!value) {
    syslog(LOG_EMERG, "%s: failed to load %s -> %s", "get_gint_parameter", name.c_str(), messageOf(error.get()));
  }
  return toInt(value.get());
}

float parameter_controller::get_gfloat_parameter(const std::string& name) {
  Error error;
  const Text value = readLogged(name, error);
  if (!value) {
    syslog(LOG_EMERG, "%s: Failed to get %s", "get_gfloat_parameter", name.c_str());
    return 0.0F;
  }
  return static_cast<float>(std::strtod(value.get(), nullptr));
}

bool parameter_controller::get_boolean_parameter(const std::string& name) {
  Error error;
  const Text value = readLogged(name, error);
  if (!value) {
    syslog(LOG_EMERG, "%s: Failed to get %s", "get_boolean_parameter", name.c_str());
    return false;
  }
  return std::strcmp(value.get(), "true") == 0;
}

std::string parameter_controller::get_string_parameter(const std::string& name) {
  Error error;
  const Text value = readLogged(name, error);
  if (!value) {
    syslog(LOG_EMERG, "%s: Failed to get %s", "get_string_parameter", textOf(value.get()));
    return {};
  }
  return value.get();
}

larodChip parameter_controller::get_larodchiptype_parameter(const std::string& name) {
  Error error;
  const Text value = readLogged(name, error);
  if (!value) {
    syslog(LOG_EMERG, "%s: failed to load %s", "get_larodchiptype_parameter", name.c_str());
  }
  return static_cast<larodChip>(toInt(value.get()));
}

void parameter_controller::add_parameter(const std::string& name) {
  GError* rawError = nullptr;
  if (m_Parameter && ax_parameter_add(m_Parameter.get(), name.c_str(), "0", nullptr, &rawError) != FALSE) {
    return;
  }
  const Error error(rawError);
  if (error && error->code == AX_PARAMETER_PARAM_EXISTS_ERROR) {
    return;
  }
  syslog(LOG_ERR, "%s: Failed to add parameter %s. Error: %s", "add_parameter", name.c_str(), messageOf(error.get()));
  m_Parameter.reset();
}

void parameter_controller::list_params() {
  if (!m_Parameter) {
    return;
  }
  GList* names = ax_parameter_list(m_Parameter.get(), nullptr);
  for (const GList* entry = names; entry != nullptr; entry = entry->next) {
    syslog(LOG_INFO, "%s: Parameter in list: \"%s\"", "list_params", static_cast<const char*>(entry->data));
  }
  g_list_free_full(names, g_free);
}

void parameter_controller::parameter_changed(const gchar* name, const gchar* value, gpointer /*data*/) {
  syslog(LOG_INFO, "%s has changed to %s.", name, value);
}

parameter_controller::Text parameter_controller::read(const std::string& name, Error& error) {
  gchar* value = nullptr;
  GError* rawError = nullptr;
  const bool read = m_Parameter && ax_parameter_get(m_Parameter.get(), name.c_str(), &value, &rawError) != FALSE;
  error.reset(rawError);
  return Text(read ? value : nullptr);
}

parameter_controller::Text parameter_controller::readPlatform(const char* name, const char* function) {
  Error error;
  Text value = read(name, error);
  if (!value) {
    syslog(LOG_INFO, "%s: ERROR ax_parameter_get %s", function, messageOf(error.get()));
  }
  return value;
}

parameter_controller::Text parameter_controller::readLogged(const std::string& name, Error& error) {
  Text value = read(name, error);
  if (!value) {
    m_Parameter.reset();
  } else if (g_IsDevMode) {
    syslog(LOG_INFO, "Retrieving %s: %s.", name.c_str(), value.get());
  }
  return value;
}

bool parameter_controller::write(const std::string& name, const std::string& value) {
  const bool written =
      m_Parameter && ax_parameter_set(m_Parameter.get(), name.c_str(), value.c_str(), TRUE, nullptr) != FALSE;
  if (!written) {
    m_Parameter.reset();
  }
  return written;
}
