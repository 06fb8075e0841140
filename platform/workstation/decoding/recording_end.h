// Where a recording really ends.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace workstation {

struct RecordingEnd {
  std::chrono::nanoseconds last_frame;      ///< running time at which the last frame is shown
  std::chrono::nanoseconds frame_duration;  ///< for how long it is shown
};

/// Runs through the file without decoding it, since the length that a container states is often that of its sound, or
/// none. Nothing when the file cannot be read to its end within a bounded time. GStreamer must be initialised.
std::optional<RecordingEnd> findRecordingEnd(const std::string& uri);

}  // namespace workstation
