// Camera frames in NV12 (a Y plane, then interleaved U, V at half size; row strides equal the width) to packed pixels
// of three channels R, G, B. Sizes are in pixels; every output buffer is the caller's.
#pragma once

#include <cstdint>

/// Converts a whole frame to 8-bit RGB. A failure is only logged, the output is then undefined.
void convertU8yuvToRGBlibYuv(unsigned int width, unsigned int height, uint8_t* in, uint8_t* out);

/// Cuts the largest centred rectangle of the destination's aspect ratio out of a frame and scales it (bilinear) to
/// 8-bit RGB. False after a log line when memory is short or a size is unusable.
bool convertCropScaleU8yuvToRGB(const uint8_t* nv12Data, unsigned int srcWidth, unsigned int srcHeight,
                                uint8_t* rgbData, unsigned int dstWidth, unsigned int dstHeight);

/// Four bytes B, G, R, A to three bytes R, G, B.
void ARGBtoRAW(const uint8_t* in, uint8_t* out, unsigned int width, unsigned int height);

/// Converts a whole frame to 8-bit RGB by the plain formula, in double precision. Negative values become 0, values
/// above 255 wrap around.
void convertU8yuvToRGBnaive(unsigned int width, unsigned int height, uint8_t* in, uint8_t* out);

/// Converts a whole frame to float RGB of the range outCenter - outSwing / 2 to outCenter + outSwing / 2, clamped.
void convertU8yuvToFloat32RGB(unsigned int width, unsigned int height, uint8_t* inBuffer, float* outBuffer,
                              float outSwing, float outCenter);
