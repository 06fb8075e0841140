#include "analysis/area_of_interest.h"

namespace {

/// The one of three fields that an id from 1 to 3 names; nullptr for any other id.
template <typename Field>
Field* fieldOf(int id, Field& first, Field& second, Field& third) {
  switch (id) {
    case 1:
      return &first;
    case 2:
      return &second;
    case 3:
      return &third;
    default:
      return nullptr;
  }
}

template <typename Field>
bool assign(Field* field, Field value) {
  if (field == nullptr) {
    return false;
  }
  std::swap(*field, value);
  return true;
}

}  // namespace

bool area_of_interest::set_detection(int id, t_Polygon points) {
  return assign(fieldOf(id, m_Detection1, m_Detection2, m_Detection3), std::move(points));
}

bool area_of_interest::set_detection_active(int id, bool active) {
  return assign(fieldOf(id, m_Detection1Active, m_Detection2Active, m_Detection3Active), active);
}

bool area_of_interest::set_exclusion(int id, t_Polygon points) {
  return assign(fieldOf(id, m_Exclusion1, m_Exclusion2, m_Exclusion3), std::move(points));
}

bool area_of_interest::set_exclusion_active(int id, bool active) {
  return assign(fieldOf(id, m_Exclusion1Active, m_Exclusion2Active, m_Exclusion3Active), active);
}

t_Polygon area_of_interest::get_detection(int id) const {
  const t_Polygon* polygon = fieldOf(id, m_Detection1, m_Detection2, m_Detection3);
  return polygon == nullptr ? t_Polygon{} : *polygon;
}

t_Polygon area_of_interest::get_exclusion(int id) const {
  const t_Polygon* polygon = fieldOf(id, m_Exclusion1, m_Exclusion2, m_Exclusion3);
  return polygon == nullptr ? t_Polygon{} : *polygon;
}

bool area_of_interest::get_detection_active(int id) const {
  const bool* active = fieldOf(id, m_Detection1Active, m_Detection2Active, m_Detection3Active);
  return active == nullptr || *active;
}

bool area_of_interest::get_exclusion_active(int id) const {
  const bool* active = fieldOf(id, m_Exclusion1Active, m_Exclusion2Active, m_Exclusion3Active);
  return active == nullptr || *active;
}

bool area_of_interest::is_detected(int id, t_XYPoint p) const {
  const t_Polygon* polygon = fieldOf(id, m_Detection1, m_Detection2, m_Detection3);
  return polygon != nullptr && get_detection_active(id) && is_winding_number_nonzero(p, *polygon);
}

bool area_of_interest::is_excluded(t_XYPoint p) const {
  const bool b_IsExcluded1 = is_winding_number_nonzero(p, m_Exclusion1);
  const bool b_IsExcluded2 = is_winding_number_nonzero(p, m_Exclusion2);
  const bool b_IsExcluded3 = is_winding_number_nonzero(p, m_Exclusion3);
  return (b_IsExcluded1 && m_Exclusion1Active) || (b_IsExcluded2 && m_Exclusion2Active) ||
         (b_IsExcluded3 && m_Exclusion3Active);
}

bool area_of_interest::is_winding_number_nonzero(t_XYPoint p, const t_Polygon& poly) const {
  if (poly.empty()) {
    return false;
  }
  // Double precision: a stored coordinate may be any int, and those of a picture stay exact.
  const auto [px, py] = std::pair<double, double>(p);
  int i_WindingNumber = 0;
  t_XYPoint previous = poly.back();
  for (const t_XYPoint& current : poly) {
    // Positive when p lies to the left of the edge from previous to current.
    const double cross = (previous.first - px) * (current.second - py) - (previous.second - py) * (current.first - px);
    if (previous.second <= py) {
      if (current.second > py && cross > 0) {
        ++i_WindingNumber;
      }
    } else if (current.second <= py && cross < 0) {
      --i_WindingNumber;
    }
    previous = current;
  }
  return i_WindingNumber == 1 || i_WindingNumber == -1;
}
