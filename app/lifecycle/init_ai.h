// The step of start-up that opens the models and the camera's streams.
#pragma once

#include <memory>
#include <string>

class BodypixPoseEstimator;

/// A pose estimator with the program's thresholds. Throws as its constructor does.
std::unique_ptr<BodypixPoseEstimator> makeEstimator(const std::string& modelFilepath);

/// Sets up both pose estimators, the analysis stream and the validator from the loaded settings. 0 on success, -1 after
/// a log line. Throws when a pose model or one of the camera's streams cannot be opened.
int init_ai();
