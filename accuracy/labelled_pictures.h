// A folder of pictures with the truth about them: truth.json and the JPEG files that it names, 1280x720 each.
//
// truth.json is a list; per picture "file", "kind" and "people". A person has some of "k" (17 times [x, y, visibility],
// in the pose network's order: 0 not labelled, 1 hidden, 2 visible), "bbox" ([x, y, width, height]), "area", "crowd"
// (1: a group, not labelled one by one), "mid" (middle of the shoulders), "hip", "head" (the head's size), "findable";
// or is "ignore" ([x, y, radius]): somebody who counts neither way. All in pixels.
#pragma once

#include <filesystem>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "accuracy/scoring.h"

/// How the camera sees the pictures of a folder.
struct Viewing {
  int turn = 0;      ///< degrees clockwise: 0, 90, 180 or 270
  double light = 1;  ///< every byte of the (gamma coded) picture is multiplied by it
};

struct FolderPicture {
  std::string file;  ///< without its folder
  std::string kind;
  LabelledPicture truth;
};

/// The folder's truth.json. Throws std::runtime_error with one line that names the file and what is wrong.
std::vector<FolderPicture> readTruth(const std::filesystem::path& folder);

/// The truth in the picture as `viewed` shows it. Turned by a quarter a picture is 720x1280; it is shrunk to fit the
/// analysis picture's height and stands in its middle.
LabelledPicture viewed(const LabelledPicture& truth, const Viewing& viewing);

/// The same for an RGB picture of 1280x720; what is left over at the sides is grey (114).
cv::Mat viewed(const cv::Mat& picture, const Viewing& viewing);

/// The RGB pixels of a JPEG file of 1280x720. Throws std::runtime_error with one line.
cv::Mat readJpeg(const std::filesystem::path& file);
