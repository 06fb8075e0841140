// Networks run by oneDNN, in whatever layout of memory is fastest on this processor.
#pragma once

#include <memory>

#include "platform/workstation/inference/engine/engine.h"

namespace workstation {

/// Whether oneDNN is faster than OpenCV here: on x86 with AVX2. Elsewhere, as on arm64, it runs its slow kernels.
bool isFastProcessor();

/// Whether the processor itself multiplies such numbers: any with AVX2 does bytes, few do short floats.
bool multiplies(Precision precision);

/// Throws Unsupported when there is something in the network that it does not know, or the ranges for bytes are not
/// those of its tensors.
std::unique_ptr<Engine> makeOneDnnEngine(const NetworkTask& task);

/// The memory in which all these engines run; their next run takes it again.
void giveBackOneDnnWorkspace();

}  // namespace workstation
