// A whole set of settings as the page sends it.
#pragma once

#include <map>
#include <string>

using Query = std::map<std::string, std::string>;

/// "AOI1_X1", the area's element 0, to "AOI1_Y4", element 7.
inline std::string cornerKey(const std::string& area, int element) {
  return area + "_" + "XY"[element % 2] + std::to_string(element / 2 + 1);
}

/// What is sent for an element of bed area n, in percent; one more for the exclusion area.
inline int percentSent(int n, int element) { return 10 * n + 3 * element; }

/// The floor is the package's default; the second areas are active.
inline Query pageSettings() {
  Query query{{"SN", "0.5"},       {"POB_ON", "1"},      {"FP_ON", "0"},  {"DO", "1"},    {"AO", "0"},
              {"SDO", "1280x720"}, {"SAO", "640x360"},   {"SCM", "1"},    {"XM", "1.5"},  {"YM", "2"},
              {"XR", "0.3745"},    {"YR", "0.5295"},     {"XG", "0.52"},  {"YG", "0.53"}, {"XB", "0.531"},
              {"YB", "0.8215"},    {"XY", "0.30117188"}, {"YY", "0.8215"}};
  for (int n = 1; n <= 3; ++n) {
    const std::string number = std::to_string(n);
    for (const std::string& area : {"AOI" + number, "EX" + number}) {
      query[area + "_ON"] = n == 2 ? "1" : "0";
      for (int i = 0; i < 8; ++i) query[cornerKey(area, i)] = std::to_string(percentSent(n, i) + (area[0] == 'E'));
    }
  }
  return query;
}
