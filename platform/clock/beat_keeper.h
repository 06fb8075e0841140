// Counts what the live ticker did, and says once a minute that it could not keep up. Times are of one steady clock,
// whichever. From any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>

#include "platform/clock/clock.h"

namespace ticker_clock {

class BeatKeeper {
 public:
  using Microseconds = std::chrono::microseconds;

  /// A ticker has been added.
  void begin(Microseconds period, Microseconds now);
  /// A call is over, and so many ticks were left out before it or while it lasted.
  void note(Microseconds now, Microseconds took, std::uint64_t left_out);
  Beat at(Microseconds now);

 private:
  struct Call {
    Microseconds time;
    std::uint64_t left_out;
  };

  void forgetOld(Microseconds now);
  void say(Microseconds now);

  std::mutex m_mutex;
  Beat m_beat;
  std::deque<Call> m_calls;  ///< of the last minute
  Microseconds m_begun{};
  Microseconds m_said{};
  std::uint64_t m_left_out_unsaid = 0;
};

}  // namespace ticker_clock
