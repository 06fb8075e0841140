// What the anonymised stream shows: analysed pictures with the masks of their own cycle, or a card that says why not.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/workstation/cycle_frames.h"
#include "platform/workstation/stream_choice.h"
#include "platform/workstation/view_picture.h"

namespace workstation {

/// A frame and what was drawn over it in the same cycle.
struct AnalysedPicture {
  CycleFrames::Frame frame;
  std::shared_ptr<const BgraPicture> overlay;  ///< of the anonymised stream's size, as viewers see it
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
    bool operator==(const Sight& other) const {
      return reason == other.reason && picture.frame == other.picture.frame && picture.overlay == other.picture.overlay;
    }
  };

  /// A cycle is complete, its overlay drawn for the choice in force. An overlay with nothing on it counts as none.
  void show(AnalysedPicture picture, const StreamChoice& drawn_for, Clock::time_point now);
  /// A cycle has ended without a picture; the reason is for the card.
  void noteFailure(const std::string& reason = "The last picture could not be analysed.");

  /// What to show while `choice` is in force, on a camera mounted at `rotation` degrees.
  [[nodiscard]] Sight sightAt(const StreamChoice& choice, std::uint32_t rotation, Clock::time_point now) const;

 private:
  mutable std::mutex m_mutex;
  AnalysedPicture m_picture;
  std::uint64_t m_version = 0;  ///< of the choice that the picture was drawn for
  Clock::time_point m_time;
  std::string m_failure;  ///< why the last cycle gave no picture; empty when it gave one
};

/// The anonymised stream's picture without its card: coarsened, the overlay on it. Throws std::runtime_error.
BgraPicture anonymisedPicture(const I420View& frame, const BgraPicture& overlay, StreamSize size, Mounting mounting);

/// The card's lines for a reason.
std::vector<std::string> anonymisedCard(const std::string& reason);

}  // namespace workstation
