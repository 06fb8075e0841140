// The pictures that viewers of one size of stream see, encoded.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/workstation/views/anonymised_view.h"
#include "platform/workstation/views/overlay_service.h"
#include "platform/workstation/views/stream_choice.h"
#include "platform/workstation/views/view_picture.h"

namespace workstation {

/// Said to whoever asks while the camera gives no picture.
inline constexpr const char* kNoPictureNow = "the camera gives no picture now; try again later";

struct ViewedPicture {
  std::string jpeg;
  std::uint64_t number = 0;  ///< grows with each new picture of the size
  bool anonymised = false;
  bool complete = false;  ///< has everything on it that it should
};

/// As long as it lives overlays are drawn for its size. For one thread.
class SizeStream {
 public:
  explicit SizeStream(StreamSize size) : m_size(size), m_overlay(size) {}

  /// The picture of now; the last one again where nothing has changed, or too little time has passed. Throws
  /// std::runtime_error when there is none.
  std::shared_ptr<const ViewedPicture> picture();

  [[nodiscard]] bool isAnonymised() const { return currentStreamChoice().anonymised == m_size; }
  [[nodiscard]] StreamSize size() const { return m_size; }

 private:
  using Clock = AnonymisedView::Clock;

  /// What an encoding was made of; equal sources give equal pictures.
  struct Source {
    bool anonymised = false;
    AnonymisedView::Sight sight;                 ///< of the anonymised stream
    CycleFrames::Frame frame;                    ///< of any other
    std::shared_ptr<const BgraPicture> overlay;  ///< of any other
    bool operator==(const Source&) const = default;
  };

  [[nodiscard]] Source currentSource(Clock::time_point now) const;
  [[nodiscard]] BgraPicture compose(const Source& source) const;

  StreamSize m_size;
  WatchedOverlay m_overlay;
  Source m_source;
  std::shared_ptr<const ViewedPicture> m_encoded;
  Clock::time_point m_encoded_at;
};

}  // namespace workstation
