// The settings and the status on the wire: what the web page sends and reads.
#pragma once

#include <gio/gio.h>

#include <string>

/// A table maps query keys to texts. On the wire areas are whole percents of the analysis picture and floor points
/// fractions of it; inside the program both are its pixels.
class parameter_io {
 public:
  parameter_io() = delete;

  /// The value of a key; throws std::invalid_argument when there is none, or none that the store could hold: not UTF-8,
  /// or longer than 4096 bytes.
  static std::string get_string(GHashTable* table, const std::string& key);
  /// What the text begins with as a decimal number, else 0; the nearest int of one that is out of range. Throws as
  /// get_string does.
  static int get_int(GHashTable* table, const std::string& key);
  /// The same as a float, infinity beyond the largest.
  static float get_float(GHashTable* table, const std::string& key);
  /// True exactly for "1".
  static bool get_bool(GHashTable* table, const std::string& key);

  /// Applies and stores a whole set of settings; 0. A missing key throws std::invalid_argument: what came before it is
  /// applied then, in part not stored. Values are not checked; a floor that cannot be calibrated is logged and stored,
  /// and so is everything when the lens cannot be asked, before what that throws goes on.
  static int set_parameters(GHashTable* table);
  /// Writes all settings as XML. Texts are not escaped, and a pair of percent signs in one comes out as one.
  static int get_parameters(GDataOutputStream* stream);

  // Write their value as text; 0.
  static int get_status_code(GDataOutputStream* stream);
  static int get_status_string(GDataOutputStream* stream);
  static int get_execution_time(GDataOutputStream* stream);
  static int get_is_portrait(GDataOutputStream* stream);

  /// Writes by the rules of printf.
  static void output_to_front_end(GDataOutputStream* stream, const char* format, ...) G_GNUC_PRINTF(2, 3);

  /// Copy the polygons of g_DetectionParams and their switches into g_AreaofInterest.
  static void store_points_into_AOI();
  static void store_points_into_exclusions();
  /// The text for a status code: 200 is "AI".
  static std::string status_to_string(int code);
  /// The sizes of the camera's streams, "640x360,1280x720,".
  static std::string CameraResolutionsAsCsv();
};
