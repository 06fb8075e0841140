// One finding of a tracked person as a trace tells it: the numbers that decided.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>

#include "app/finding.h"

/// The double that has the float's shortest text: "0.38" and not "0.3799999952316284"; reading it as a float gives the
/// same bits. Null for what is no number.
nlohmann::ordered_json numberOf(float value);
nlohmann::ordered_json pointOf(const Point& point);

/// The newest of a person's findings, of which at most `depth` are kept.
nlohmann::ordered_json personRecord(const Findings& findings, std::size_t depth);

/// The bed area in use that the point lies in, 1 to 3, the first of several; 0 for none.
int bedAt(const t_one_centroid& point);
