// The settings in the camera's parameter store.
#pragma once

#include <axparameter.h>

#include <map>
#include <memory>
#include <string>

#include "app/calibration_params.h"
#include "app/detection_params.h"
#include "app/floor_params.h"
#include "app/initial_params.h"
#include "platform/support/owners.h"

/// Everything is text in the store: a bool is "true" or "false", an int decimal, a float has six decimals. Failures are
/// logged, never thrown; after one the store is closed, and every later operation fails too: reads then give 0, false
/// or an empty string.
class parameter_controller {
 public:
  /// Opens the application's group, adds its parameters where they are missing, and reads the picture's rotation.
  void init_controller(const std::string& appName);

  _CalibrationParams load_calibration();
  _InitialParams load_initial_params();
  _DetectionParams load_detection_params();
  _FloorParams load_floor_params();
  /// Writes every field; always 1.
  int save_calibration(const _CalibrationParams& params);
  int save_detection(const _DetectionParams& params);

  /// Degrees (0, 90, 180, 270) by which the camera is mounted, as read by init_controller.
  int get_rotation() const { return m_rotation; }
  /// The camera model, "AXIS Q1656"; empty when it cannot be read.
  std::string findProdShortName();
  /// The picture's rotation from the platform's parameters, 0 when it cannot be read. The argument is ignored.
  int find_rotation_parameter(const std::string& name);

  /// Negative values come back from get_gint_parameter as they were.
  void set_guint_parameter(const std::string& name, unsigned int value);
  void set_gfloat_parameter(const std::string& name, float value);
  void set_boolean_parameter(const std::string& name, bool value);
  void set_string_parameter(const std::string& name, const std::string& value);
  int get_gint_parameter(const std::string& name);
  float get_gfloat_parameter(const std::string& name);
  /// True exactly for the text "true".
  bool get_boolean_parameter(const std::string& name);
  std::string get_string_parameter(const std::string& name);
  larodChip get_larodchiptype_parameter(const std::string& name);

  /// Adds a parameter with the value "0"; one that exists already stays as it is.
  void add_parameter(const std::string& name);
  /// Writes the names of all parameters of the group to the system log.
  void list_params();
  /// For diagnostics: a change callback that writes the new value to the system log.
  static void parameter_changed(const gchar* name, const gchar* value, gpointer data);

 private:
  struct StoreDeleter {
    void operator()(AXParameter* parameter) const { ax_parameter_free(parameter); }
  };
  using Error = GLibPtr<GError>;
  using Text = GLibPtr<gchar>;

  /// The stored text; empty, with the error if there is one, when it cannot be read.
  Text read(const std::string& name, Error& error);
  /// The same with developer mode's log line. A failed read closes the store.
  Text readLogged(const std::string& name, Error& error);
  /// A failed write closes the store.
  bool write(const std::string& name, const std::string& value);
  /// One of the platform's own parameters; a failure is logged in the name of `function`.
  Text readPlatform(const char* name, const char* function);

  std::unique_ptr<AXParameter, StoreDeleter> m_Parameter;
  int m_rotation = 0;
};

extern parameter_controller g_ParameterController;

/// Every setting by its name in the store, as a text that gives the same value when it is read.
std::map<std::string, std::string> textsOf(const _CalibrationParams& calibration, const _InitialParams& initial,
                                           const _DetectionParams& detection, const _FloorParams& floor);
