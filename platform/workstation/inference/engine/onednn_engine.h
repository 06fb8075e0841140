// Networks run by oneDNN in 32-bit floats, in whatever layout of memory is fastest on this processor.
#pragma once

#include <memory>

#include "platform/workstation/inference/engine/engine.h"

namespace workstation {

/// Throws Unsupported when the network, or this processor, is none for it.
std::unique_ptr<Engine> makeOneDnnEngine(const NetworkTask& task);

}  // namespace workstation
