// What the inference service knows of a model's last run beyond its C interface.
#pragma once

#include <larod.h>

#include <string>
#include <vector>

namespace workstation {

/// A line for each layer of the network whose values are not all finite: bytes made of them can't tell. The model has
/// run on a picture at least once.
std::vector<std::string> layersNotFinite(const larodModel& model);

}  // namespace workstation
