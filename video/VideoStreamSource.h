// Frame sources: one RGB picture at a requested size and rotation.
#pragma once

#include <vdostream.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Hands out pictures of packed 8-bit R, G, B, rows top to bottom, without padding.
class ImageFrameSource {
 public:
  ImageFrameSource() = default;
  ImageFrameSource(const ImageFrameSource&) = delete;
  ImageFrameSource& operator=(const ImageFrameSource&) = delete;

  /// Makes the next getFrame take a new picture; those after it show the same one.
  virtual void setDirty() { m_dirty = true; }

  /// Writes requestedHeight * requestedWidth * 3 bytes, turned clockwise by `rotation` degrees. False after a log line.
  virtual bool getFrame(int requestedHeight, int requestedWidth, int rotation, uint8_t* pOutputPixels) = 0;

  virtual ~ImageFrameSource() = default;

 protected:
  bool m_dirty = false;  ///< the next request must fetch and convert a new frame
};

/// The camera's stream. It converts each frame once and serves the quarter turns of a cycle from that copy.
class VideoStreamSource : public ImageFrameSource {
 public:
  /// Opens and starts a stream of the given size in pixels, turned by the camera by `rotation` degrees: at 90 and 270
  /// its pictures have `width` rows of `height` pixels. Throws std::runtime_error, after logging the same text.
  VideoStreamSource(int height, int width, int rotation);

  /// A request of the stream's own size is turned by 0 or 180 degrees and one of the swapped size by 90 or 270 (for a
  /// stream that the camera turns by a quarter: the other way about). Anything else is cut and scaled to the requested
  /// size from the newest frame, never turned. A returned 180-degree picture has its bytes in reverse order: B, G, R.
  bool getFrame(int requestedHeight, int requestedWidth, int rotation, uint8_t* pOutputPixels) override;

  /// Converts an NV12 frame into the cached picture if it is due, else does nothing.
  void loadTempBuffer(uint8_t* pU8YUVData);

  /// Copies of a stream-sized RGB picture. Those named _R90 take the picture of a stream turned by a quarter.
  void rotate0(const uint8_t* pSource, uint8_t* pDest) const;
  void rotate90(const uint8_t* pSource, uint8_t* pDest) const;
  void rotate90_R90(const uint8_t* pSource, uint8_t* pDest) const;
  /// Reverses all bytes, so the channels come out as B, G, R.
  void rotate180(const uint8_t* pSource, uint8_t* pDest) const;
  void rotate270(const uint8_t* pSource, uint8_t* pDest) const;
  void rotate270_R90(const uint8_t* pSource, uint8_t* pDest) const;

 private:
  using Turn = void (VideoStreamSource::*)(const uint8_t*, uint8_t*) const;
  struct Unref {
    void operator()(VdoStream* stream) const { g_object_unref(stream); }
  };

  void openStream();
  void logActualSettings();
  void startStream();
  Turn findTurn(int requestedHeight, int requestedWidth, int rotation) const;
  bool isTurnedByCamera() const;
  std::size_t pictureBytes() const;
  bool writePicture(uint8_t* frame, int requestedHeight, int requestedWidth, int rotation, uint8_t* pOutputPixels);

  std::unique_ptr<VdoStream, Unref> m_vdoStream;
  int m_streamHeight;
  int m_streamWidth;
  int m_streamRotation;
  std::vector<uint8_t> m_tempBuffer;  ///< RGB picture of the current frame
};

/// A picture of one constant byte.
class ConstantStreamSource : public ImageFrameSource {
 public:
  explicit ConstantStreamSource(uint8_t value) : m_value(value) {}
  bool getFrame(int requestedHeight, int requestedWidth, int rotation, uint8_t* pOutputPixels) override;

 private:
  uint8_t m_value;
};

/// A raw RGB picture from a file without header. What the file lacks stays black.
class ImageFromBinaryFileSource : public ImageFrameSource {
 public:
  ImageFromBinaryFileSource(int height, int width, const std::string& path);
  /// False after a log line for another size than the picture's. The rotation is ignored.
  bool getFrame(int requestedHeight, int requestedWidth, int rotation, uint8_t* pOutputPixels) override;

 private:
  int m_imageHeight;
  int m_imageWidth;
  std::vector<uint8_t> m_imageData;
};

/// The stream that is analysed.
extern std::unique_ptr<VideoStreamSource> g_videoStreamSource;
