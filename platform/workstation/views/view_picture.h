// The pictures that viewers see: the room or a card, the overlay on it, and the way to JPEG.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/support/stream_size.h"
#include "platform/workstation/decoding/nv12_picture.h"

namespace workstation {

/// Four bytes a pixel, B, G, R, A, rows top to bottom without padding: cairo's ARGB32 on this machine, colours
/// multiplied by their opacity.
struct BgraPicture {
  int width = 0;
  int height = 0;
  PictureBytes bytes;

  BgraPicture() = default;
  /// Fully transparent.
  BgraPicture(int columns, int rows)
      : width(columns),
        height(rows),
        bytes(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows) * 4, 0) {}

  [[nodiscard]] int stride() const { return width * 4; }
};

/// How a camera's viewers see it: turned clockwise by `rotation` degrees, then left and right exchanged.
struct Mounting {
  std::uint32_t rotation = 0;
  bool mirrored = false;
};

/// The size that viewers see of a stream that is asked for as `size`.
StreamSize shownSize(StreamSize size, std::uint32_t rotation);

/// The camera's frame as a viewer of a stream of `size` sees it.
BgraPicture roomPicture(const I420View& frame, StreamSize size, Mounting mounting);

/// Lays an overlay of the picture's size over it. Throws std::runtime_error for another size.
void layOver(BgraPicture& picture, const BgraPicture& overlay);

/// The sides of the blocks of a coarsened stream of `size`, in pixels: 32 of a picture of 1280x720, and as many more as
/// the stream is larger.
int blockSide(StreamSize size);

/// Every block of the picture becomes its mean colour. What is left over at the right and at the bottom joins the last
/// block, so that no block is smaller than `side` unless the picture is.
void coarsen(BgraPicture& picture, int side);

/// A plain grey picture that says `text`, its lines in the middle.
BgraPicture cardPicture(StreamSize shown, const std::vector<std::string>& lines);

/// A picture without transparency as JPEG, its colours at half resolution. From any thread. Throws std::runtime_error.
std::string toJpeg(const BgraPicture& picture);

}  // namespace workstation
