#include "platform/workstation/views/size_stream.h"

#include <stdexcept>
#include <utility>

#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/camera/video_service.h"

namespace workstation {
namespace {

constexpr std::chrono::milliseconds kFreshness{90};  // an encoding this young is not repeated

}  // namespace

std::shared_ptr<const ViewedPicture> SizeStream::picture() {
  const Clock::time_point now = Clock::now();
  Source source = currentSource(now);
  const bool is_same = m_encoded && source == m_source;
  const bool is_fresh = m_encoded && !source.anonymised && !m_source.anonymised && now - m_encoded_at < kFreshness;
  if (is_same || is_fresh) return m_encoded;
  const std::uint64_t number = m_encoded ? m_encoded->number + 1 : 1;
  m_encoded = std::make_shared<ViewedPicture>(ViewedPicture{toJpeg(compose(source)), number, source.anonymised,
                                                            source.anonymised || source.overlay != nullptr});
  m_encoded_at = now;
  m_source = std::move(source);
  return m_encoded;
}

SizeStream::Source SizeStream::currentSource(Clock::time_point now) const {
  const StreamChoice choice = currentStreamChoice();
  if (choice.anonymised == m_size) {
    return {true, anonymisedView().sightAt(choice, startedCamera().rotation, now), nullptr, nullptr};
  }
  return {false, {}, newestFrame(), m_overlay.newest()};
}

BgraPicture SizeStream::compose(const Source& source) const {
  const CameraDescription& camera = startedCamera();
  const Mounting mounting{camera.rotation, camera.mirrored};
  if (source.anonymised && !source.sight.reason.empty()) {
    return cardPicture(shownSize(m_size, camera.rotation), anonymisedCard(source.sight.reason));
  }
  if (source.anonymised) {
    const AnalysedPicture& analysed = source.sight.picture;
    return anonymisedPicture(analysed.frame->view(), *analysed.overlay, m_size, mounting);
  }
  if (!source.frame) throw std::runtime_error(kNoPictureNow);
  BgraPicture picture = roomPicture(source.frame->view(), m_size, mounting);
  if (source.overlay) layOver(picture, *source.overlay);
  return picture;
}

}  // namespace workstation
