// Takes settings that have been loaded or changed into use, wherever they act but in the areas.
#pragma once

#include "geometry/perspective_transform.h"

/// Choose the overlay and the anonymised stream; none where it is switched off.
void select_streams();
/// Sizes the calibration stakes and switches them on or off.
void show_stakes();
/// The four floor points in the order that the calibration takes them in.
Quad floor_quad();
/// Calibrates the floor; false after a log line when that is impossible. Throws std::runtime_error when the lens cannot
/// be asked.
bool calibrate_floor();
