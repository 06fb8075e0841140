#include "platform/workstation/requests/save_request.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace workstation {
namespace {

using Names = std::pair<const char*, const char*>;  ///< of the store, and of the request

constexpr Names kSwitches[] = {{"DetectPatientOutOfBed", "POB_ON"},
                               {"DetectFallenPersons", "FP_ON"},
                               {"DetectionOverlaysOn", "DO"},
                               {"AnonOverlaysOn", "AO"},
                               {"ShowCalibrationMarkers", "SCM"}};
constexpr Names kTexts[] = {{"Sensitivity", "SN"},
                            {"SelectedDetectionOverlay", "SDO"},
                            {"SelectedAnonOverlay", "SAO"},
                            {"WRectM", "XM"},
                            {"HRectM", "YM"}};
constexpr Names kAreas[] = {{"Detection", "AOI"}, {"Exclusion", "EX"}};
constexpr const char* kFloor = "FallCalibration";
constexpr char kColours[] = {'R', 'G', 'B', 'Y'};
constexpr int kCorners = 4;

std::string textOf(const Parameters& values, const std::string& name) {
  const auto found = values.find(name);
  return found == values.end() ? "" : found->second;
}

/// A pixel of the analysis picture: the package's limits keep it small.
int pixelOf(const Parameters& values, const std::string& name) {
  return static_cast<int>(std::strtod(textOf(values, name).c_str(), nullptr));
}

/// As the program makes pixels of it.
int pixelOfPercent(int percent, int length) { return percent * length / 100; }

int nearestPercent(int pixel, int length) {
  const int below = static_cast<int>(std::int64_t{pixel} * 100 / length);
  const auto off = [&](int percent) { return std::abs(pixelOfPercent(percent, length) - pixel); };
  return off(below) <= off(below + 1) ? below : below + 1;
}

/// Calls use(corner, "x", 'X') and use(corner, "y", 'Y') for each corner.
template <typename Use>
void forEachCoordinate(Use use) {
  for (int corner = 0; corner < kCorners; ++corner) {
    use(corner, "x", 'X');
    use(corner, "y", 'Y');
  }
}

/// Calls use(name in the store, key in the request) for each of the six areas.
template <typename Use>
void forEachArea(Use use) {
  for (const auto& [name, key] : kAreas) {
    for (const char* number : {"1", "2", "3"}) use(std::string(name) + number, std::string(key) + number);
  }
}

/// The names of all parameters that a save carries.
template <typename Use>
void forEachSaved(Use use) {
  for (const auto& [name, key] : kSwitches) use(std::string(name));
  for (const auto& [name, key] : kTexts) use(std::string(name));
  const auto corners = [&](const std::string& of) {
    forEachCoordinate([&](int corner, const char* axis, char) { use(of + std::to_string(corner) + axis); });
  };
  forEachArea([&](const std::string& name, const std::string&) {
    use(name + "Active");
    corners(name);
  });
  corners(kFloor);
}

struct Corner {
  double x;
  double y;
};

/// Twice the area of the triangle, positive or negative by its sense.
double turn(const Corner& a, const Corner& b, const Corner& c) {
  return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

}  // namespace

bool isSaved(const std::string& name) {
  bool is_saved = false;
  forEachSaved([&](const std::string& one) { is_saved = is_saved || one == name; });
  return is_saved;
}

HttpQuery saveRequestOf(const Parameters& values, StreamSize picture) {
  HttpQuery request{{"action", "set_all_parameters"}};
  const auto is_on = [&](const std::string& name) { return textOf(values, name) == "true" ? "1" : "0"; };
  const auto length = [&](char axis) { return static_cast<int>(axis == 'X' ? picture.width : picture.height); };
  for (const auto& [name, key] : kSwitches) request[key] = is_on(name);
  for (const auto& [name, key] : kTexts) request[key] = textOf(values, name);
  forEachArea([&](const std::string& name, const std::string& key) {
    request[key + "_ON"] = is_on(name + "Active");
    forEachCoordinate([&](int corner, const char* side, char axis) {
      const int pixel = pixelOf(values, name + std::to_string(corner) + side);
      request[key + "_" + axis + std::to_string(corner + 1)] = std::to_string(nearestPercent(pixel, length(axis)));
    });
  });
  forEachCoordinate([&](int corner, const char* side, char axis) {
    // The middle of the pixel: whatever becomes of the fraction's last digit, cutting it off gives the pixel.
    const double middle = pixelOf(values, kFloor + std::to_string(corner) + side) + 0.5;
    request[std::string{axis, kColours[corner]}] = std::to_string(middle / length(axis));
  });
  return request;
}

std::string floorProblem(const Parameters& values) {
  std::array<Corner, kCorners> corners{};
  for (int i = 0; i < kCorners; ++i) {
    const std::string name = kFloor + std::to_string(i);
    corners.at(static_cast<std::size_t>(i)) = {static_cast<double>(pixelOf(values, name + "x")),
                                               static_cast<double>(pixelOf(values, name + "y"))};
  }
  const auto& [red, green, blue, yellow] = corners;
  const std::array turns{turn(red, green, blue), turn(green, blue, yellow), turn(blue, yellow, red),
                         turn(yellow, red, green)};
  const bool is_convex = std::all_of(turns.begin(), turns.end(), [](double one) { return one > 0; }) ||
                         std::all_of(turns.begin(), turns.end(), [](double one) { return one < 0; });
  // The program's own test, which some rectangles fail, too.
  const double determinant = red.x * (yellow.y - green.y) - yellow.x * (red.y - green.y) + blue.x * (red.y - yellow.y);
  if (is_convex && std::abs(determinant) >= 1) return "";
  return "FallCalibration0x .. FallCalibration3y: the four points cannot be a rectangle on the floor";
}

}  // namespace workstation
