#include "config/parameter_controller.h"

#include <syslog.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <tuple>
#include <type_traits>
#include <vector>

#include "app/process_state.h"

namespace {

constexpr int kCorners = 4;

/// For messages: the text of an error that the store may not have given.
const char* messageOf(const GError* error) { return error == nullptr ? "(null)" : error->message; }

const char* textOf(const gchar* text) { return text == nullptr ? "(null)" : text; }

/// Decimal text to int; what was written as unsigned comes back to the same int.
int toInt(const gchar* text) { return text == nullptr ? 0 : static_cast<int>(std::strtol(text, nullptr, 10)); }

/// One parameter, or the coordinates of a polygon: its member's type says how the texts of the store are read.
template <typename Params, typename Value>
struct Parameter {
  const char* name;
  Value Params::*member;
  int added = 0;  ///< place in the order in which missing ones are added at start; 0: the package declares it
};
template <typename Params, typename Value>
Parameter(const char*, Value Params::*) -> Parameter<Params, Value>;
template <typename Params, typename Value>
Parameter(const char*, Value Params::*, int) -> Parameter<Params, Value>;

/// The picture's rotation is read before this place.
constexpr int kFirstAfterRotation = 4;

// Every parameter, in the order in which those of a structure are loaded and saved.
constexpr std::tuple kCalibration{
    Parameter{"Sensitivity", &_CalibrationParams::f_Sensitivity, 1},
    Parameter{"MaxDisappeared", &_CalibrationParams::i_MaxDisappeared, 3},
    Parameter{"DetectionOverlaysOn", &_CalibrationParams::b_DetectionOverlaysOn, 15},
    Parameter{"AnonOverlaysOn", &_CalibrationParams::b_AnonOverlaysOn, 16},
    Parameter{"ShowCalibrationMarkers", &_CalibrationParams::b_ShowCalibrationMarkers, 19},
    Parameter{"SelectedDetectionOverlay", &_CalibrationParams::str_DetectionOverlay, 17},
    Parameter{"SelectedAnonOverlay", &_CalibrationParams::str_AnonOverlay, 18},
};
constexpr std::tuple kInitial{
    Parameter{"LandscapeModelFileName", &_InitialParams::s_LandscapeModelFileName},
    Parameter{"PortraitModelFileName", &_InitialParams::s_PortraitModelFileName},
    Parameter{"LarodChipType", &_InitialParams::l_LarodChipType, 2},
    Parameter{"mobilenetModelFileName", &_InitialParams::s_mobilenetModelFileName, 20},
    Parameter{"mobilenetModelWidth", &_InitialParams::i_mobilenetModelWidth, 21},
    Parameter{"mobilenetModelHeight", &_InitialParams::i_mobilenetModelHeight, 22},
};
constexpr std::tuple kDetection{
    Parameter{"Detection1", &_DetectionParams::i_Detection1},
    Parameter{"Detection2", &_DetectionParams::i_Detection2},
    Parameter{"Detection3", &_DetectionParams::i_Detection3},
    Parameter{"Detection1Active", &_DetectionParams::b_Detection1Active},
    Parameter{"Detection2Active", &_DetectionParams::b_Detection2Active},
    Parameter{"Detection3Active", &_DetectionParams::b_Detection3Active},
    Parameter{"DetectPatientOutOfBed", &_DetectionParams::b_DetectPatientOutOfBed, kFirstAfterRotation},
    Parameter{"DetectFallenPersons", &_DetectionParams::b_DetectFallenPersons, 5},
    Parameter{"Exclusion1Active", &_DetectionParams::b_Exclusion1Active, 6},
    Parameter{"Exclusion2Active", &_DetectionParams::b_Exclusion2Active, 7},
    Parameter{"Exclusion3Active", &_DetectionParams::b_Exclusion3Active, 8},
    Parameter{"Exclusion1", &_DetectionParams::i_Exclusion1, 9},
    Parameter{"Exclusion2", &_DetectionParams::i_Exclusion2, 10},
    Parameter{"Exclusion3", &_DetectionParams::i_Exclusion3, 11},
    Parameter{"FallCalibration", &_DetectionParams::i_FallCalibration, 12},
    Parameter{"HRectM", &_DetectionParams::f_HRectM, 13},
    Parameter{"WRectM", &_DetectionParams::f_WRectM, 14},
};
constexpr std::tuple kFloor{Parameter{"FeetOnFloor", &_FloorParams::b_FeetOnFloor, 23}};

/// The names in the store: that of the parameter, or for the corners of "Detection1" those from "Detection10x" and
/// "Detection10y" to "Detection13y".
template <typename Params, typename Value>
std::vector<std::string> namesOf(const Parameter<Params, Value>& parameter) {
  if constexpr (!std::is_array_v<Value>) {
    return {parameter.name};
  }
  std::vector<std::string> names;
  for (int corner = 0; corner < kCorners; ++corner) {
    for (const char* axis : {"x", "y"}) {
      names.push_back(parameter.name + std::to_string(corner) + axis);
    }
  }
  return names;
}

/// The names of the parameters that the program adds, by their place.
std::map<int, std::vector<std::string>> addedParameters() {
  std::map<int, std::vector<std::string>> added;
  std::apply([&](const auto&... parameter) { ((added[parameter.added] = namesOf(parameter)), ...); },
             std::tuple_cat(kCalibration, kInitial, kDetection, kFloor));
  added.erase(0);
  return added;
}

void get(parameter_controller& store, const std::string& name, bool& value) {
  value = store.get_boolean_parameter(name);
}
void get(parameter_controller& store, const std::string& name, int& value) { value = store.get_gint_parameter(name); }
void get(parameter_controller& store, const std::string& name, unsigned int& value) {
  value = static_cast<unsigned int>(store.get_gint_parameter(name));
}
void get(parameter_controller& store, const std::string& name, float& value) {
  value = store.get_gfloat_parameter(name);
}
void get(parameter_controller& store, const std::string& name, std::string& value) {
  value = store.get_string_parameter(name);
}
void get(parameter_controller& store, const std::string& name, larodChip& value) {
  value = store.get_larodchiptype_parameter(name);
}

void set(parameter_controller& store, const std::string& name, bool value) { store.set_boolean_parameter(name, value); }
void set(parameter_controller& store, const std::string& name, int value) {
  store.set_guint_parameter(name, static_cast<unsigned int>(value));
}
void set(parameter_controller& store, const std::string& name, float value) { store.set_gfloat_parameter(name, value); }
void set(parameter_controller& store, const std::string& name, const std::string& value) {
  store.set_string_parameter(name, value);
}

/// Calls `use(name, value)` with each name in the store and its place in the structure.
template <typename Table, typename Params, typename Use>
void forEach(const Table& table, Params& params, Use use) {
  const auto useOne = [&](const auto& parameter) {
    auto& value = params.*parameter.member;
    const std::vector<std::string> names = namesOf(parameter);
    for (std::size_t i = 0; i < names.size(); ++i) {
      if constexpr (std::is_array_v<std::remove_reference_t<decltype(value)>>) {
        use(names[i], value[i]);
      } else {
        use(names[i], value);
      }
    }
  };
  std::apply([&](const auto&... parameter) { (useOne(parameter), ...); }, table);
}

template <typename Params, typename Table>
Params load(parameter_controller& store, const Table& table) {
  Params params;
  forEach(table, params, [&](const std::string& name, auto& value) { get(store, name, value); });
  return params;
}

template <typename Table, typename Params>
void save(parameter_controller& store, const Table& table, const Params& params) {
  forEach(table, params, [&](const std::string& name, const auto& value) { set(store, name, value); });
}

std::string storedText(bool value) { return value ? "true" : "false"; }
std::string storedText(const std::string& value) { return value; }
std::string storedText(float value) {
  constexpr int kAllDigits = std::numeric_limits<float>::max_digits10;
  char text[32];
  std::snprintf(text, sizeof text, "%.*g", kAllDigits, static_cast<double>(value));
  return text;
}
template <typename Whole>
std::string storedText(Whole value) {
  return std::to_string(static_cast<long>(value));
}

}  // namespace

