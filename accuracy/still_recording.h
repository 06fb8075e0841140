// Pictures as a camera's recording, so that they take a video's way into the program.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <opencv2/core.hpp>

/// How long each picture stands.
inline constexpr std::chrono::seconds kStillLength{1};

/// Writes `count` RGB pictures of the same size, in video range and uncompressed but for the halved chroma. Throws
/// std::runtime_error.
void writeStills(const std::filesystem::path& file, int count, const std::function<cv::Mat(int index)>& picture);
