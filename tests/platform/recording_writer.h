// Small videos whose every frame can be told from the others.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct Recording {
  int width = 64;
  int height = 36;
  int fps = 10;
  int frames = 20;
  bool corners = false;                         ///< the left top quarter is dark, so that turning shows
  int first_ms = 0;                             ///< time stamp of the first frame
  std::string format = "matroskamux name=mux";  ///< encoder and container; here uncompressed
  std::string more{};                           ///< further tracks
};

/// Luma of frame `index`: 40, 44, 48 ...
constexpr int greyOf(int index) { return 40 + 4 * index; }

/// Encodes the recording with GStreamer. False when that fails.
bool writeRecording(const Recording& recording, const std::string& file);

/// A Matroska film whose last cluster of frames has a time of nine bytes, which no time can have.
std::string brokenAtTheEnd(std::string film);
