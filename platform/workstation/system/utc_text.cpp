#include "platform/workstation/system/utc_text.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace workstation {
namespace {

std::int64_t millisecondsOf(TimeStamp time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

}  // namespace

std::string utcText(TimeStamp time) {
  const std::int64_t milliseconds = millisecondsOf(time);
  const std::time_t seconds = milliseconds / 1000;
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char date[32];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
  char text[48];
  std::snprintf(text, sizeof text, "%s.%03dZ", date, static_cast<int>(milliseconds % 1000));
  return text;
}

double secondsOf(TimeStamp time) { return static_cast<double>(millisecondsOf(time)) / 1000.0; }

std::tm localTime(TimeStamp time) {
  const std::time_t seconds =
      std::chrono::system_clock::to_time_t(std::chrono::time_point_cast<std::chrono::system_clock::duration>(time));
  std::tm local{};
  ::tzset();  // localtime_r alone would keep the zone of its first call
  ::localtime_r(&seconds, &local);
  return local;
}

std::string localClock(TimeStamp time) {
  const std::tm local = localTime(time);
  char text[16];
  std::strftime(text, sizeof text, "%H:%M", &local);
  return text;
}

}  // namespace workstation
