#include "trace/person_record.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <opencv2/core/types.hpp>
#include <string>

#include "analysis/FindingsHistory.h"
#include "analysis/area_of_interest.h"
#include "app/floor_params.h"
#include "app/process_state.h"
#include "geometry/distance_controller.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr int kAreas = 3;

double distance(double dx, double dy) { return std::sqrt(dx * dx + dy * dy); }

double distanceToEdge(const t_XYPoint& point, const t_XYPoint& from, const t_XYPoint& to) {
  const double ex = to.first - from.first;
  const double ey = to.second - from.second;
  const double px = point.first - from.first;
  const double py = point.second - from.second;
  const double length2 = ex * ex + ey * ey;
  const double along = length2 > 0 ? std::clamp((px * ex + py * ey) / length2, 0.0, 1.0) : 0.0;
  return distance(px - along * ex, py - along * ey);
}

/// How far the point lies from the outline, negative inside, and from which edge.
Json areaRecord(const char* kind, int area, const t_XYPoint& point, const t_Polygon& outline) {
  double nearest = 0;
  std::size_t edge = 0;
  for (std::size_t i = 0; i < outline.size(); ++i) {
    const double apart = distanceToEdge(point, outline[i], outline[(i + 1) % outline.size()]);
    if (edge == 0 || apart < nearest) {
      nearest = apart;
      edge = i + 1;
    }
  }
  const bool inside = g_AreaofInterest.is_winding_number_nonzero(point, outline);
  const double tenths = std::round(nearest * 10) / 10;
  return {{"kind", kind}, {"area", area}, {"distance", inside ? -tenths : tenths}, {"edge", edge}};
}

Json areaRecords(const t_XYPoint& point) {
  Json areas = Json::array();
  for (int area = 1; area <= kAreas; ++area) {
    if (g_AreaofInterest.get_detection_active(area)) {
      areas.push_back(areaRecord("bed", area, point, g_AreaofInterest.get_detection(area)));
    }
  }
  for (int area = 1; area <= kAreas; ++area) {
    if (g_AreaofInterest.get_exclusion_active(area)) {
      areas.push_back(areaRecord("exclusion", area, point, g_AreaofInterest.get_exclusion(area)));
    }
  }
  return areas;
}

int exclusionAt(const t_XYPoint& point) {
  for (int area = 1; area <= kAreas; ++area) {
    if (g_AreaofInterest.get_exclusion_active(area) &&
        g_AreaofInterest.is_winding_number_nonzero(point, g_AreaofInterest.get_exclusion(area))) {
      return area;
    }
  }
  return 0;
}

const char* nameOf(Activity activity) {
  static constexpr std::array kNames{"unknown", "standing", "sitting", "lying", "fallen"};
  return kNames[static_cast<std::size_t>(activity)];
}

const char* nameOf(FallVeto veto) {
  static constexpr std::array kNames{"none",     "bed",     "exclusion", "unknown",
                                     "standing", "sitting", "near edge", "moving"};
  return kNames[static_cast<std::size_t>(veto)];
}

/// Pixels that a metre upright on the person's feet takes.
float metreAt(const Finding& finding) {
  const cv::Point2f feet(static_cast<float>(finding.averageInferior.x), static_cast<float>(finding.averageInferior.y));
  cv::Point3f above = g_DistanceController.screen_point_to_world_floor(feet);
  above.z = -1.0F;
  const cv::Point2f top = g_DistanceController.world_to_screen_point(above);
  return static_cast<float>(distance(top.x - feet.x, top.y - feet.y));
}

void addFooting(const Finding& finding, Json& record) {
  const t_XYPoint place(finding.centroid);
  record["footing"] = finding.footing == Footings::bed         ? "bed"
                      : finding.footing == Footings::exclusion ? "exclusion"
                                                               : "floor";
  if (finding.footing == Footings::bed) record["area"] = bedAt(place);
  if (finding.footing == Footings::exclusion) record["area"] = exclusionAt(place);
  record["areas"] = areaRecords(place);
}

void addPosture(const Finding& finding, Json& record) {
  if (finding.hasValidAverageInferior) record["feet"] = pointOf(finding.averageInferior);
  if (finding.hasValidExpectedInferior) record["floor_feet"] = pointOf(finding.expectedInferior);
  if (finding.hasValidAverageSuperior) record["shoulders"] = pointOf(finding.averageSuperior);
  if (finding.hasValidExpectedSuperior) {
    const double dx = static_cast<double>(finding.expectedSuperior.x) - finding.averageSuperior.x;
    const double dy = static_cast<double>(finding.expectedSuperior.y) - finding.averageSuperior.y;
    record["upright"] = pointOf(finding.expectedSuperior);
    record["off"] = numberOf(static_cast<float>(distance(dx, dy)));
    record["limit"] = numberOf(finding.getExpectedSuperiorAreaRadius());
    record["metre"] = numberOf(metreAt(finding));
  }
  float ratio = 0.0F;
  if (finding.getTorsoToLegsRatio(ratio)) {
    record["torso_to_legs"] = numberOf(ratio);
    record["torso_to_legs_limit"] = numberOf(one_find::minTorsoToLegsRatio);
  }
  if (finding.hasValidAverageNormalFactorVelocity) {
    const FPoint& movement = finding.averageNormalFactorVelocity;
    record["movement"] = numberOf(static_cast<float>(distance(movement.x, movement.y)));
    record["movement_limit"] = numberOf(kVelocityThreshold);
  }
}

/// For how many findings in a row nothing speaks against a fall, and what speaks against it in the one before.
void addFall(const Findings& findings, Json& record) {
  std::size_t lying = 0;
  FallVeto veto = FallVeto::none;
  for (auto finding = findings.rbegin(); finding != findings.rend(); ++finding, ++lying) {
    veto = whatRulesOutFall(*finding);
    if (veto != FallVeto::none) break;
  }
  record["lying_for"] = lying;
  record["needed"] = findings.size() / 2;
  if (veto != FallVeto::none) record["against"] = {{"rule", nameOf(veto)}, {"back", lying}};
}

}  // namespace

Json numberOf(float value) {
  if (!std::isfinite(value)) return nullptr;
  std::array<char, 32> text{};
  std::to_chars(text.data(), text.data() + text.size() - 1, value);
  return std::strtod(text.data(), nullptr);
}

Json pointOf(const Point& point) { return Json::array({point.x, point.y}); }

int bedAt(const t_one_centroid& point) {
  for (int area = 1; area <= kAreas; ++area) {
    if (g_AreaofInterest.is_detected(area, point)) return area;
  }
  return 0;
}

Json personRecord(const Findings& findings, std::size_t depth) {
  const Finding& newest = findings.back();
  const BoundingBox& box = newest.skeleton.boundingBox;
  Json record = {{"id", newest.id}};
  record["place"] = {newest.centroid.first, newest.centroid.second};
  record["box"] = {box.topLeft.x, box.topLeft.y, box.bottomRight.x, box.bottomRight.y};
  addFooting(newest, record);
  record["findings"] = findings.size();
  record["depth"] = depth;
  if (findings.size() + 1 < depth) return record;
  addPosture(newest, record);
  record["near_edge"] = newest.skeleton.isNearEdge(g_StreamWidth, g_StreamHeight);
  record["activity"] = nameOf(newest.activity);
  addFall(findings, record);
  return record;
}
