// The commands of velmor_accuracy. Each prints one table and throws std::runtime_error with one line when it cannot.
#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "accuracy/labelled_pictures.h"

struct PicturesRequest {
  std::filesystem::path folder;
  Viewing viewing;
  std::optional<std::filesystem::path> json;  ///< where each picture's findings go
};

/// Whom the program finds in labelled pictures: the first half of its cycle on each, at the default sensitivity.
void measurePictures(const PicturesRequest& request);
