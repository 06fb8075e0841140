// Pictures for a camera to give, as NV12 without colour.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace scripted {

/// The luma of each pixel by its column and row.
std::vector<uint8_t> greyFrame(unsigned width, unsigned height, const std::function<uint8_t(unsigned, unsigned)>& luma);

/// A board of 10 x 7 squares of 0.15 m before a camera of that focal length in pixels, slanted by radians about the
/// picture's horizontal and vertical axis.
std::vector<uint8_t> chessboardFrame(unsigned width, unsigned height, float focal_length, float slant_x, float slant_y);

}  // namespace scripted
