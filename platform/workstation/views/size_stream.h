// The pictures that viewers of one size of stream see, encoded.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/workstation/views/anonymised_view.h"
#include "platform/workstation/views/overlay_service.h"
#include "platform/workstation/views/own_view.h"
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

/// One of a picture's two streams.
struct StreamKey {
  StreamSize size;
  bool own = false;  ///< the workstation's own anonymised view; otherwise what the settings choose for the size
  bool operator==(const StreamKey&) const = default;
};

/// As long as it lives what it shows is drawn. For one thread.
class SizeStream {
 public:
  explicit SizeStream(StreamKey key);
  ~SizeStream();
  SizeStream(const SizeStream&) = delete;
  SizeStream& operator=(const SizeStream&) = delete;

  /// The picture of now; the last one again where nothing has changed, or too little time has passed. Throws
  /// std::runtime_error when there is none.
  std::shared_ptr<const ViewedPicture> picture();

  [[nodiscard]] bool isAnonymised() const { return m_key.own || currentStreamChoice().anonymised == m_key.size; }
  [[nodiscard]] StreamKey key() const { return m_key; }

 private:
  using Clock = AnonymisedView::Clock;

  /// What an encoding was made of; equal sources give equal pictures.
  struct Source {
    bool anonymised = false;
    AnonymisedView::Sight sight;                 ///< of an anonymised one
    CycleFrames::Frame frame;                    ///< of any other
    std::shared_ptr<const BgraPicture> overlay;  ///< of any other
    bool operator==(const Source&) const = default;
  };

  [[nodiscard]] Source currentSource(Clock::time_point now) const;
  [[nodiscard]] BgraPicture compose(const Source& source) const;
  [[nodiscard]] BgraPicture composeAnonymised(const AnonymisedView::Sight& sight) const;

  StreamKey m_key;
  std::optional<WatchedOverlay> m_overlay;  ///< of what the settings choose
  Source m_source;
  std::shared_ptr<const ViewedPicture> m_encoded;
  Clock::time_point m_encoded_at;
};

}  // namespace workstation
