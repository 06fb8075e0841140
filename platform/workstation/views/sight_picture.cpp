#include "platform/workstation/views/sight_picture.h"

#include <libyuv.h>

#include <algorithm>
#include <numeric>
#include <stdexcept>

namespace workstation {
namespace {

constexpr int kPixelsPerCell = 4;
constexpr int kWidth = kCellColumns * kPixelsPerCell;
constexpr int kHeight = kCellRows * kPixelsPerCell;
constexpr int kDimmed = 2;  // under edges the grey is so many times darker

struct Colour {
  int blue, green, red;
};
constexpr Colour kThenColour{0, 150, 255};
constexpr Colour kNowColour{255, 180, 60};

std::uint8_t* pixelAt(BgraPicture& picture, int x, int y) {
  return picture.bytes.data() + std::ptrdiff_t{y} * picture.stride() + std::ptrdiff_t{x} * 4;
}

void paintShade(BgraPicture& picture, const std::array<std::uint8_t, kBlocks>& shade, int dimmed) {
  constexpr int kSide = kWidth / kBlockColumns;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const int block = y / kSide * kBlockColumns + x / kSide;
      std::uint8_t* const pixel = pixelAt(picture, x, y);
      std::fill_n(pixel, 3, static_cast<std::uint8_t>(shade.at(static_cast<std::size_t>(block)) / dimmed));
      pixel[3] = 255;
    }
  }
}

/// Brighter where edges are stronger; where two maps have one, their colours mix.
void paintEdges(BgraPicture& picture, const EdgeMap& edges, Colour colour) {
  if (edges.cells.empty()) return;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const CellEdges& cell = edges.at(x / kPixelsPerCell, y / kPixelsPerCell);
      const int strength = std::min<int>(kStrongest / 2, std::accumulate(cell.begin(), cell.end(), 0));
      std::uint8_t* const pixel = pixelAt(picture, x, y);
      const auto add = [strength](std::uint8_t& level, int full) {
        level = static_cast<std::uint8_t>(std::min(255, level + full * strength / (kStrongest / 2)));
      };
      add(pixel[0], colour.blue);
      add(pixel[1], colour.green);
      add(pixel[2], colour.red);
    }
  }
}

BgraPicture mounted(const BgraPicture& picture, Mounting mounting) {
  const bool is_quarter = mounting.rotation % 180 != 0;
  BgraPicture turned(is_quarter ? picture.height : picture.width, is_quarter ? picture.width : picture.height);
  libyuv::ARGBRotate(picture.bytes.data(), picture.stride(), turned.bytes.data(), turned.stride(), picture.width,
                     picture.height, static_cast<libyuv::RotationMode>(mounting.rotation));
  if (!mounting.mirrored) return turned;
  BgraPicture mirrored(turned.width, turned.height);
  libyuv::ARGBMirror(turned.bytes.data(), turned.stride(), mirrored.bytes.data(), turned.stride(), turned.width,
                     turned.height);
  return mirrored;
}

}  // namespace

std::optional<SightShown> sightShownFrom(std::string_view name) {
  if (name == "then") return SightShown::kThen;
  if (name == "now") return SightShown::kNow;
  if (name == "both") return SightShown::kBoth;
  return std::nullopt;
}

BgraPicture sightPicture(const SightPictures& pictures, SightShown shown, bool anonymised, Mounting mounting) {
  BgraPicture picture(kWidth, kHeight);
  const bool is_then = shown == SightShown::kThen;
  paintShade(picture, is_then ? pictures.shade_then : pictures.shade_now,
             shown == SightShown::kBoth ? 2 * kDimmed : kDimmed);
  if (shown != SightShown::kNow && pictures.edges_then) paintEdges(picture, *pictures.edges_then, kThenColour);
  if (!is_then && !anonymised) paintEdges(picture, pictures.edges_now, kNowColour);
  return mounted(picture, mounting);
}

}  // namespace workstation
