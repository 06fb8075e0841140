// An overlay service that keeps what it is given and fails when a test wants it to.
#pragma once

#include <axoverlay.h>
#include <cairo.h>

#include <set>
#include <string>

struct FakeOverlays {
  static constexpr int kOverlay = 7;  ///< the identifier that every new overlay is given

  axoverlay_settings settings = {};
  axoverlay_overlay_data overlay = {};  ///< as it was created last
  gpointer userData = nullptr;
  std::set<std::string> failingCalls;  ///< "axoverlay_redraw"
  int liveOverlays = 0;
  int liveSessions = 0;
  int redraws = 0;

  /// What a redraw does to a stream's transparent picture.
  void render(cairo_t* cairo, axoverlay_stream_data stream, int id = kOverlay) const {
    settings.render_callback(cairo, id, &stream, AXOVERLAY_CUSTOM_NORMALIZED, 0, 0, 0, 0, userData);
  }
};

FakeOverlays& fakeOverlays();
