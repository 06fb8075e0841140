// A video service whose pictures and failures a scenario chooses.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/scripted/faults.h"

namespace scripted {

struct Camera {
  std::vector<uint8_t> frame;                                        ///< NV12; what every buffer holds
  Faults faults;                                                     ///< "vdo_stream_get_buffer": no frame comes
  std::map<std::string, unsigned> settings;                          ///< of the last stream created
  std::vector<std::vector<std::pair<unsigned, unsigned>>> channels;  ///< stream sizes of each
  int buffers_taken = 0;
  int buffers_returned = 0;
  int live_streams = 0;
};

/// The one camera of the process; assign {} to begin anew.
Camera& camera();

}  // namespace scripted
