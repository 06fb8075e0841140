// A network by plain loops, one number after the other: slow, and nothing to get wrong.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/workstation/inference/engine/engine.h"

/// The outputs' maps, channel first. Knows the layers of the pose network; throws what planOf does.
std::vector<std::vector<float>> runPlainly(const workstation::NetworkTask& task, const std::uint8_t* picture);
