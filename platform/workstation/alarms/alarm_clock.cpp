#include "platform/workstation/alarms/alarm_clock.h"

#include <ctime>

namespace workstation {

TimeStamp AlarmClock::wall() const { return ticker_clock::now(); }

std::chrono::nanoseconds AlarmClock::steady() const {
  timespec time{};
  ::clock_gettime(CLOCK_BOOTTIME, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace workstation
