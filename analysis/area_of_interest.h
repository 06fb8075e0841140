// The installer's polygons in the analysis picture: bed areas and areas whose persons are ignored.
#pragma once

#include <utility>
#include <vector>

/// first = x, second = y, pixels.
using t_XYPoint = std::pair<int, int>;
/// Vertices in drawing order, either way round; the last one joins the first.
using t_Polygon = std::vector<t_XYPoint>;

/// Three detection (bed) and three exclusion polygons with ids 1 to 3. Bed area 1 starts active, all others inactive.
class area_of_interest {
 public:
  void init() {}

  /// Replaces a polygon or its switch; false, without a change, for an id outside 1 to 3.
  bool set_detection(int id, t_Polygon points);
  bool set_detection_active(int id, bool active);
  bool set_exclusion(int id, t_Polygon points);
  bool set_exclusion_active(int id, bool active);

  /// A copy; empty for an id outside 1 to 3.
  t_Polygon get_detection(int id) const;
  t_Polygon get_exclusion(int id) const;
  /// True for an id outside 1 to 3.
  bool get_detection_active(int id) const;
  bool get_exclusion_active(int id) const;

  /// Whether the point lies in that bed area and the area is active.
  bool is_detected(int id, t_XYPoint p) const;
  /// Whether the point lies in any active exclusion area.
  bool is_excluded(t_XYPoint p) const;
  /// Whether the polygon winds exactly once around the point, either way; a region wound twice is outside. Of the
  /// boundary, lower left edges belong to the inside (D. Sunday, Inclusion of a Point in a Polygon, 2001).
  bool is_winding_number_nonzero(t_XYPoint p, const t_Polygon& poly) const;

 private:
  t_Polygon m_Detection1;
  t_Polygon m_Detection2;
  t_Polygon m_Detection3;
  bool m_Detection1Active = true;
  bool m_Detection2Active = false;
  bool m_Detection3Active = false;
  t_Polygon m_Exclusion1;
  t_Polygon m_Exclusion2;
  t_Polygon m_Exclusion3;
  bool m_Exclusion1Active = false;
  bool m_Exclusion2Active = false;
  bool m_Exclusion3Active = false;
};

extern area_of_interest g_AreaofInterest;
