// An inference service whose models, outputs and failures a scenario chooses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "platform/scripted/faults.h"

namespace scripted {

struct Inference {
  using Outputs = std::vector<std::vector<uint8_t>>;  ///< one element an output tensor

  std::function<void(const std::string&)> on_load;  ///< told the name of each model that is loaded
  std::vector<std::vector<std::size_t>> inputs;     ///< dimensions of the tensors of the models loaded from now on
  std::vector<std::vector<std::size_t>> outputs;
  Outputs output_bytes;              ///< what a job writes
  std::deque<Outputs> next_outputs;  ///< what the next jobs write instead
  Faults faults;                     ///< "larodRunJob"
  std::vector<uint8_t> last_input;   ///< the input file at the last job
  int live_handles = 0;              ///< connections, models, tensor arrays and requests
};

/// The one inference service of the process; assign {} to begin anew.
Inference& inference();

}  // namespace scripted
