// From a decoded frame to the picture that a stream delivers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "platform/support/spare_memory.h"
#include "platform/support/stream_size.h"

namespace workstation {

/// A planar 4:2:0 frame in somebody else's memory; chroma planes are half as wide and high, rounded up.
struct I420View {
  const std::uint8_t* y = nullptr;
  const std::uint8_t* u = nullptr;
  const std::uint8_t* v = nullptr;
  int y_stride = 0;  ///< bytes from row to row
  int u_stride = 0;
  int v_stride = 0;
  int width = 0;  ///< pixels
  int height = 0;
  bool full_range = false;    ///< luma 0 to 255 as in JPEG, instead of 16 to 235
  double pixel_aspect = 1.0;  ///< a pixel's width by its height
};

/// The sensor's shape. A video of any other shape stands in its middle as a whole, with black bars beside or above and
/// below it, so that nothing of a room is cut away unseen and all streams, whatever their size, are parts of one view.
inline constexpr StreamSize kSensorShape{16, 9};

/// Puts the frame into the sensor's shape, of which a `size` of another shape shows the middle, scales it to `size` and
/// turns it clockwise by `rotation` (0, 90, 180 or 270 degrees; 90 and 270 exchange width and height). `use` is called
/// once with the result, which keeps the frame's range and ends with the call. Throws std::runtime_error for a frame
/// that cannot be scaled.
void withStreamPicture(const I420View& frame, StreamSize size, std::uint32_t rotation,
                       const std::function<void(const I420View& picture)>& use);

/// The same as NV12 in video range, strides equal to the width. `size` has even sides.
PictureBytes toNv12(const I420View& frame, StreamSize size, std::uint32_t rotation);

}  // namespace workstation
