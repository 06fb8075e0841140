// What a stream's pictures are coded with, and what is missing where they cannot be decoded.
#pragma once

#include <gst/gst.h>

#include <string>

namespace workstation {

/// "H.264 (High Profile)": what the decoder inside the pipeline is given. Empty while nothing is decoded.
std::string codecIn(GstElement* pipeline);

/// The installer detail of a message about something that is not installed: "gstreamer|1.0|NAME|...|decoder-video/...".
/// Empty for any other message.
std::string missingIn(GstMessage* message);

}  // namespace workstation
