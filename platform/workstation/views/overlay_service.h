// What the camera's overlay service knows beyond its C interface: overlays as pictures, for whoever shows the streams.
#pragma once

#include <memory>

#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/views/anonymised_view.h"
#include "platform/workstation/views/view_picture.h"

namespace workstation {

/// As long as it lives each redraw draws the overlay for the streams of one size too; the first drawing follows as soon
/// as the program's main loop is free. From any thread.
class WatchedOverlay {
 public:
  explicit WatchedOverlay(StreamSize size);
  ~WatchedOverlay();
  WatchedOverlay(const WatchedOverlay&) = delete;
  WatchedOverlay& operator=(const WatchedOverlay&) = delete;

  /// What was drawn last, of the size that viewers see; nothing before the first drawing and without an overlay.
  [[nodiscard]] std::shared_ptr<const BgraPicture> newest() const;

 private:
  StreamSize m_size;
};

/// The anonymised stream of this process.
AnonymisedView& anonymisedView();

}  // namespace workstation
