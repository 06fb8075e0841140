// An inference service whose models, outputs and failures a test chooses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

struct FakeLarod {
  std::function<void(const std::string&)> onLoad;  ///< told the name of each model that is loaded
  std::vector<std::vector<std::size_t>> inputs;    ///< dimensions of the tensors of the models loaded from now on
  std::vector<std::vector<std::size_t>> outputs;
  std::vector<std::vector<uint8_t>> outputBytes;              ///< what a run writes
  std::deque<std::vector<std::vector<uint8_t>>> nextOutputs;  ///< what the next runs write instead
  std::string failingCall;                                    ///< the call that fails, "larodRunJob"
  int callsBeforeFailure = 0;                                 ///< how many calls of that name succeed first
  std::vector<uint8_t> lastInput;                             ///< the input file at the last run
  int liveHandles = 0;                                        ///< connections, models, tensor arrays and requests
};

FakeLarod& fakeLarod();
