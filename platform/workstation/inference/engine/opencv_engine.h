// Networks run by OpenCV, which knows nearly every layer there is.
#pragma once

#include <memory>
#include <stdexcept>

#include "platform/workstation/inference/engine/engine.h"

namespace workstation {

/// A clause that goes on after the network's name and a colon.
struct UnusableNetwork : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Throws UnusableNetwork when OpenCV cannot read the network or it has not these outputs.
std::unique_ptr<Engine> makeOpenCvEngine(const NetworkTask& task);

}  // namespace workstation
