// A replay of a trace: what the trace itself says of the camera that it was made with.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/launcher/launch_request.h"

namespace workstation {

/// Whether the file's first line is the header of a trace.
bool isTraceFile(const std::filesystem::path& file);

/// Whether what is replayed is a trace and not a video: it begins with an object.
bool isTraceReplay(const LaunchRequest& request);

/// A parameter of the group that decides what the networks see: a trace cannot tell what it would change. None: empty.
std::string pictureKeyIn(const ParameterGroup& group);

/// The camera and the settings that a trace begins with.
struct RecordedCamera {
  CameraDescription camera;    ///< its source is the trace
  std::string settings_place;  ///< "FILE line 2"
};

/// Throws std::runtime_error: "FILE line N: what is wrong; what is allowed".
RecordedCamera recordedCamera(const std::string& trace);

/// An alarm's beginning.
struct Alarm {
  std::string event;
  double begin;  ///< seconds on the clock of a replay
};

/// What a trace tells of the run that it was made in.
struct RecordedRun {
  double begin_s = 0;       ///< where a replay's times count from: 0, or of a live run seconds since 1970
  std::vector<Alarm> told;  ///< as they were decided then
  std::string inexact;      ///< why a replay may tell others, one line; empty for a trace from a run's beginning on
};

/// Reads a trace to its end, or to a line that its replay will refuse. Throws std::runtime_error with one line for
/// settings that somebody saved meanwhile and that are none.
RecordedRun recordedRun(const std::string& trace, const std::filesystem::path& manifest);

/// Throws UsageError for what a trace has already or cannot give: other settings, other people, other pictures.
void checkTraceReplay(const LaunchRequest& request);

}  // namespace workstation
