// The poses of a trace (docs/trace.md), a cycle at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <fstream>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "platform/clock/clock.h"
#include "pose/skeleton.h"

/// A pose that a run of a network saw.
struct TracedPose {
  Skeleton skeleton;
  float
      confirmation;  ///< the detector's best score for a person there; minus infinity where it saw none or did not look
};

struct TracedRun {
  int rotation = 0;  ///< of the picture, degrees
  int width = 0;     ///< of the network's input, pixels
  int height = 0;
  float limit = 0.0F;             ///< the first pose that scores less ends the list of those that count
  std::vector<TracedPose> poses;  ///< all of the decoder
};

using Settings = std::map<std::string, std::string>;

/// What the networks saw in one cycle.
struct TracedCycle {
  TimeStamp time;                    ///< since the recording's or the trace's beginning
  bool failed = false;               ///< a picture or a network was missing: nothing was decided
  bool had_picture_to_check = true;  ///< without one, everybody counts as confirmed
  std::vector<TracedRun> runs;
  std::optional<Settings> settings;  ///< that are in force from here on; none where those before stay
};

/// Reads a trace from its beginning to its end.
class TracedPoses {
 public:
  /// Throws std::runtime_error with one line that names the file and what is wrong with it.
  explicit TracedPoses(const std::string& path);

  /// False at the end. Throws as the constructor does, with the line. The settings that stand before the first cycle
  /// are not told.
  bool next(TracedCycle& cycle);

  /// Where first the trace holds less than its run did, "FILE line N: ..."; empty as long as it holds all.
  [[nodiscard]] const std::string& gap() const { return m_gap; }

 private:
  bool readObject(nlohmann::json& object);
  void readHeader(const nlohmann::json& header);
  void readCycle(const nlohmann::json& line, TracedCycle& cycle);
  void noteGap(const nlohmann::json& line);
  [[noreturn]] void fail(const std::string& why) const;

  std::string m_path;
  std::ifstream m_file;
  long m_number = 0;  ///< of the line
  bool m_is_recording = true;
  std::chrono::nanoseconds m_period{0};
  TimeStamp m_time;  ///< of the last cycle
  std::int64_t m_last_ns = -1;
  std::int64_t m_last_cycle = 0;  ///< its number
  std::string m_gap;
};
