// The commands of velmor_accuracy. Each prints one table and throws std::runtime_error with one line when it cannot.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "accuracy/labelled_pictures.h"

struct PicturesRequest {
  std::filesystem::path folder;
  Viewing viewing;
  std::optional<std::filesystem::path> json;  ///< where each picture's findings go
};

/// Whom the program finds in labelled pictures: the first half of its cycle on each, at the default sensitivity.
void measurePictures(const PicturesRequest& request);

struct RecordingsRequest {
  std::vector<std::filesystem::path> files;
  std::optional<std::filesystem::path> settings;  ///< for all; none: NAME.settings.json beside each that has one
  std::optional<double> still_from_end_s;         ///< this long before a recording's end somebody lies still
};

/// The program's cycles on recordings: whom it sees of the true people (NAME.truth.jsonl beside the recording), and its
/// events beside those that the true people lead to.
void measureRecordings(const RecordingsRequest& request);

/// Prints models/ranges.json: what each tensor of the networks holds in 32-bit floats while these recordings are
/// watched, so that it can be stored as bytes.
void measureRanges(const std::vector<std::filesystem::path>& recordings);

struct PrivacyRequest {
  std::filesystem::path tree;  ///< with the demo
  int rotation = 0;            ///< of the camera: 0 or 90 degrees
  bool mirrored = false;
};

/// How many true faces of the demo the anonymised stream shows, for a camera mounted so.
void measurePrivacy(const PrivacyRequest& request);
