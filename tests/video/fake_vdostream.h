// A video service whose pictures and failures a test chooses.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

struct FakeCamera {
  std::vector<uint8_t> frame;                                        ///< NV12; what every buffer holds
  std::string failingCall;                                           ///< the call that fails, "vdo_stream_start"
  std::string errorText = "camera is gone";                          ///< what it says
  std::map<std::string, unsigned> settings;                          ///< of the last stream created
  std::vector<std::vector<std::pair<unsigned, unsigned>>> channels;  ///< stream sizes of each
  int buffersTaken = 0;
  int buffersReturned = 0;
  int liveStreams = 0;
};

FakeCamera& fakeCamera();
