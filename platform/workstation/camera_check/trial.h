// Tries a camera's source as the program would watch it, for a bounded time.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/workstation/decoding/source/camera_source.h"
#include "platform/workstation/decoding/video_pipeline.h"

namespace workstation {

/// How a trial ended.
enum class TrialEnd {
  kFits,          ///< it can be watched here
  kBadAddress,    ///< nothing that can be opened
  kUnknownHost,   ///< nobody has this name
  kRefused,       ///< a machine is there, and nothing of it listens at this port
  kNoRoute,       ///< no way leads to this machine
  kNoAnswer,      ///< nothing answers
  kCertificate,   ///< it shows a certificate that is not believed
  kNoTls,         ///< it does not speak TLS
  kLoginMissing,  ///< it asks for a user and a password
  kLoginWrong,    ///< it refuses those that it was given
  kNotFound,      ///< it has nothing at this path
  kNoVideo,       ///< what it sends holds no picture
  kNoDecoder,     ///< its pictures cannot be decoded with what is installed
  kSilent,        ///< it takes the request and sends no picture
  kBroken,        ///< anything else
  kTooMuch,       ///< larger pictures, or more bytes for one, than the program takes
  kTooSlow,       ///< this machine cannot decode it besides the analysis
};

struct TrialLimits {
  std::chrono::seconds connecting{4};
  std::chrono::seconds first_picture{10};
  std::chrono::seconds watching{3};  ///< at least
  std::chrono::seconds telling{
      6};  ///< a network camera is watched so long for a word about when its pictures were taken

  [[nodiscard]] std::chrono::seconds whole() const { return connecting + first_picture + telling; }
};

/// What was found. Nothing in it holds a user's name or a password.
struct Trial {
  TrialEnd end = TrialEnd::kNoAnswer;
  std::string reason;       ///< the words of the system or of GStreamer; empty for a source that fits
  std::string fingerprint;  ///< of a certificate that is not believed
  std::string missing;      ///< GStreamer's installer detail for a decoder that is missing
  std::string codec;        ///< "H.264 (High Profile)"; empty where it is not told
  std::string transport;    ///< "RTSP over TCP"; empty for what is on this machine
  std::string left_out;     ///< why pictures were left out before they were decoded
  std::optional<std::chrono::nanoseconds> delay;  ///< mean from capture to arrival; nothing where it is not told
  double rate = 0;                                ///< pictures a second that came
  double processor_ms = 0;                        ///< processor time for each of them, on one core
  unsigned cores = 1;                             ///< of this machine
  std::shared_ptr<const DecodedFrame> picture;    ///< the last one
};

/// Returns within the limits, whatever the source does; what it has begun may then go on for the rest of the process,
/// which should end. Once in a process: the processor time is the process's.
Trial trySource(const CameraSource& source, const TrialLimits& limits);

/// The share of one core that decoding takes.
double coresTaken(const Trial& trial);

}  // namespace workstation
