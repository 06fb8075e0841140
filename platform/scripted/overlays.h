// An overlay service that keeps what it is given, draws when a scenario asks, and fails when it wants that.
#pragma once

#include <axoverlay.h>
#include <cairo.h>

#include <cstdint>
#include <memory>

#include "platform/scripted/faults.h"

namespace scripted {

/// A transparent picture that can be drawn on and looked at.
class Canvas {
 public:
  Canvas(int width, int height);

  [[nodiscard]] cairo_t* cairo() const { return m_cairo.get(); }
  [[nodiscard]] int width() const;
  [[nodiscard]] int height() const;
  /// Opacity, red, green and blue of a pixel, from the highest byte down; 0 outside of the picture.
  [[nodiscard]] std::uint32_t at(int x, int y) const;

  /// The smallest part of the picture that holds all pixels of a colour; left > right when there is none.
  struct Part {
    int left, top, right, bottom, pixels;
  };
  [[nodiscard]] Part find(std::uint32_t color) const;
  /// How many pixels of a part come close to an opaque colour; small letters hardly reach it.
  [[nodiscard]] int countNear(std::uint32_t color, int left, int top, int right, int bottom) const;

 private:
  template <auto Release>
  struct Releaser {
    template <typename T>
    void operator()(T* pointer) const {
      Release(pointer);
    }
  };
  std::unique_ptr<cairo_surface_t, Releaser<cairo_surface_destroy>> m_surface;
  std::unique_ptr<cairo_t, Releaser<cairo_destroy>> m_cairo;
};

struct Overlays {
  static constexpr int kOverlay = 7;  ///< the identifier that every new overlay is given

  axoverlay_settings settings = {};
  axoverlay_overlay_data overlay = {};  ///< as it was created last
  gpointer user_data = nullptr;
  Faults faults;  ///< "axoverlay_redraw"
  int live_overlays = 0;
  int live_sessions = 0;
  int redraws = 0;

  /// What a redraw does to a stream's transparent picture.
  void render(cairo_t* cairo, axoverlay_stream_data stream, int id = kOverlay) const;
  /// A stream's overlay, of the size that the application adjusts it to.
  [[nodiscard]] Canvas drawn(axoverlay_stream_data stream, int id = kOverlay) const;
};

/// The one overlay service of the process; assign {} to begin anew.
Overlays& overlays();

}  // namespace scripted
