// The workstation's own anonymised view, whatever streams the settings choose: a cycle's picture is shown once the
// trace of that very cycle has told where everybody is, and people are covered here.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/workstation/views/anonymised_view.h"

namespace workstation {

/// Somebody's box in pixels of the analysis picture, with all its edges.
struct PersonBox {
  double left = 0;
  double top = 0;
  double right = 0;
  double bottom = 0;
};

/// Everybody who is followed in a cycle.
struct SeenPeople {
  StreamSize picture;  ///< the analysis picture, as viewers see it
  std::vector<PersonBox> boxes;
};

/// Fed on the main loop's thread; watched, dropped and seen from any.
class OwnView {
 public:
  using Clock = AnonymisedView::Clock;

  explicit OwnView(std::function<CycleFailures()> failures = cycleFailures) : m_view(std::move(failures)) {}

  /// Pictures are kept while somebody watches.
  void watch();
  void leave() { --m_watchers; }
  [[nodiscard]] bool isWatched() const { return m_watchers > 0; }

  /// A cycle's frame, and what the program drew over its own stream, if anything. Not shown yet.
  void draw(const CycleFrames::Frame& frame, std::shared_ptr<const BgraPicture> overlay, std::uint64_t cycle);
  /// Lines of a trace, told while `cycle` is under way. A picture of another cycle is never shown with them.
  void takeTrace(const std::string& lines, std::uint64_t cycle, Clock::time_point now);
  /// There is no picture until the next one is complete.
  void drop();

  /// What to show on a picture of `size`, on a camera mounted at `rotation` degrees.
  [[nodiscard]] AnonymisedView::Sight sightAt(StreamSize size, std::uint32_t rotation, Clock::time_point now) const {
    return m_view.sightAt(size, rotation, now);
  }

 private:
  struct Drawn {
    AnalysedPicture picture;
    std::uint64_t cycle = 0;
  };

  void takeLine(std::string_view line, std::uint64_t cycle, Clock::time_point now);

  AnonymisedView m_view;
  std::atomic<int> m_watchers = 0;
  std::optional<StreamSize> m_analysed;  ///< once the trace has said it
  std::optional<Drawn> m_drawn;          ///< of a cycle that has told of nobody yet
};

/// The one of this process.
OwnView& ownView();

/// Everybody covered, and over that the overlay, which was drawn for a picture of any size: both as viewers see them,
/// laid over a picture of `size` as the program lays its drawings over a stream, by its height and in its middle.
BgraPicture coveringOverlay(const AnalysedPicture& analysed, StreamSize size, Mounting mounting);

}  // namespace workstation
