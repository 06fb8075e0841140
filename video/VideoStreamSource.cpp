#include "video/VideoStreamSource.h"

#include <syslog.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "video/imgconverter.h"

namespace {

constexpr int kBytesPerPixel = 3;

struct ErrorDeleter {
  void operator()(GError* error) const { g_error_free(error); }
};
using ErrorOwner = std::unique_ptr<GError, ErrorDeleter>;

struct MapUnref {
  void operator()(VdoMap* map) const { g_object_unref(map); }
};
using MapOwner = std::unique_ptr<VdoMap, MapUnref>;

/// The text of a failure; takes the error over.
std::string textOf(GError* error) {
  const ErrorOwner owner(error);
  return error != nullptr ? error->message : "unknown error";
}

/// The text of a failed construction. Writing starts at the initial text's beginning, so its end shows behind a
/// shorter message.
std::string constructionError(const std::string& message) {
  std::stringstream text("VideoStreamSource::VideoStreamSource error :");
  text << message;
  return text.str();
}

[[noreturn]] void failConstruction(const std::string& message) {
  const std::string text = constructionError(message);
  syslog(LOG_ERR, "%s", text.c_str());
  throw std::runtime_error(text);
}

/// Copies a picture of `rows` x `columns` so that dst(i, j) = src(first + i * rowStep + j * columnStep), all in pixels.
/// The destination has `columns` rows of `rows` pixels. A row of it reads as many lines of the cache as the next
/// twenty, so they stay there. Pixels are moved as four bytes, of which the next pixel overwrites the last: half the
/// work of three. Not the last of a row, nor the source's own, behind which there is nothing.
void copyTransposed(const uint8_t* source, uint8_t* dest, int rows, int columns, std::ptrdiff_t first,
                    std::ptrdiff_t rowStep, std::ptrdiff_t columnStep) {
  const std::ptrdiff_t lastPixel = std::ptrdiff_t{rows} * columns - 1;
  for (int row = 0; row < columns; ++row) {
    const std::ptrdiff_t start = first + row * rowStep;
    const uint8_t* in = source + start * kBytesPerPixel;
    uint8_t* const out = dest + std::ptrdiff_t{row} * rows * kBytesPerPixel;
    const bool beginsLast = start == lastPixel;
    if (beginsLast) std::memcpy(out, in, kBytesPerPixel);
    for (std::ptrdiff_t i = beginsLast ? 1 : 0; i < rows - 1; ++i) {
      std::memcpy(out + i * kBytesPerPixel, in + i * columnStep * kBytesPerPixel, kBytesPerPixel + 1);
    }
    const std::ptrdiff_t last = rows - 1;
    std::memcpy(out + last * kBytesPerPixel, in + last * columnStep * kBytesPerPixel, kBytesPerPixel);
  }
}

/// dst[size - 1 - i] = src[i], eight bytes at a time.
void copyReversed(const uint8_t* source, uint8_t* dest, std::size_t size) {
  std::size_t done = 0;
  for (std::uint64_t bytes = 0; done + sizeof bytes <= size; done += sizeof bytes) {
    std::memcpy(&bytes, source + done, sizeof bytes);
    bytes = __builtin_bswap64(bytes);
    std::memcpy(dest + size - done - sizeof bytes, &bytes, sizeof bytes);
  }
  std::reverse_copy(source + done, source + size, dest);
}

/// dst(c, rows - 1 - r) = src(r, c)
void turnClockwise(const uint8_t* source, uint8_t* dest, int rows, int columns) {
  copyTransposed(source, dest, rows, columns, std::ptrdiff_t{rows - 1} * columns, 1, -columns);
}

/// dst(columns - 1 - c, r) = src(r, c)
void turnCounterClockwise(const uint8_t* source, uint8_t* dest, int rows, int columns) {
  copyTransposed(source, dest, rows, columns, columns - 1, -1, columns);
}

}  // namespace

VideoStreamSource::VideoStreamSource(int height, int width, int rotation)
    : m_streamHeight(height), m_streamWidth(width), m_streamRotation(rotation), m_tempBuffer(pictureBytes()) {
  openStream();
  logActualSettings();
  startStream();
  syslog(LOG_INFO, "Successfully created VideoStreamSource instance");
}

