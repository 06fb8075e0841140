// Networks run by oneDNN in 32-bit floats, in whatever layout of memory is fastest on this processor.
#pragma once

#include <memory>

#include "platform/workstation/inference/engine/engine.h"

namespace workstation {

/// Whether oneDNN is faster than OpenCV here: on x86 with AVX2. Elsewhere, as on arm64, it runs its slow kernels.
bool isFastProcessor();

/// Throws Unsupported when there is something in the network that it does not know.
std::unique_ptr<Engine> makeOneDnnEngine(const NetworkTask& task);

}  // namespace workstation
