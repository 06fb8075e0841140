#include "platform/workstation/views/anonymised_view.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace workstation {
namespace {

constexpr const char* kWrongShape = "People cannot be covered on its shape: choose another.";

/// Overlays are drawn for streams that show the full height of the upright picture, and at most its width; others would
/// have their masks beside the people. A column may be missing for rounding.
bool showsPartOfWidth(StreamSize size, std::uint32_t rotation) {
  const StreamSize shown = shownSize(size, rotation);
  const StreamSize sensor = shownSize(kSensorShape, rotation);
  return (shown.width - 1) * sensor.height <= shown.height * sensor.width;
}

/// What is wrong with the size that was chosen, or empty.
std::string reasonOfSize(const StreamChoice& choice, std::uint32_t rotation) {
  if (choice.anonymised == kApplicationStream) {
    return "Its size, " + toString(kApplicationStream) + ", is that of the application's own stream: choose another.";
  }
  if (choice.anonymised == choice.overlay) {
    return "Its size is that of the stream with findings: choose another.";
  }
  if (!showsPartOfWidth(*choice.anonymised, rotation)) return kWrongShape;
  return "";
}

/// The program writes its status on every stream that it covers people on: where it has drawn nothing, its notion of
/// the sizes differs, and there are no masks. From the end, because the status stands at the bottom.
bool isBlank(const BgraPicture& overlay) {
  return std::all_of(std::reverse_iterator(overlay.bytes.end()), std::reverse_iterator(overlay.bytes.begin()),
                     [](std::uint8_t part) { return part == 0; });
}

}  // namespace

void AnonymisedView::show(AnalysedPicture picture, const StreamChoice& drawn_for, Clock::time_point now) {
  if (picture.overlay && isBlank(*picture.overlay)) picture.overlay = nullptr;
  const std::uint64_t failures = m_cycle_failures().count;
  const std::scoped_lock lock(m_mutex);
  m_picture = std::move(picture);
  m_version = drawn_for.version;
  m_time = now;
  m_failures = failures;
  m_dropped.clear();
}

void AnonymisedView::drop(const std::string& why) {
  const std::scoped_lock lock(m_mutex);
  m_picture = {};
  m_dropped = why;
}

std::string AnonymisedView::reasonAgainst(const CycleFailures& failures, Clock::time_point now) const {
  if (failures.count > m_failures) return failures.last;
  if (!m_dropped.empty()) return m_dropped;
  if (!m_picture.frame) return "No picture has been analysed yet.";
  return now - m_time > kLongestStall ? "No picture has been analysed for more than 3 seconds." : "";
}

AnonymisedView::Sight AnonymisedView::sightAt(const StreamChoice& choice, std::uint32_t rotation,
                                              Clock::time_point now) const {
  if (!choice.anonymised) return {"It is switched off.", {}};
  if (std::string reason = reasonOfSize(choice, rotation); !reason.empty()) return {std::move(reason), {}};
  const CycleFailures failures = m_cycle_failures();
  const std::scoped_lock lock(m_mutex);
  if (std::string reason = reasonAgainst(failures, now); !reason.empty()) return {std::move(reason), {}};
  if (m_version != choice.version) return {"It has just been switched on.", {}};
  if (!m_picture.overlay) return {"People are not covered on it: choose its size again.", {}};
  return {"", m_picture};
}

AnonymisedView::Sight AnonymisedView::sightAt(StreamSize size, std::uint32_t rotation, Clock::time_point now) const {
  if (!showsPartOfWidth(size, rotation)) return {kWrongShape, {}};
  const CycleFailures failures = m_cycle_failures();
  const std::scoped_lock lock(m_mutex);
  if (std::string reason = reasonAgainst(failures, now); !reason.empty()) return {std::move(reason), {}};
  return {"", m_picture};
}

BgraPicture anonymisedPicture(const I420View& frame, const BgraPicture& overlay, StreamSize size, Mounting mounting) {
  BgraPicture picture = roomPicture(frame, size, mounting);
  coarsen(picture, blockSide(size));
  layOver(picture, overlay);
  return picture;
}

std::vector<std::string> anonymisedCard(const std::string& reason) { return {"Anonymised view", reason}; }

}  // namespace workstation
