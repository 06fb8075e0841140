// The progress bar of a replay.
#pragma once

#include <chrono>
#include <string>

namespace workstation {

/// "[####----]  50 %  0:45 of 1:30", the bar always of the same width.
std::string progressLine(std::chrono::nanoseconds position, std::chrono::nanoseconds length);

/// Draws one line on standard error again and again, if that is a terminal and VELMOR_PROGRESS is 1; else does nothing.
class ReplayProgress {
 public:
  ReplayProgress();
  /// Leaves the line as it is and goes to the next one.
  ~ReplayProgress();
  ReplayProgress(const ReplayProgress&) = delete;
  ReplayProgress& operator=(const ReplayProgress&) = delete;

  void show(std::chrono::nanoseconds position, std::chrono::nanoseconds length);

 private:
  bool m_wanted;
  std::string m_shown;
};

}  // namespace workstation
