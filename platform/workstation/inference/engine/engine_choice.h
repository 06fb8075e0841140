// Which engine runs a network: oneDNN where it can be trusted with it, else OpenCV.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/workstation/inference/engine/engine.h"

namespace workstation {

struct ChosenEngine {
  std::unique_ptr<Engine> engine;
  std::vector<Maps> trial;  ///< what it makes of the trial picture, until it runs again
};

/// Runs the network once on each engine, on a picture with something everywhere. When they do not agree, or oneDNN does
/// not know a layer, it is OpenCV, and a line in the system log says why; `name` is the network's there. Throws what
/// OpenCV does: UnusableNetwork, or std::exception when it cannot run.
ChosenEngine chooseEngine(const std::string& name, const NetworkTask& task);

}  // namespace workstation
