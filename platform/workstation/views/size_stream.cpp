#include "platform/workstation/views/size_stream.h"

#include <stdexcept>
#include <utility>

#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/camera/video_service.h"

namespace workstation {
namespace {

constexpr std::chrono::milliseconds kFreshness{90};  // an encoding this young is not repeated

}  // namespace

SizeStream::SizeStream(StreamKey key) : m_key(key) {
  if (key.own) {
    ownView().watch();
  } else {
    m_overlay.emplace(key.size);
  }
}

SizeStream::~SizeStream() {
  if (m_key.own) ownView().leave();
}

std::shared_ptr<const ViewedPicture> SizeStream::picture() {
  const Clock::time_point now = Clock::now();
  Source source = currentSource(now);
  const bool is_same = m_encoded && source == m_source;
  const bool is_fresh = m_encoded && !source.anonymised && !m_source.anonymised && now - m_encoded_at < kFreshness;
  if (is_same || is_fresh) return m_encoded;
  const std::uint64_t number = m_encoded ? m_encoded->number + 1 : 1;
  const bool complete = m_key.own ? source.sight.reason.empty() : source.anonymised || source.overlay != nullptr;
  m_encoded =
      std::make_shared<ViewedPicture>(ViewedPicture{toJpeg(compose(source)), number, source.anonymised, complete});
  m_encoded_at = now;
  m_source = std::move(source);
  return m_encoded;
}

SizeStream::Source SizeStream::currentSource(Clock::time_point now) const {
  const std::uint32_t rotation = startedCamera().rotation;
  if (m_key.own) return {true, ownView().sightAt(m_key.size, rotation, now), nullptr, nullptr};
  const StreamChoice choice = currentStreamChoice();
  if (choice.anonymised == m_key.size) return {true, anonymisedView().sightAt(choice, rotation, now), nullptr, nullptr};
  return {false, {}, newestFrame(), m_overlay->newest()};
}

BgraPicture SizeStream::composeAnonymised(const AnonymisedView::Sight& sight) const {
  const CameraDescription& camera = startedCamera();
  const Mounting mounting{camera.rotation, camera.mirrored};
  if (!sight.reason.empty()) {
    return cardPicture(shownSize(m_key.size, camera.rotation), anonymisedCard(sight.reason));
  }
  const I420View frame = sight.picture.frame->view();
  return m_key.own
             ? anonymisedPicture(frame, coveringOverlay(sight.picture, m_key.size, mounting), m_key.size, mounting)
             : anonymisedPicture(frame, *sight.picture.overlay, m_key.size, mounting);
}

BgraPicture SizeStream::compose(const Source& source) const {
  if (source.anonymised) return composeAnonymised(source.sight);
  if (!source.frame) throw std::runtime_error(kNoPictureNow);
  const CameraDescription& camera = startedCamera();
  BgraPicture picture = roomPicture(source.frame->view(), m_key.size, {camera.rotation, camera.mirrored});
  if (source.overlay) layOver(picture, *source.overlay);
  return picture;
}

}  // namespace workstation
