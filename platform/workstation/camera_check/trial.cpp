#include "platform/workstation/camera_check/trial.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <ctime>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "platform/workstation/camera_check/reachability.h"
#include "platform/workstation/decoding/video_source.h"

namespace workstation {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kLook = 50ms;  // between two looks at a pipeline's complaints

double processorSeconds() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  constexpr double kNano = 1e-9;
  return static_cast<double>(time.tv_sec) + kNano * static_cast<double>(time.tv_nsec);
}

/// From capture to arrival; nothing where the stream does not tell.
std::optional<std::chrono::nanoseconds> delayOf(const DecodedFrame& frame) {
  if (!frame.captured().is_known) return std::nullopt;
  return frame.taken() - frame.captured().time;
}

/// Empty for what is on this machine.
std::string transportOf(const std::string& uri, VideoPipeline::Transport transport) {
  if (!takesLogin(uri)) return "";
  const bool is_rtsp = g_ascii_strncasecmp(uri.c_str(), "rtsp", 4) == 0;
  std::string protocol = is_rtsp ? "RTSP" : "HTTP";
  if (takesCertificate(uri)) return protocol + " over TLS";
  if (!is_rtsp) return protocol;
  return transport == VideoPipeline::Transport::kTcp ? "RTSP over TCP"
                                                     : "RTSP over UDP: packets that a network loses tear pictures";
}

/// Whether it is pictures that cannot be decoded, or a protocol that is not spoken; everything else is no video.
bool isOfPictures(const std::string& missing) {
  constexpr std::array kParts{"video/", "image/", "application/x-rtp", "urisource-"};
  return std::any_of(kParts.begin(), kParts.end(),
                     [&missing](const char* part) { return missing.find(part) != std::string::npos; });
}

/// What GStreamer's error means. A login that is missing and one that is wrong look alike to it.
TrialEnd endFor(const Breakdown& broken, bool signs_in) {
  if (broken.domain == GST_RESOURCE_ERROR) {
    if (broken.code == GST_RESOURCE_ERROR_NOT_AUTHORIZED) {
      return signs_in ? TrialEnd::kLoginWrong : TrialEnd::kLoginMissing;
    }
    return broken.code == GST_RESOURCE_ERROR_NOT_FOUND ? TrialEnd::kNotFound : TrialEnd::kBroken;
  }
  if (!broken.missing.empty()) return isOfPictures(broken.missing) ? TrialEnd::kNoDecoder : TrialEnd::kNoVideo;
  if (broken.domain == GST_CORE_ERROR) {
    return broken.code == GST_CORE_ERROR_MISSING_PLUGIN ? TrialEnd::kNoDecoder : TrialEnd::kBroken;
  }
  if (broken.domain == GST_LIBRARY_ERROR && broken.code == GST_LIBRARY_ERROR_SETTINGS) return TrialEnd::kTooMuch;
  if (broken.domain != GST_STREAM_ERROR) return TrialEnd::kBroken;
  switch (broken.code) {
    case GST_STREAM_ERROR_CODEC_NOT_FOUND:
      return TrialEnd::kNoDecoder;
    case GST_STREAM_ERROR_TYPE_NOT_FOUND:
    case GST_STREAM_ERROR_WRONG_TYPE:
      return TrialEnd::kNoVideo;
    default:
      return TrialEnd::kBroken;
  }
}

/// One trial, on a thread of its own. What it has found so far may be read at any time.
class Attempt {
 public:
  Attempt(const CameraSource& source, const TrialLimits& limits) : m_source(source), m_limits(limits) {
    m_found.cores = std::max(1U, std::thread::hardware_concurrency());
  }

  void run();
  /// What was found when it is over, or when no more can be waited for.
  Trial found(Clock::time_point until);

 private:
  bool connects();
  bool plays(VideoPipeline::Transport transport);
  void watches(VideoPipeline& pipeline);
  void endsFor(const VideoPipeline& pipeline, bool signs_in);
  void put(const std::function<void(Trial&)>& change);
  void ends(TrialEnd end, const std::string& reason);

  const CameraSource m_source;
  const TrialLimits m_limits;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  Trial m_found;
  bool m_is_over = false;
};

void Attempt::put(const std::function<void(Trial&)>& change) {
  const std::scoped_lock lock(m_mutex);
  change(m_found);
}

void Attempt::ends(TrialEnd end, const std::string& reason) {
  put([&](Trial& found) {
    found.end = end;
    found.reason = withoutSecrets(reason);
  });
}

