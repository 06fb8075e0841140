#include "platform/workstation/decoding/nv12_picture.h"

#include <libyuv.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <utility>

namespace workstation {
namespace {

/// A frame with its own memory. What it holds at first is anything.
class I420Frame {
 public:
  I420Frame(int width, int height) : m_width(width), m_height(height), m_bytes(lumaSize() + 2 * chromaSize()) {}

  std::uint8_t* y() { return m_bytes.data(); }
  std::uint8_t* u() { return y() + lumaSize(); }
  std::uint8_t* v() { return u() + chromaSize(); }
  [[nodiscard]] int chromaWidth() const { return (m_width + 1) / 2; }
  I420View view() { return {y(), u(), v(), m_width, chromaWidth(), chromaWidth(), m_width, m_height, false}; }

  /// Its bytes as NV12, of even sides: the luma stays where it is, behind it the chroma planes become one.
  PictureBytes takePacked() {
    PictureBytes planes(2 * chromaSize());
    std::copy_n(u(), planes.size(), planes.data());
    libyuv::MergeUVPlane(planes.data(), chromaWidth(), planes.data() + chromaSize(), chromaWidth(), u(), m_width,
                         chromaWidth(), (m_height + 1) / 2);
    return std::move(m_bytes);
  }

 private:
  [[nodiscard]] std::size_t lumaSize() const {
    return static_cast<std::size_t>(m_width) * static_cast<std::size_t>(m_height);
  }
  [[nodiscard]] std::size_t chromaSize() const {
    return static_cast<std::size_t>(chromaWidth()) * static_cast<std::size_t>((m_height + 1) / 2);
  }

