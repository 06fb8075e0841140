#include "platform/workstation/views/view_picture.h"

#include <libyuv.h>
#include <turbojpeg.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "platform/workstation/views/cairo_owners.h"

namespace workstation {
namespace {

constexpr int kQuality = 80;
constexpr int kBlockSide = 32;  // of a picture of kBlockPicture
constexpr StreamSize kBlockPicture{1280, 720};
constexpr double kCardShade = 0.25;      // of white
constexpr double kCardTextSize = 0.045;  // of the card's shorter side
constexpr double kCardLineHeight = 1.6;  // of the text's size
constexpr double kCardTextWidth = 0.9;   // of the card's width at most

void check(int status) {
  if (status != 0) throw std::runtime_error("a picture of this size cannot be made");
}

/// The mean of a block, written over it.
void flatten(BgraPicture& picture, int left, int top, int right, int bottom) {
  std::uint32_t blue = 0;
  std::uint32_t green = 0;
  std::uint32_t red = 0;
  const auto at = [&](int x, int y) {
    return picture.bytes.data() + std::ptrdiff_t{y} * picture.stride() + std::ptrdiff_t{x} * 4;
  };
  for (int y = top; y < bottom; ++y) {
    const std::uint8_t* const end = at(right, y);
    for (const std::uint8_t* pixel = at(left, y); pixel != end; pixel += 4) {
      blue += pixel[0];
      green += pixel[1];
      red += pixel[2];
    }
  }
  const auto count = static_cast<std::uint32_t>((right - left) * (bottom - top));
  const auto mean = [count](std::uint32_t sum) { return (sum + count / 2) / count; };
  libyuv::ARGBRect(picture.bytes.data(), picture.stride(), left, top, right - left, bottom - top,
                   0xFF000000U | mean(red) << 16 | mean(green) << 8 | mean(blue));
}

/// Where the block that begins at `begin` ends.
int blockEnd(int begin, int side, int length) { return length - begin < 2 * side ? length : begin + side; }

double widestLine(cairo_t* cairo, const std::vector<std::string>& lines) {
  double widest = 1;
  for (const std::string& line : lines) {
    cairo_text_extents_t extents;
    cairo_text_extents(cairo, line.c_str(), &extents);
    widest = std::max(widest, extents.x_advance);
  }
  return widest;
}

void writeLines(cairo_t* cairo, const BgraPicture& card, const std::vector<std::string>& lines) {
  cairo_select_font_face(cairo, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  double size = std::max(8.0, kCardTextSize * std::min(card.width, card.height));
  cairo_set_font_size(cairo, size);
  size *= std::min(1.0, kCardTextWidth * card.width / widestLine(cairo, lines));
  cairo_set_font_size(cairo, size);
  const double step = size * kCardLineHeight;
  double y = (card.height - step * static_cast<double>(lines.size())) / 2 + size;
  for (const std::string& line : lines) {
    cairo_text_extents_t extents;
    cairo_text_extents(cairo, line.c_str(), &extents);
    cairo_move_to(cairo, (card.width - extents.x_advance) / 2, y);
    cairo_show_text(cairo, line.c_str());
    y += step;
  }
}

}  // namespace

StreamSize shownSize(StreamSize size, std::uint32_t rotation) {
  return rotation % 180 == 0 ? size : StreamSize{size.height, size.width};
}

BgraPicture roomPicture(const I420View& frame, StreamSize size, Mounting mounting) {
  const StreamSize shown = shownSize(size, mounting.rotation);
  BgraPicture room(static_cast<int>(shown.width), static_cast<int>(shown.height));
  withStreamPicture(frame, size, mounting.rotation, [&](const I420View& from) {
    const auto convert = from.full_range ? libyuv::J420ToARGB : libyuv::I420ToARGB;
    check(convert(from.y, from.y_stride, from.u, from.u_stride, from.v, from.v_stride, room.bytes.data(), room.stride(),
                  room.width, room.height));
  });
  if (mounting.mirrored) {
    BgraPicture mirrored(room.width, room.height);
    check(libyuv::ARGBMirror(room.bytes.data(), room.stride(), mirrored.bytes.data(), room.stride(), room.width,
                             room.height));
    return mirrored;
  }
  return room;
}

void layOver(BgraPicture& picture, const BgraPicture& overlay) {
  if (overlay.width != picture.width || overlay.height != picture.height) {
    throw std::runtime_error("the overlay is not of the stream's size");
  }
  check(libyuv::ARGBBlend(overlay.bytes.data(), overlay.stride(), picture.bytes.data(), picture.stride(),
                          picture.bytes.data(), picture.stride(), picture.width, picture.height));
}

int blockSide(StreamSize size) {
  const auto larger = [](std::uint32_t side, std::uint32_t of) {
    return static_cast<int>((kBlockSide * side + of - 1) / of);
  };
  return std::max({kBlockSide, larger(size.width, kBlockPicture.width), larger(size.height, kBlockPicture.height)});
}

void coarsen(BgraPicture& picture, int side) {
  for (int top = 0, bottom = 0; top < picture.height; top = bottom) {
    bottom = blockEnd(top, side, picture.height);
    for (int left = 0, right = 0; left < picture.width; left = right) {
      right = blockEnd(left, side, picture.width);
      flatten(picture, left, top, right, bottom);
    }
  }
}

BgraPicture cardPicture(StreamSize shown, const std::vector<std::string>& lines) {
  BgraPicture card(static_cast<int>(shown.width), static_cast<int>(shown.height));
  const CairoSurface surface(cairo_image_surface_create_for_data(card.bytes.data(), CAIRO_FORMAT_ARGB32, card.width,
                                                                 card.height, card.stride()));
  const CairoContext cairo(cairo_create(surface.get()));
  cairo_set_source_rgb(cairo.get(), kCardShade, kCardShade, kCardShade);
  cairo_paint(cairo.get());
  cairo_set_source_rgb(cairo.get(), 1, 1, 1);
  writeLines(cairo.get(), card, lines);
  cairo_surface_flush(surface.get());
  return card;
}

std::string toJpeg(const BgraPicture& picture) {
  const std::unique_ptr<void, decltype(&tjDestroy)> encoder(tjInitCompress(), &tjDestroy);
  // The encoder's own memory grows as the picture needs it: what could be needed at worst is thirty times as much.
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  const bool made = encoder && tjCompress2(encoder.get(), picture.bytes.data(), picture.width, picture.stride(),
                                           picture.height, TJPF_BGRX, &bytes, &size, TJSAMP_420, kQuality, 0) == 0;
  const std::unique_ptr<unsigned char, decltype(&tjFree)> owner(bytes, &tjFree);
  if (!made) {
    throw std::runtime_error("a picture of " + std::to_string(picture.width) + "x" + std::to_string(picture.height) +
                             " cannot be encoded");
  }
  return {reinterpret_cast<const char*>(bytes), size};
}

}  // namespace workstation