void Attempt::run() {
  try {
    // As the program does: what does not come over TCP may come over UDP.
    if (connects() && !plays(VideoPipeline::Transport::kTcp)) plays(VideoPipeline::Transport::kUdp);
  } catch (const std::exception& error) {
    ends(TrialEnd::kBadAddress, error.what());
  }
  const std::scoped_lock lock(m_mutex);
  m_is_over = true;
  m_changed.notify_all();
}

bool Attempt::connects() {
  const Reach reached = reach(m_source.uri, m_source.certificate, m_limits.connecting);
  if (reached.end == TrialEnd::kFits) return true;
  ends(reached.end, reached.reason);
  put([&](Trial& found) { found.fingerprint = reached.fingerprint; });
  return false;
}

/// False when the camera wants another transport.
bool Attempt::plays(VideoPipeline::Transport transport) {
  const bool signs_in = !loginOf(m_source).user.empty();
  ends(TrialEnd::kSilent, "");  // until something else is known
  // Never closed: closing may last for ever, and the process ends soon.
  auto& pipeline = *new VideoPipeline(m_source, VideoPipeline::Mode::kLive, transport);
  pipeline.play();
  const auto until = Clock::now() + m_limits.first_picture;
  std::shared_ptr<const DecodedFrame> first;
  while (!first && Clock::now() < until) {
    first = pipeline.pull(kLook);
    const bool at_end = pipeline.isAtEnd();
    if (first || (!at_end && pipeline.error().empty())) continue;
    endsFor(pipeline, signs_in);
    return !pipeline.wantsOtherTransport();
  }
  if (!first) return true;
  put([&](Trial& found) {
    found.end = TrialEnd::kFits;
    found.picture = std::move(first);
    found.codec = pipeline.codec();
    found.transport = transportOf(m_source.uri, transport);
  });
  watches(pipeline);
  return true;
}

void Attempt::endsFor(const VideoPipeline& pipeline, bool signs_in) {
  if (pipeline.error().empty()) return ends(TrialEnd::kNoVideo, "its stream ends without a picture");
  ends(endFor(pipeline.breakdown(), signs_in), pipeline.error());
  put([&](Trial& found) { found.missing = pipeline.breakdown().missing; });
}

/// Counts and measures. A stream that breaks meanwhile is told as broken, a recording that ends is not.
void Attempt::watches(VideoPipeline& pipeline) {
  const auto began = Clock::now();
  const double processor_began = processorSeconds();
  unsigned pictures = 0;
  unsigned told = 0;
  std::chrono::nanoseconds delays{};
  const auto goes_on = [&] {
    const auto watched = Clock::now() - began;
    return watched < m_limits.watching || (watched < m_limits.telling && told == 0 && takesLogin(m_source.uri));
  };
  while (goes_on() && !pipeline.isAtEnd() && pipeline.error().empty()) {
    auto next = pipeline.pull(kLook);
    if (!next) continue;
    ++pictures;
    const auto delay = delayOf(*next);
    told += delay ? 1 : 0;
    delays += delay.value_or(0ns);
    const double seconds = std::chrono::duration<double>(Clock::now() - began).count();
    put([&](Trial& found) {
      found.picture = std::move(next);
      found.rate = pictures / seconds;
      found.processor_ms = 1e3 * (processorSeconds() - processor_began) / pictures;
      if (told > 0) found.delay = delays / told;
    });
  }
  if (!pipeline.error().empty()) return ends(TrialEnd::kBroken, pipeline.error());
  put([&pipeline](Trial& found) {
    found.left_out = pipeline.leftOut();
    const double spare = std::max(0.5, found.cores - 1.0);  // the networks take up to one
    if (coresTaken(found) > spare) found.end = TrialEnd::kTooSlow;
  });
}

Trial Attempt::found(Clock::time_point until) {
  std::unique_lock lock(m_mutex);
  m_changed.wait_until(lock, until, [this] { return m_is_over; });
  return m_found;
}

}  // namespace

Trial trySource(const CameraSource& source, const TrialLimits& limits) {
  const auto attempt = std::make_shared<Attempt>(source, limits);
  std::thread([attempt] { attempt->run(); }).detach();
  constexpr auto kGrace = 1s;  // for what lies between the limits
  return attempt->found(Clock::now() + limits.whole() + kGrace);
}

double coresTaken(const Trial& trial) {
  const double said = trial.picture ? trial.picture->framerate() : 0;
  return std::max(said, trial.rate) * trial.processor_ms / 1e3;
}

}  // namespace workstation
