// A stream of the camera, as the program takes pictures from it.
#pragma once

#include <gtest/gtest.h>
#include <vdostream.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

#include "platform/support/owners.h"

using StreamPtr = GLibPtr<VdoStream>;

/// Throws std::runtime_error with the camera's reason.
inline StreamPtr newStream(guint32 width, guint32 height, guint32 rotation = 0, guint32 format = VDO_FORMAT_YUV) {
  const GLibPtr<VdoMap> settings(vdo_map_new());
  const std::pair<const char*, guint32> values[] = {
      {"channel", 1}, {"format", format}, {"width", width}, {"height", height}, {"rotation", rotation}};
  for (const auto& [name, value] : values) vdo_map_set_uint32(settings.get(), name, value);
  CaughtError error;
  StreamPtr stream(vdo_stream_new(settings.get(), nullptr, error.out()));
  EXPECT_EQ(stream == nullptr, static_cast<bool>(error));
  if (!stream) throw std::runtime_error(error.text());
  return stream;
}

inline StreamPtr openStream(guint32 width, guint32 height, guint32 rotation = 0) {
  StreamPtr stream = newStream(width, height, rotation);
  vdo_stream_start(stream.get(), nullptr);
  return stream;
}

/// The stream's bytes now, of which `size` must be readable; none when the request fails.
inline std::vector<std::uint8_t> pictureOf(const StreamPtr& stream, std::size_t size) {
  CaughtError error;
  VdoBuffer* buffer = vdo_stream_get_buffer(stream.get(), error.out());
  EXPECT_EQ(buffer == nullptr, static_cast<bool>(error));
  if (buffer == nullptr) return {};
  const auto* data = static_cast<const std::uint8_t*>(vdo_buffer_get_data(buffer));
  std::vector<std::uint8_t> bytes(data, data + size);
  EXPECT_TRUE(vdo_stream_buffer_unref(stream.get(), &buffer, nullptr));
  EXPECT_EQ(buffer, nullptr);
  return bytes;
}

/// The first luma of the picture now; -1 when the request fails.
inline int lumaOf(const StreamPtr& stream) {
  const auto bytes = pictureOf(stream, 1);
  return bytes.empty() ? -1 : bytes.front();
}

/// What a stream tells of itself now.
inline guint32 settingOf(const StreamPtr& stream, const char* name) {
  return vdo_map_get_uint32(GLibPtr<VdoMap>(vdo_stream_get_settings(stream.get(), nullptr)).get(), name, 77);
}