  int m_width;
  int m_height;
  PictureBytes m_bytes;
};

/// A part of a length. It begins at an even place, so that it falls on whole chroma samples.
struct Cut {
  int begin;
  int length;
};

Cut middle(int length, std::int64_t wanted) {
  const int kept = std::clamp(static_cast<int>(wanted), 1, length);
  return {(length - kept) / 2 & ~1, kept};
}

/// Along one side: which part of a frame is seen, and where on the picture.
struct Placed {
  Cut from;
  Cut to;
};

/// A frame of `length` pixels that would be `scaled` pixels long, on a picture of `shown` pixels: what goes beyond the
/// picture is cut, what is missing becomes bars, save for less than a pixel.
Placed place(int length, double scaled, int shown) {
  const double seen = std::min(scaled, static_cast<double>(shown));
  const int filled = seen > shown - 1.0 ? shown : std::max(2, static_cast<int>(std::lround(seen)) & ~1);
  return {middle(length, std::lround(length * seen / scaled)), middle(shown, filled)};
}

struct Placement {
  Placed columns;
  Placed rows;
};

Placement placed(const I420View& frame, StreamSize size) {
  constexpr double kShape = static_cast<double>(kSensorShape.width) / kSensorShape.height;
  const double sensor_width = std::max<double>(size.width, size.height * kShape);
  const double shape = frame.width * frame.pixel_aspect / frame.height;
  const double width = std::min(sensor_width, sensor_width / kShape * shape);
  return {place(frame.width, width, static_cast<int>(size.width)),
          place(frame.height, width / shape, static_cast<int>(size.height))};
}

I420View cutOut(const I420View& frame, Cut columns, Cut rows) {
  I420View cut = frame;
  cut.y += static_cast<std::ptrdiff_t>(rows.begin) * frame.y_stride + columns.begin;
  cut.u += static_cast<std::ptrdiff_t>(rows.begin / 2) * frame.u_stride + columns.begin / 2;
  cut.v += static_cast<std::ptrdiff_t>(rows.begin / 2) * frame.v_stride + columns.begin / 2;
  cut.width = columns.length;
  cut.height = rows.length;
  return cut;
}

void check(int status) {
  if (status != 0) throw std::runtime_error("a frame of this size cannot be scaled");
}

/// The view on a picture of its own, at its place there; the rest is black.
I420Frame scaled(const I420View& from, StreamSize size, Cut columns, Cut rows) {
  const auto width = static_cast<int>(size.width);
  const auto height = static_cast<int>(size.height);
  I420Frame to(width, height);
  const int chroma = to.chromaWidth();
  if (columns.length < width || rows.length < height) {
    check(libyuv::I420Rect(to.y(), width, to.u(), chroma, to.v(), chroma, 0, 0, width, height, from.full_range ? 0 : 16,
                           128, 128));
  }
  const std::ptrdiff_t corner = std::ptrdiff_t{rows.begin} * width + columns.begin;
  const std::ptrdiff_t chroma_corner = std::ptrdiff_t{rows.begin / 2} * chroma + columns.begin / 2;
  check(libyuv::I420Scale(from.y, from.y_stride, from.u, from.u_stride, from.v, from.v_stride, from.width, from.height,
                          to.y() + corner, width, to.u() + chroma_corner, chroma, to.v() + chroma_corner, chroma,
                          columns.length, rows.length, libyuv::kFilterBox));
  return to;
}

I420Frame turned(const I420View& from, std::uint32_t rotation) {
  const bool upright = rotation == 180;
  const int width = upright ? from.width : from.height;
  I420Frame to(width, upright ? from.height : from.width);
  check(libyuv::I420Rotate(from.y, from.y_stride, from.u, from.u_stride, from.v, from.v_stride, to.y(), width, to.u(),
                           to.chromaWidth(), to.v(), to.chromaWidth(), from.width, from.height,
                           static_cast<libyuv::RotationMode>(rotation)));
  return to;
}

PictureBytes packed(const I420View& from) {
  const auto luma = static_cast<std::size_t>(from.width) * static_cast<std::size_t>(from.height);
  PictureBytes nv12(luma * 3 / 2);
  check(libyuv::I420ToNV12(from.y, from.y_stride, from.u, from.u_stride, from.v, from.v_stride, nv12.data(), from.width,
                           nv12.data() + luma, from.width, from.width, from.height));
  return nv12;
}

/// A byte's way from full range, with `zero_in` as its zero, to a range of `steps` with `zero_out` as its zero.
std::array<std::uint8_t, 256> rangeTable(double zero_in, double zero_out, double steps) {
  std::array<std::uint8_t, 256> table{};
  for (std::size_t i = 0; i < table.size(); ++i) {
    table.at(i) = static_cast<std::uint8_t>(std::lround((static_cast<double>(i) - zero_in) * steps / 255.0 + zero_out));
  }
  return table;
}

/// Luma 0..255 to 16..235, chroma to 16..240 around 128 (ITU-R BT.601, section 2.5.3).
void compressRange(PictureBytes& nv12) {
  static const auto luma = rangeTable(0, 16, 219);
  static const auto chroma = rangeTable(128, 128, 224);
  const auto uv = nv12.begin() + static_cast<std::ptrdiff_t>(nv12.size() / 3 * 2);
  std::transform(nv12.begin(), uv, nv12.begin(), [](std::uint8_t value) { return luma[value]; });
  std::transform(uv, nv12.end(), uv, [](std::uint8_t value) { return chroma[value]; });
}

I420View seenOf(const I420View& frame, const Placement& where) {
  return cutOut(frame, where.columns.from, where.rows.from);
}

/// The picture in memory of its own; none where what is seen of the frame is the picture as it is.
std::optional<I420Frame> streamPicture(const I420View& frame, StreamSize size, std::uint32_t rotation) {
  const auto width = static_cast<int>(size.width);
  const auto height = static_cast<int>(size.height);
  const Placement where = placed(frame, size);
  I420View picture = seenOf(frame, where);
  const bool fits = picture.width == width && picture.height == height;
  std::optional<I420Frame> own;
  if (!fits || where.columns.to.length < width || where.rows.to.length < height) {
    own = scaled(picture, size, where.columns.to, where.rows.to);
    picture = own->view();
  }
  if (rotation != 0) own = turned(picture, rotation);
  return own;
}

}  // namespace

void withStreamPicture(const I420View& frame, StreamSize size, std::uint32_t rotation,
                       const std::function<void(const I420View& picture)>& use) {
  std::optional<I420Frame> own = streamPicture(frame, size, rotation);
  I420View picture = own ? own->view() : seenOf(frame, placed(frame, size));
  picture.full_range = frame.full_range;
  use(picture);
}

PictureBytes toNv12(const I420View& frame, StreamSize size, std::uint32_t rotation) {
  std::optional<I420Frame> own = streamPicture(frame, size, rotation);
  PictureBytes nv12 = own ? own->takePacked() : packed(seenOf(frame, placed(frame, size)));
  if (frame.full_range) compressRange(nv12);
  return nv12;
}

}  // namespace workstation
