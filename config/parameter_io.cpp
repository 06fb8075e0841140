#include "config/parameter_io.h"

#include "analysis/area_of_interest.h"
#include "app/detection_params.h"
#include "app/status_text.h"

namespace {

/// The first four corners.
t_Polygon polygonOf(const int* c) { return {{c[0], c[1]}, {c[2], c[3]}, {c[4], c[5]}, {c[6], c[7]}}; }

}  // namespace

void parameter_io::store_points_into_AOI() {
  g_AreaofInterest.set_detection(1, polygonOf(g_DetectionParams.i_Detection1));
  g_AreaofInterest.set_detection_active(1, g_DetectionParams.b_Detection1Active);
  g_AreaofInterest.set_detection(2, polygonOf(g_DetectionParams.i_Detection2));
  g_AreaofInterest.set_detection_active(2, g_DetectionParams.b_Detection2Active);
  g_AreaofInterest.set_detection(3, polygonOf(g_DetectionParams.i_Detection3));
  g_AreaofInterest.set_detection_active(3, g_DetectionParams.b_Detection3Active);
}

void parameter_io::store_points_into_exclusions() {
  g_AreaofInterest.set_exclusion_active(1, g_DetectionParams.b_Exclusion1Active);
  g_AreaofInterest.set_exclusion(1, polygonOf(g_DetectionParams.i_Exclusion1));
  g_AreaofInterest.set_exclusion_active(2, g_DetectionParams.b_Exclusion2Active);
  g_AreaofInterest.set_exclusion(2, polygonOf(g_DetectionParams.i_Exclusion2));
  g_AreaofInterest.set_exclusion_active(3, g_DetectionParams.b_Exclusion3Active);
  g_AreaofInterest.set_exclusion(3, polygonOf(g_DetectionParams.i_Exclusion3));
}

std::string parameter_io::status_to_string(int code) { return statusText(code); }
