// What one picture shows of how well the camera sees: light, texture, sharpness, and where edges are.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/workstation/decoding/nv12_picture.h"

namespace workstation {

/// Parts of the picture, rows top to bottom. A cell is 8 pixels of a picture of 1280 wide, a tile 80, a block 40.
inline constexpr int kCellColumns = 160;
inline constexpr int kCellRows = 90;
inline constexpr int kTileColumns = 16;
inline constexpr int kTileRows = 9;
inline constexpr int kBlockColumns = 32;
inline constexpr int kBlockRows = 18;
inline constexpr std::size_t kCells = std::size_t{kCellColumns} * kCellRows;
inline constexpr std::size_t kTiles = std::size_t{kTileColumns} * kTileRows;
inline constexpr std::size_t kBlocks = std::size_t{kBlockColumns} * kBlockRows;

/// Directions of an edge, a quarter of half a turn each: contrast that is reversed, by a lamp or by infrared light,
/// leaves them as they are.
inline constexpr std::size_t kDirections = 4;
/// How strong an edge is in a cell, from 0 to kStrongest for each direction: beyond that contrast does not count, so
/// that less light changes little.
using CellEdges = std::array<std::uint8_t, kDirections>;
inline constexpr std::uint8_t kStrongest = 60;
/// What is kept of a strength: sixteen steps.
inline constexpr std::uint8_t kStrengthStep = 4;

/// Grey levels of which edges are taken: two by two in a cell.
inline constexpr int kGreyColumns = 2 * kCellColumns;
inline constexpr int kGreyRows = 2 * kCellRows;

struct Look {
  double mean = 0;    ///< of all pixels, from 0 (black) to 255 (white) whatever the video's range
  double bright = 0;  ///< a hundredth of the cells is brighter
  double dark = 0;    ///< a hundredth of the cells is darker
  double noise = 0;   ///< the sensor's, standard deviation in grey levels
  /// How much finer detail is than coarse one where edges are strong: about 0.6 in a sharp picture of 1280 pixels or
  /// more, less in one that is blurred. 0 where `strong_cells` is.
  double sharpness = 0;
  int strong_cells = 0;                     ///< that sharpness was measured in
  std::vector<std::uint8_t> grey;           ///< kGreyColumns x kGreyRows grey levels
  std::array<float, kTiles> texture{};      ///< share of a tile's cells with an edge
  std::array<std::uint8_t, kTiles> lit{};   ///< mean grey level of a tile
  std::array<std::uint8_t, kBlocks> shade;  ///< mean grey level of a block
};

/// Measures a frame as the program's streams see it. From any thread. Throws std::runtime_error for a frame that
/// cannot be scaled.
Look lookAt(const I420View& frame);

/// kCells of them, of kGreyColumns x kGreyRows grey levels with so much noise.
std::vector<CellEdges> edgesOf(const std::vector<std::uint8_t>& grey, double noise);

}  // namespace workstation