void parameter_controller::init_controller(const std::string& appName) {
  m_Parameter.reset(ax_parameter_new(appName.c_str(), nullptr));
  if (!m_Parameter) {
    syslog(LOG_EMERG, "%s: Error Initializng Parameter of %s", "init_controller", appName.c_str());
  }
  for (const auto& [place, names] : addedParameters()) {
    if (place == kFirstAfterRotation) {
      m_rotation = find_rotation_parameter("Rotation");
    }
    for (const std::string& name : names) {
      add_parameter(name);
    }
  }
}

_CalibrationParams parameter_controller::load_calibration() { return load<_CalibrationParams>(*this, kCalibration); }

_InitialParams parameter_controller::load_initial_params() { return load<_InitialParams>(*this, kInitial); }

_DetectionParams parameter_controller::load_detection_params() { return load<_DetectionParams>(*this, kDetection); }

_FloorParams parameter_controller::load_floor_params() { return load<_FloorParams>(*this, kFloor); }

int parameter_controller::save_calibration(const _CalibrationParams& params) {
  save(*this, kCalibration, params);
  return 1;
}

int parameter_controller::save_detection(const _DetectionParams& params) {
  save(*this, kDetection, params);
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

std::map<std::string, std::string> textsOf(const _CalibrationParams& calibration, const _InitialParams& initial,
                                           const _DetectionParams& detection, const _FloorParams& floor) {
  std::map<std::string, std::string> settings;
  const auto note = [&settings](const std::string& name, const auto& value) { settings[name] = storedText(value); };
  forEach(kCalibration, calibration, note);
  forEach(kInitial, initial, note);
  forEach(kDetection, detection, note);
  forEach(kFloor, floor, note);
  return settings;
}