void VideoStreamSource::openStream() {
  const MapOwner settings(vdo_map_new());
  vdo_map_set_uint32(settings.get(), "channel", 1);
  vdo_map_set_uint32(settings.get(), "format", VDO_FORMAT_YUV);
  vdo_map_set_uint32(settings.get(), "width", static_cast<guint32>(m_streamWidth));
  vdo_map_set_uint32(settings.get(), "height", static_cast<guint32>(m_streamHeight));
  vdo_map_set_uint32(settings.get(), "rotation", static_cast<guint32>(m_streamRotation));

  GError* error = nullptr;
  m_vdoStream.reset(vdo_stream_new(settings.get(), nullptr, &error));
  if (!m_vdoStream) failConstruction("Failed to create new VDO stream from settings. " + textOf(error));
  if (vdo_stream_attach(m_vdoStream.get(), nullptr, &error) == FALSE) {
    failConstruction("Failed to attach VDO stream to stream. " + textOf(error));
  }
}

void VideoStreamSource::logActualSettings() {
  GError* error = nullptr;
  const MapOwner actual(vdo_stream_get_settings(m_vdoStream.get(), &error));
  if (!actual) {
    const std::string text = constructionError("Failed to attach retrieve VDO stream settings. " + textOf(error));
    syslog(LOG_ERR, "%s", text.c_str());
    return;
  }
  syslog(LOG_INFO, "Starting stream: VDO_FORMAT_YUV, %ux%u, rotation %u, %u fps\n",
         vdo_map_get_uint32(actual.get(), "width", 0), vdo_map_get_uint32(actual.get(), "height", 0),
         vdo_map_get_uint32(actual.get(), "rotation", 0), vdo_map_get_uint32(actual.get(), "framerate", 0));
}

void VideoStreamSource::startStream() {
  GError* error = nullptr;
  if (vdo_stream_start(m_vdoStream.get(), &error) == FALSE) {
    failConstruction("Failed to start VDO stream. " + textOf(error));
  }
}

bool VideoStreamSource::getFrame(int requestedHeight, int requestedWidth, int rotation, uint8_t* pOutputPixels) {
  GError* error = nullptr;
  VdoBuffer* vdoBuffer = vdo_stream_get_buffer(m_vdoStream.get(), &error);
  if (vdoBuffer == nullptr) {
    syslog(LOG_ERR, "VideoStreamSource::getFrame failed to get VDO buffer. %s", textOf(error).c_str());
    return false;
  }
  auto* const frame = static_cast<uint8_t*>(vdo_buffer_get_data(vdoBuffer));
  try {
    if (!writePicture(frame, requestedHeight, requestedWidth, rotation, pOutputPixels)) return false;
  } catch (...) {
    syslog(LOG_ERR, "VideoStreamSource::getFrame Unexpected error while converting YUV data to RGB.");
    return false;
  }
  if (vdo_stream_buffer_unref(m_vdoStream.get(), &vdoBuffer, &error) == FALSE) {
    syslog(LOG_ERR, "Failed to release VDO stream buffer: %s", textOf(error).c_str());
    return false;
  }
  return true;
}

bool VideoStreamSource::writePicture(uint8_t* frame, int requestedHeight, int requestedWidth, int rotation,
                                     uint8_t* pOutputPixels) {
  if (m_streamRotation % 90 != 0 || m_streamRotation < 0 || m_streamRotation > 270) return true;
  if (const Turn turn = findTurn(requestedHeight, requestedWidth, rotation); turn != nullptr) {
    loadTempBuffer(frame);
    (this->*turn)(m_tempBuffer.data(), pOutputPixels);
    return true;
  }
  if (!convertCropScaleU8yuvToRGB(
          frame, static_cast<unsigned int>(m_streamWidth), static_cast<unsigned int>(m_streamHeight), pOutputPixels,
          static_cast<unsigned int>(requestedWidth), static_cast<unsigned int>(requestedHeight))) {
    syslog(LOG_ERR, "VideoStreamSource::getFrame convertCropScaleU8yuvToRGB failed to convert YUV data to RGB data.");
    return false;
  }
  return true;
}

