// An inference service whose models, outputs and failures a test chooses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct FakeLarod {
  std::vector<std::vector<std::size_t>> inputs;  ///< dimensions of the model's tensors
  std::vector<std::vector<std::size_t>> outputs;
  std::vector<std::vector<uint8_t>> outputBytes;  ///< what a run writes
  std::string failingCall;                        ///< the call that fails, "larodRunJob"
  int callsBeforeFailure = 0;                     ///< how many calls of that name succeed first
  std::vector<uint8_t> lastInput;                 ///< the input file at the last run
  int liveHandles = 0;                            ///< connections, models, tensor arrays and requests
};

FakeLarod& fakeLarod();
