// The size of a stream and its one text form, "640x360".
#pragma once

#include <cstdint>
#include <string>

/// Width and height of a stream in pixels, before any turning; ordered by width, then height.
struct StreamSize {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  bool operator==(const StreamSize&) const = default;
  bool operator<(const StreamSize& other) const {
    return width < other.width || (width == other.width && height < other.height);
  }
};

/// The application's own stream always has this size.
inline constexpr StreamSize kApplicationStream{800, 450};

/// Written "640x360".
std::string toString(StreamSize size);

/// Read from "640x360". Everybody who has to know which stream is meant asks here, so that nobody is covered on one
/// stream and shown on another. Lenient, since settings hold any text: of each part the number that it begins with
/// counts, 0 when there is none, when it is negative and when no int holds it; without an "x" the height is 0. A text
/// is in the one proper form when toString gives it back.
StreamSize streamSizeFrom(const std::string& text);