VideoStreamSource::Turn VideoStreamSource::findTurn(int requestedHeight, int requestedWidth, int rotation) const {
  const bool isTurned = isTurnedByCamera();
  const bool hasStreamSize = requestedHeight == m_streamHeight && requestedWidth == m_streamWidth;
  const bool hasSwappedSize = requestedWidth == m_streamHeight && requestedHeight == m_streamWidth;
  if (isTurned ? hasSwappedSize : hasStreamSize) {
    if (rotation == 0) return &VideoStreamSource::rotate0;
    if (rotation == 180) return &VideoStreamSource::rotate180;
  }
  if (isTurned ? hasStreamSize : hasSwappedSize) {
    if (rotation == 90) return isTurned ? &VideoStreamSource::rotate90_R90 : &VideoStreamSource::rotate90;
    if (rotation == 270) return isTurned ? &VideoStreamSource::rotate270_R90 : &VideoStreamSource::rotate270;
  }
  return nullptr;
}

bool VideoStreamSource::isTurnedByCamera() const { return m_streamRotation == 90 || m_streamRotation == 270; }

std::size_t VideoStreamSource::pictureBytes() const {
  return static_cast<std::size_t>(m_streamHeight) * static_cast<std::size_t>(m_streamWidth) * kBytesPerPixel;
}

void VideoStreamSource::loadTempBuffer(uint8_t* pU8YUVData) {
  if (!m_dirty) return;
  const auto width = static_cast<unsigned int>(isTurnedByCamera() ? m_streamHeight : m_streamWidth);
  const auto height = static_cast<unsigned int>(isTurnedByCamera() ? m_streamWidth : m_streamHeight);
  convertU8yuvToRGBlibYuv(width, height, pU8YUVData, m_tempBuffer.data());
  m_dirty = false;
}

void VideoStreamSource::rotate0(const uint8_t* pSource, uint8_t* pDest) const {
  std::memcpy(pDest, pSource, pictureBytes());
}

void VideoStreamSource::rotate90(const uint8_t* pSource, uint8_t* pDest) const {
  turnClockwise(pSource, pDest, m_streamHeight, m_streamWidth);
}

void VideoStreamSource::rotate90_R90(const uint8_t* pSource, uint8_t* pDest) const {
  turnClockwise(pSource, pDest, m_streamWidth, m_streamHeight);
}

void VideoStreamSource::rotate180(const uint8_t* pSource, uint8_t* pDest) const {
  copyReversed(pSource, pDest, pictureBytes());
}

void VideoStreamSource::rotate270(const uint8_t* pSource, uint8_t* pDest) const {
  turnCounterClockwise(pSource, pDest, m_streamHeight, m_streamWidth);
}

void VideoStreamSource::rotate270_R90(const uint8_t* pSource, uint8_t* pDest) const {
  turnCounterClockwise(pSource, pDest, m_streamWidth, m_streamHeight);
}

bool ConstantStreamSource::getFrame(int requestedHeight, int requestedWidth, int /*rotation*/, uint8_t* pOutputPixels) {
  std::fill_n(pOutputPixels, std::ptrdiff_t{requestedHeight} * requestedWidth * kBytesPerPixel, m_value);
  return true;
}

ImageFromBinaryFileSource::ImageFromBinaryFileSource(int height, int width, const std::string& path)
    : m_imageHeight(height),
      m_imageWidth(width),
      m_imageData(static_cast<std::size_t>(height) * static_cast<std::size_t>(width) * kBytesPerPixel) {
  std::ifstream file(path, std::ios::binary);
  file.read(reinterpret_cast<char*>(m_imageData.data()), static_cast<std::streamsize>(m_imageData.size()));
}

bool ImageFromBinaryFileSource::getFrame(int requestedHeight, int requestedWidth, int /*rotation*/,
                                         uint8_t* pOutputPixels) {
  if (requestedHeight != m_imageHeight || requestedWidth != m_imageWidth) {
    syslog(LOG_ERR, "ImageFromBinaryFileSource::getFrame mismatch in image dimensions. Expect %d == %d and %d == %d ",
           requestedHeight, m_imageHeight, requestedWidth, m_imageWidth);
    return false;
  }
  std::copy(m_imageData.begin(), m_imageData.end(), pOutputPixels);
  return true;
}
