#include "video/imgconverter.h"

#include <libyuv.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct Free {
  void operator()(uint8_t* memory) const { std::free(memory); }
};
using Buffer = std::unique_ptr<uint8_t, Free>;

/// A buffer of four bytes a pixel; empty when memory is short.
Buffer allocateArgb(unsigned int width, unsigned int height) {
  return Buffer(static_cast<uint8_t*>(std::malloc(std::size_t{width} * height * 4)));
}

struct Crop {
  unsigned int left;
  unsigned int top;
  unsigned int width;
  unsigned int height;
};

/// The largest centred rectangle of the destination's aspect ratio. Empty when the destination is.
Crop centredCrop(unsigned int srcWidth, unsigned int srcHeight, unsigned int dstWidth, unsigned int dstHeight) {
  if (dstWidth == 0 || dstHeight == 0) return {0, 0, 0, 0};
  const float aspect = static_cast<float>(dstWidth) / static_cast<float>(dstHeight);
  auto width = static_cast<float>(srcWidth);
  float height = width / aspect;
  if (height > static_cast<float>(srcHeight)) {
    height = static_cast<float>(srcHeight);
    width = height * aspect;
  }
  const auto wholeWidth = static_cast<unsigned int>(width);
  const auto wholeHeight = static_cast<unsigned int>(height);
  return {(srcWidth - wholeWidth) >> 1U, (srcHeight - wholeHeight) >> 1U, wholeWidth, wholeHeight};
}

using Rgb = std::array<double, 3>;

/// R, G, B of one pixel, nominally 0 to 1.
Rgb toRgb(uint8_t yByte, uint8_t uByte, uint8_t vByte) {
  const double y = yByte / 255.0;
  const double u = uByte / 255.0 - 0.5;
  const double v = vByte / 255.0 - 0.5;
  return {y + 1.13983 * v, y - 0.39465 * u - 0.5806 * v, y + 2.03211 * u};
}

/// Calls store(pixel number, rgb) for every pixel of an NV12 frame, row by row.
template <typename Store>
void forEachPixel(unsigned int width, unsigned int height, const uint8_t* frame, Store store) {
  const uint8_t* const chromaPlane = frame + std::size_t{width} * height;
  for (unsigned int y = 0; y < height; ++y) {
    const uint8_t* chroma = chromaPlane + std::size_t{width} * (y >> 1U);
    for (unsigned int x = 0; x < width; ++x) {
      const std::size_t pixel = std::size_t{width} * y + x;
      store(pixel, toRgb(frame[pixel], chroma[0], chroma[1]));
      if (x % 2 == 1) chroma += 2;
    }
  }
}

}  // namespace

void convertU8yuvToRGBlibYuv(unsigned int width, unsigned int height, uint8_t* in, uint8_t* out) {
  const int w = static_cast<int>(width);
  const int result =
      libyuv::NV12ToRAW(in, w, in + std::size_t{width} * height, w, out, w * 3, w, static_cast<int>(height));
  if (result != 0) syslog(LOG_INFO, "%s: Failed NV12ToRAW(), result=%d!", "convertU8yuvToRGBlibYuv", result);
}

bool convertCropScaleU8yuvToRGB(const uint8_t* nv12Data, unsigned int srcWidth, unsigned int srcHeight,
                                uint8_t* rgbData, unsigned int dstWidth, unsigned int dstHeight) {
  constexpr const char* kName = "convertCropScaleU8yuvToRGB";
  const Buffer big = allocateArgb(srcWidth, srcHeight);
  if (!big) {
    syslog(LOG_INFO, "%s: Failed allocating big tempARGB buffer: %s", kName, std::strerror(errno));
    return false;
  }
  const Buffer small = allocateArgb(dstWidth, dstHeight);
  if (!small) {
    syslog(LOG_INFO, "%s: Failed allocating small tempARGB buffer: %s", kName, std::strerror(errno));
    return false;
  }

  const int srcStride = static_cast<int>(srcWidth);
  int result = libyuv::NV12ToARGB(nv12Data, srcStride, nv12Data + std::size_t{srcWidth} * srcHeight, srcStride,
                                  big.get(), srcStride * 4, srcStride, static_cast<int>(srcHeight));
  if (result != 0) {
    syslog(LOG_INFO, "%s: Failed NV12ToARGB() with result=%d", kName, result);
    return false;
  }

  const Crop crop = centredCrop(srcWidth, srcHeight, dstWidth, dstHeight);
  const uint8_t* const cropStart = big.get() + (std::size_t{crop.top} * srcWidth + crop.left) * 4;
  const int dstStride = static_cast<int>(dstWidth) * 4;
  result = libyuv::ARGBScale(cropStart, srcStride * 4, static_cast<int>(crop.width), static_cast<int>(crop.height),
                             small.get(), dstStride, static_cast<int>(dstWidth), static_cast<int>(dstHeight),
                             libyuv::kFilterBilinear);
  if (result != 0) {
    syslog(LOG_INFO, "%s: Failed ARGBScale() with result=%d", kName, result);
    return false;
  }
  ARGBtoRAW(small.get(), rgbData, dstWidth, dstHeight);
  return true;
}

void ARGBtoRAW(const uint8_t* in, uint8_t* out, unsigned int width, unsigned int height) {
  const std::size_t pixels = std::size_t{width} * height;
  for (std::size_t i = 0; i < pixels; ++i) {
    out[i * 3] = in[i * 4 + 2];
    out[i * 3 + 1] = in[i * 4 + 1];
    out[i * 3 + 2] = in[i * 4];
  }
}

void convertU8yuvToRGBnaive(unsigned int width, unsigned int height, uint8_t* in, uint8_t* out) {
  forEachPixel(width, height, in, [out](std::size_t pixel, const Rgb& rgb) {
    for (std::size_t c = 0; c < 3; ++c) {
      const double value = rgb[c] * 255.0;
      out[pixel * 3 + c] = static_cast<uint8_t>(value < 0.0 ? 0U : static_cast<unsigned int>(value));
    }
  });
}

void convertU8yuvToFloat32RGB(unsigned int width, unsigned int height, uint8_t* inBuffer, float* outBuffer,
                              float outSwing, float outCenter) {
  const float lo = outCenter - outSwing / 2.0F;
  const float hi = outCenter + outSwing / 2.0F;
  forEachPixel(width, height, inBuffer, [=](std::size_t pixel, const Rgb& rgb) {
    for (std::size_t c = 0; c < 3; ++c) {
      const auto value = static_cast<float>(static_cast<double>(lo) + rgb[c] * static_cast<double>(outSwing));
      outBuffer[pixel * 3 + c] = std::min(std::max(value, lo), hi);
    }
  });
}
