// When pictures were taken, as far as a stream's own clock can be believed.
#pragma once

#include <chrono>
#include <optional>

namespace workstation {

/// When a picture was taken, on this machine's clocks.
struct CaptureTime {
  std::chrono::steady_clock::time_point time;
  bool is_known = false;  ///< false: its stream doesn't tell or isn't believed; `time` is when it arrived, or before
};

/// Follows one opening of a stream that states when each picture was taken. Pictures cannot come before they were
/// taken, and reach this machine within kLongestWay on an ordinary day, so a clock that would say otherwise is wrong.
/// How much later than the quickest a picture came is told by any clock that runs, right or wrong: no picture ever
/// looks fresher than that. A clock that is set back begins anew.
class CaptureClock {
 public:
  using Steady = std::chrono::steady_clock::time_point;
  using Stated = std::chrono::system_clock::time_point;

  /// The quickest pictures of a clock that is believed are no older than this when they arrive.
  static constexpr std::chrono::milliseconds kLongestWay{2000};

  /// Of a picture that the stream says was taken at `stated`, if it does; it arrived at `arrived`, when this machine's
  /// clock on the wall said `wall`. In the order of the pictures.
  CaptureTime at(std::optional<Stated> stated, Steady arrived, Stated wall);

 private:
  std::optional<Stated> m_stated;         ///< of the picture before
  std::chrono::nanoseconds m_quickest{};  ///< from stated to wall
  Steady m_arrived;
};

}  // namespace workstation
