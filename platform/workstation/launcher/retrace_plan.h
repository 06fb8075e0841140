// A replay of a trace: what the trace itself says of the camera that it was made with.
#pragma once

#include <string>

#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/launcher/launch_request.h"

namespace workstation {

/// Whether what is replayed is a trace and not a video: it begins with an object.
bool isTraceReplay(const LaunchRequest& request);

/// A parameter of the group that decides what the networks see: a trace cannot tell what it would change. None: empty.
std::string pictureKeyIn(const ParameterGroup& group);

/// The camera and the settings that a trace begins with.
struct RecordedCamera {
  CameraDescription camera;    ///< its source is the trace
  std::string settings_place;  ///< "FILE line 2"
  bool was_live = false;       ///< its times are those of the day
};

/// Throws std::runtime_error: "FILE line N: what is wrong; what is allowed".
RecordedCamera recordedCamera(const std::string& trace);

/// Throws UsageError for what a trace has already or cannot give: other settings, other people, other pictures.
void checkTraceReplay(const LaunchRequest& request);

}  // namespace workstation
