// What anonymised views show: analysed pictures with the masks of their own cycle, or a card that says why not.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/workstation/camera/cycle_frames.h"
#include "platform/workstation/camera/video_service.h"
#include "platform/workstation/views/stream_choice.h"
#include "platform/workstation/views/view_picture.h"

namespace workstation {

struct SeenPeople;

/// A frame, and what was drawn over it and is known of people on it in the same cycle.
struct AnalysedPicture {
  CycleFrames::Frame frame;
  std::shared_ptr<const BgraPicture> overlay;          ///< of the stream that it was drawn for, as viewers see it
  std::shared_ptr<const SeenPeople> people = nullptr;  ///< only where the overlay does not cover them
  bool operator==(const AnalysedPicture&) const = default;
};

/// Remembers the last analysed picture and gives it out only while nothing speaks against it. From any thread.
class AnonymisedView {
 public:
  using Clock = std::chrono::steady_clock;

  /// Without a newer picture for this long the last one is not shown any more.
  static constexpr std::chrono::seconds kLongestStall{3};

  /// What viewers see at one moment.
  struct Sight {
    std::string reason;       ///< why there is a card; empty where there is a picture
    AnalysedPicture picture;  ///< empty where there is a card
    bool operator==(const Sight&) const = default;
  };

  /// `failures` tells which cycles have failed; from any thread. A picture is good until the next one does.
  explicit AnonymisedView(std::function<CycleFailures()> failures = cycleFailures)
      : m_cycle_failures(std::move(failures)) {}

  /// A cycle is complete, its overlay drawn for the choice in force. An overlay with nothing on it counts as none.
  void show(AnalysedPicture picture, const StreamChoice& drawn_for, Clock::time_point now);
  /// The overlay of a cycle could not be drawn: there is no picture until the next show().
  void drop(const std::string& why = "The last picture could not be analysed.");

  /// What to show while `choice` is in force, on a camera mounted at `rotation` degrees.
  [[nodiscard]] Sight sightAt(const StreamChoice& choice, std::uint32_t rotation, Clock::time_point now) const;
  /// The same whatever is chosen, for whoever covers people on a picture of `size` himself.
  [[nodiscard]] Sight sightAt(StreamSize size, std::uint32_t rotation, Clock::time_point now) const;

 private:
  /// What speaks against the last picture, or empty; under the lock.
  [[nodiscard]] std::string reasonAgainst(const CycleFailures& failures, Clock::time_point now) const;

  mutable std::mutex m_mutex;
  AnalysedPicture m_picture;
  std::uint64_t m_version = 0;  ///< of the choice that the picture was drawn for
  Clock::time_point m_time;
  std::string m_dropped;         ///< why; empty while it is not
  std::uint64_t m_failures = 0;  ///< that there had been when it was shown
  const std::function<CycleFailures()> m_cycle_failures;
};

/// The anonymised stream's picture without its card: coarsened, the overlay on it. Throws std::runtime_error.
BgraPicture anonymisedPicture(const I420View& frame, const BgraPicture& overlay, StreamSize size, Mounting mounting);

/// The card's lines for a reason.
std::vector<std::string> anonymisedCard(const std::string& reason);

}  // namespace workstation
