// Which engine runs a network: oneDNN where it can be trusted with it, in short numbers where they can, else OpenCV.
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

/// The same for ours in short numbers, each value of which is a little off. An output's error is the root of its
/// differences' mean square, as a share of its values' deviation from the mean of their channel; that of all outputs,
/// their errors' quadratic mean, is 0.25 at most in short floats and 0.85 in bytes. Finds faults and ranges of other
/// pictures; how well people are found it cannot say.
void checkLikeness(const std::vector<std::string>& outputs, const std::vector<Maps>& ours,
                   const std::vector<Maps>& theirs, Precision precision);

/// Runs the network once on each engine, on a picture with something everywhere. When they do not agree, or oneDNN does
/// not know a layer or is slow on this processor, the task's precision gives way to 32-bit floats, and these to OpenCV,
/// and a notice says why; `name` is the network's there. Throws what OpenCV does: UnusableNetwork, or std::exception
/// when it cannot run. See AskedTask for `file`.
std::unique_ptr<Engine> chooseEngine(const std::string& name, const NetworkTask& whole, std::string file = {});

}  // namespace workstation
