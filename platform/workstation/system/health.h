// How well the program watches, as far as the platform can tell: its last complete cycle, and what is wrong. Who
// notices a trouble reports it, who shows states asks here. From any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/clock/clock.h"

namespace workstation {

enum class Trouble {
  kAlarmsNotRecorded,
  kAlarmsNotStored,      ///< answers to alarms above all
  kReceiverNotReached,   ///< somebody who should be called outside
  kCertificateEnds,      ///< the page's, without which no telephone is called
  kAnalysisStandsStill,  ///< derived: no cycle was complete for kLongestSilence
  kCameraAway,
  kPictureFrozen,  ///< this and the next four: the camera gives pictures, and they do not show the room as they should
  kTooDark,
  kLensCovered,
  kOutOfFocus,
  kCameraMoved,
  kLensAway,
  kTicksLeftOut,  ///< derived: see ticker_clock::beat()
};

/// "camera-away": the name by which others know it.
const char* nameOf(Trouble trouble);

/// Whether nobody is being watched as he should be while it is there, though pictures may be analysed.
bool blinds(Trouble trouble);

/// A trouble is there, `text` says it to staff in one or two sentences. Reported again, its time stays and its text is
/// new.
void reportTrouble(Trouble trouble, const std::string& text, TimeStamp since = ticker_clock::now());
void endTrouble(Trouble trouble);

/// The cycle with this number (ticker_clock::currentTick) has come to its end, about a picture that was taken then; or,
/// where that is not known, has arrived then.
void noteCompleteCycle(std::uint64_t cycle, std::chrono::steady_clock::time_point picture_taken, bool is_known = false);

/// Without a complete cycle for this long nobody is being watched.
inline constexpr std::chrono::seconds kLongestSilence{3};

struct Health {
  struct Wrong {
    Trouble what;
    TimeStamp since;
    std::string text;
  };

  std::uint64_t cycle = 0;                              ///< the last complete one; 0 for none yet
  std::optional<std::chrono::nanoseconds> cycle_age;    ///< since it was complete
  std::optional<std::chrono::nanoseconds> picture_age;  ///< of the picture that it was about
  std::optional<std::chrono::nanoseconds> delay;        ///< from that picture to the cycle's end
  bool is_capture_known = false;                        ///< both count from its capture, else from its arrival
  ticker_clock::Beat beat;
  double slowdown = 1.0;     ///< mean distance between the complete cycles of the last minute, in periods
  std::vector<Wrong> wrong;  ///< in the order of Trouble; empty while all is well

  /// The first that blinds, if any.
  [[nodiscard]] const Wrong* blinding() const;
  /// Whether somebody who needs help would be seen now.
  [[nodiscard]] bool isWatching() const { return cycle_age && *cycle_age <= kLongestSilence && blinding() == nullptr; }
};

Health currentHealth();

}  // namespace workstation
