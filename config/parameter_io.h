// Moves settings between their structures and the parts of the program that use them.
#pragma once

#include <string>

class parameter_io {
 public:
  parameter_io() = delete;

  /// Copy the polygons of g_DetectionParams and their switches into g_AreaofInterest.
  static void store_points_into_AOI();
  static void store_points_into_exclusions();
  /// The text for a status code: 200 is "AI".
  static std::string status_to_string(int code);
};
