// Whether the camera sees the room: too dark, covered, out of focus, frozen, or moved since the floor was calibrated.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <vector>

#include "platform/workstation/sight/look.h"
#include "platform/workstation/sight/room_edges.h"

namespace workstation {

enum class SightFault { kFrozen, kTooDark, kCovered, kOutOfFocus, kMoved };
inline constexpr std::array kSightFaults{SightFault::kFrozen, SightFault::kTooDark, SightFault::kCovered,
                                         SightFault::kOutOfFocus, SightFault::kMoved};

/// What the room looked like when the floor was calibrated. No person is in it: edges that lasted, outside of beds.
struct RoomReference {
  EdgeMap edges;
  std::array<std::uint8_t, kBlocks> shade{};
  double sharpness = 0;
  int textured = 0;  ///< tiles
};

/// Takes pictures one after the other and says what is wrong with them. What it knows of the room it learns while all
/// is well. For one thread.
class Sight {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// When the frame reached this machine and, where the stream tells it, its time of capture, on whatever clock.
  struct Times {
    Time taken;
    std::optional<std::chrono::nanoseconds> captured;
  };

  Sight();

  /// One cycle's picture.
  void take(const Look& look, const Times& times);

  /// Since when a fault has been there; nothing while it isn't.
  [[nodiscard]] std::optional<Time> since(SightFault fault) const { return latch(fault).since; }
  /// Whether any fault by which nothing is seen is there, or may be.
  [[nodiscard]] bool isBlind() const;

  /// The room as it has to look from now on; nothing: one is gathered from the pictures of the next minute that are
  /// well. Before the first call, nothing is gathered or compared.
  void setReference(std::optional<RoomReference> reference);
  /// Cells in which people stay for long: they are left out of what is gathered.
  void hideCells(std::vector<bool> hidden) { m_hidden = std::move(hidden); }
  [[nodiscard]] const std::optional<RoomReference>& reference() const { return m_reference; }

  /// Edges of the last seconds, and grey levels of the last picture that was well and of the last one at all: as much
  /// of it as anybody may see.
  [[nodiscard]] const EdgeMap& edgesNow() const { return m_now; }
  [[nodiscard]] const std::array<std::uint8_t, kBlocks>& shadeThen() const { return m_shade_well; }
  [[nodiscard]] const std::array<std::uint8_t, kBlocks>& shadeNow() const { return m_shade_now; }
  /// As of the last comparison with the reference.
  [[nodiscard]] const Displacement& displacement() const { return m_displacement; }

 private:
  enum class Verdict { kWell, kDoubtful, kWrong };

  /// A fault that begins when all pictures of a time had it, and ends when none of a time had.
  struct Latch {
    std::chrono::milliseconds begin, end;
    std::optional<Time> since = {};
    std::optional<Time> other_since = {};  ///< since when pictures say otherwise
    int pictures = 0;                      ///< that say otherwise
    void take(Verdict verdict, Time time);
  };

  /// What is usual while all is well, in the light of the last minutes.
  struct Usual {
    int pictures = 0;
    std::array<float, kTiles> texture{};
    std::array<float, kBlocks> shade{};
    double sharpness = 0;
    void learn(const Look& look);
  };

  Verdict darkness(const Look& look) const;
  Verdict cover(const Look& look) const;
  Verdict blur(const Look& look) const;
  Verdict displaced(const Look& look);
  Verdict frozen(const Times& times);
  double lost(const Look& look) const;
  double likeness(const Look& look) const;
  double sharpnessShare(const Look& look) const;
  void follow(const Look& look, Time time);
  void gather(Time time);
  Latch& latch(SightFault fault) { return m_latches.at(static_cast<std::size_t>(fault)); }
  [[nodiscard]] const Latch& latch(SightFault fault) const { return m_latches.at(static_cast<std::size_t>(fault)); }

  std::array<Latch, kSightFaults.size()> m_latches;
  Usual m_usual;
  std::deque<std::pair<std::chrono::nanoseconds, Time>> m_captured;  ///< times of capture, and when first seen
  Time m_last_taken{};
  std::vector<float> m_grey;  ///< of the last seconds, as Look::grey; empty while nothing is seen
  float m_grey_noise = 1;     ///< share of the variance of a picture's noise that is left in it
  Time m_followed_since{};
  Time m_compared{};
  EdgeMap m_now;
  std::array<std::uint8_t, kBlocks> m_shade_well{};
  std::array<std::uint8_t, kBlocks> m_shade_now{};
  bool m_wants_reference = false;
  std::optional<RoomReference> m_reference;
  std::optional<RoomMatcher> m_matcher;
  Displacement m_displacement;
  std::optional<RoomGatherer> m_gatherer;
  Time m_gathering_since{};
  std::vector<bool> m_hidden;
};

}  // namespace workstation
