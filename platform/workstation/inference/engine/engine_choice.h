// Which engine runs a network: oneDNN where it can be trusted with it, else OpenCV.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/workstation/inference/engine/engine.h"

namespace workstation {

/// Throws Unsupported, naming the output, unless two engines made the same of a picture: the same shapes, values that
/// differ by a thousandth of the output's largest at most, and what is not finite at the same places.
void checkAgreement(const std::vector<std::string>& outputs, const std::vector<Maps>& ours,
                    const std::vector<Maps>& theirs);

/// Runs the network once on each engine, on a picture with something everywhere. When they do not agree, or oneDNN does
/// not know a layer or is slow on this processor, it is OpenCV, and a notice says why; `name` is the network's there.
/// Throws what OpenCV does: UnusableNetwork, or std::exception when it cannot run.
std::unique_ptr<Engine> chooseEngine(const std::string& name, const NetworkTask& task);

}  // namespace workstation
