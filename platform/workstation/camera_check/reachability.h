// Whether anybody answers at a camera's address.
#pragma once

#include <chrono>
#include <string>

#include "platform/workstation/camera_check/trial.h"

namespace workstation {

struct Reach {
  TrialEnd end = TrialEnd::kFits;  ///< kFits: somebody answers
  std::string reason;
  std::string fingerprint;  ///< of a certificate that is not believed
};

/// Connects to the host and port of an rtsp, rtsps, http or https URI, with TLS where that belongs to it, and says
/// nothing. Any other URI counts as reached. With a fingerprint the camera must show that certificate, else one that
/// the system believes.
Reach reach(const std::string& uri, const std::string& certificate, std::chrono::seconds patience);

}  // namespace workstation
