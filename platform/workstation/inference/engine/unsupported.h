// Why a network, or this processor, is none for the fast engine.
#pragma once

#include <stdexcept>

namespace workstation {

/// One clause that goes on after "runs on OpenCV alone: ".
struct Unsupported : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace workstation
