// The camera's sight while the program runs: looks at each cycle's frame on a thread of its own, so that no cycle and
// no alarm waits for it, and reports what is wrong as troubles (health.h).
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/workstation/decoding/video_pipeline.h"
#include "platform/workstation/sight/stored_room.h"

namespace workstation {

/// What of the room anybody may see: edges that lasted, and the grey of 32 x 18 blocks. As the sensor lies, not turned.
struct SightPictures {
  std::optional<EdgeMap> edges_then;               ///< of the room as it was calibrated
  EdgeMap edges_now;                               ///< of the last seconds; no cells before the first
  std::array<std::uint8_t, kBlocks> shade_then{};  ///< when the camera saw last
  std::array<std::uint8_t, kBlocks> shade_now{};
};

/// From any thread, and nobody waits for its disk or for a picture to be looked at.
class SightWatch {
 public:
  /// A frame of a cycle.
  struct Seen {
    std::shared_ptr<const DecodedFrame> frame;
    std::uint32_t rotation = 0;  ///< degrees clockwise that turn it upright
    Sight::Times times;
  };

  /// Keeps the calibrated room in that state directory.
  explicit SightWatch(std::filesystem::path directory);

  /// Left out while the two before have not been looked at. On one thread.
  void look(Seen seen);
  /// The program's parameters as they are in force. A floor that is calibrated anew wants a room of its own.
  void setParameters(const std::map<std::string, std::string, std::less<>>& parameters);
  /// The camera hangs where it should: the room as it is seen now counts from now on.
  void accept();

  [[nodiscard]] SightPictures pictures() const;
  /// Waits until everything has been looked at and stored, but no longer than that. For tests.
  bool settle(std::chrono::milliseconds patience);

  struct State;

 private:
  std::shared_ptr<State> m_state;
  bool m_has_begun = false;
};

/// The process's. Nothing in a replay, which nobody watches.
SightWatch* sightWatch();

}  // namespace workstation
