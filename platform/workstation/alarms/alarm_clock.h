// The two clocks of alarms: one for what people read, one for how long something has lasted.
#pragma once

#include <chrono>

#include "platform/clock/clock.h"

namespace workstation {

/// The system's; a test brings its own.
class AlarmClock {
 public:
  AlarmClock() = default;
  virtual ~AlarmClock() = default;
  AlarmClock(const AlarmClock&) = delete;
  AlarmClock& operator=(const AlarmClock&) = delete;

  /// May be set, forth and back. Nothing that is due depends on it while the program runs.
  [[nodiscard]] virtual TimeStamp wall() const;
  /// Never set back; goes on while the machine sleeps.
  [[nodiscard]] virtual std::chrono::nanoseconds steady() const;
};

}  // namespace workstation
