#include "platform/workstation/decoding/video_camera.h"

#include <syslog.h>

#include <algorithm>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/workstation/decoding/live_camera.h"
#include "platform/workstation/decoding/recording_end.h"
#include "platform/workstation/decoding/replay_progress.h"
#include "platform/workstation/decoding/video_source.h"
#include "platform/workstation/system/signal_mask.h"

namespace workstation {
namespace {

using std::chrono::nanoseconds;
using namespace std::chrono_literals;

constexpr nanoseconds kLongestWait = 20s;    // for a frame that the pipeline owes us
constexpr nanoseconds kWaitAfterError = 3s;  // for the frames that were under way when something broke
constexpr nanoseconds kPatience = 50ms;      // between two looks at the pipeline's complaints
// Containers round times to the millisecond, so the last frame may seem to end a little before it does.
constexpr nanoseconds kContainerRounding = 2ms;

/// A recording on the clock of a replay. Positions are times since the first frame.
class RecordedCamera : public VideoCamera {
 public:
  explicit RecordedCamera(const CameraSource& source);

  std::shared_ptr<const DecodedFrame> frameAt(TimeStamp now) override;
  [[nodiscard]] std::uint32_t framerate() const override;

 private:
  void openFirstFrame();
  void findEnd();
  void setEnd(nanoseconds end);
  void goTo(nanoseconds position);
  std::shared_ptr<const DecodedFrame> nextFrame();
  std::shared_ptr<const DecodedFrame> pullWithin(nanoseconds after_error);
  [[nodiscard]] nanoseconds positionOf(const DecodedFrame& frame) const;

  const std::string m_name;
  mutable std::mutex m_mutex;  ///< everything below, once the object is built
  VideoPipeline m_pipeline;
  std::string m_silence;  ///< said of a pipeline that owes a frame for too long
  std::shared_ptr<const DecodedFrame> m_current;
  std::shared_ptr<const DecodedFrame> m_next;
  nanoseconds m_first{};  ///< running time of the first frame
  nanoseconds m_current_position{};
  nanoseconds m_frame_duration{};
  nanoseconds m_end = nanoseconds::max();
  bool m_exhausted = false;
  ReplayProgress m_progress;
};

RecordedCamera::RecordedCamera(const CameraSource& source)
    : m_name(withoutSecrets(source.uri)), m_pipeline(source, VideoPipeline::Mode::kReplay) {
  m_pipeline.play();
  openFirstFrame();
  findEnd();
}

void RecordedCamera::openFirstFrame() {
  m_current = pullWithin(0s);
  if (!m_current) {
    throw std::runtime_error(!m_pipeline.error().empty() ? m_pipeline.error()
                             : !m_silence.empty()        ? m_silence
                                                         : "it holds no picture");
  }
  m_first = m_current->runningTime().value_or(0ns);
  m_frame_duration = m_current->duration().value_or(0ns);
}

void RecordedCamera::findEnd() {
  const bool can_be_read_twice = !m_pipeline.uri().starts_with("fd:");
  const auto end = can_be_read_twice ? findRecordingEnd(m_pipeline.uri()) : std::nullopt;
  if (!end) return setEnd(nanoseconds::max());  // the decoder will tell when it gets there
  m_frame_duration = end->frame_duration;
  setEnd(end->last_frame - m_first + end->frame_duration + kContainerRounding);
}

void RecordedCamera::setEnd(nanoseconds end) {
  m_end = end;
  ticker_clock::setEnd(TimeStamp(end));
}

std::shared_ptr<const DecodedFrame> RecordedCamera::frameAt(TimeStamp now) {
  const std::scoped_lock lock(m_mutex);
  goTo(now.time_since_epoch());
  return m_current;
}

std::uint32_t RecordedCamera::framerate() const {
  const std::scoped_lock lock(m_mutex);
  return m_current->framerate();
}

void RecordedCamera::goTo(nanoseconds position) {
  while (!m_exhausted) {
    if (!m_next) m_next = nextFrame();
    if (!m_next || positionOf(*m_next) > position) break;
    m_current_position = positionOf(*m_next);
    m_current = std::exchange(m_next, nullptr);
  }
  if (m_end != nanoseconds::max()) m_progress.show(position, m_end);
}

std::shared_ptr<const DecodedFrame> RecordedCamera::nextFrame() {
  auto frame = pullWithin(kWaitAfterError);
  if (!frame) {
    m_exhausted = true;
    const std::string& why = m_pipeline.error().empty() ? m_silence : m_pipeline.error();
    if (!why.empty()) syslog(LOG_ERR, "cannot play %s to its end: %s", m_name.c_str(), withoutSecrets(why).c_str());
    setEnd(std::min(m_end, m_current_position + m_frame_duration + kContainerRounding));
  }
  return frame;
}

/// A frame without a time of its own follows the one before.
nanoseconds RecordedCamera::positionOf(const DecodedFrame& frame) const {
  const auto time = frame.runningTime();
  return time ? *time - m_first : m_current_position + m_frame_duration;
}

/// The next frame; nothing at the end, after an error, or when the pipeline owes it for too long. Frames that were
/// decoded before an error still come, so that what is seen doesn't hang on how fast the error was.
std::shared_ptr<const DecodedFrame> RecordedCamera::pullWithin(nanoseconds after_error) {
  for (nanoseconds waited{}; waited < kLongestWait; waited += kPatience) {
    const bool at_end = m_pipeline.isAtEnd();
    const bool over = at_end || (!m_pipeline.error().empty() && waited >= after_error);
    if (auto frame = m_pipeline.pull(over ? 0ns : kPatience)) return frame;
    if (over) return nullptr;
  }
  m_silence =
      "no picture for " + std::to_string(std::chrono::duration_cast<std::chrono::seconds>(kLongestWait).count()) + " s";
  return nullptr;
}

}  // namespace

std::shared_ptr<VideoCamera> openCamera(const CameraSource& source, bool loop) {
  const ScopedSigtermBlock block;
  try {
    if (ticker_clock::isReplay()) return std::make_shared<RecordedCamera>(source);
    return std::make_shared<LiveCamera>(source, loop);
  } catch (const std::exception& error) {
    throw std::runtime_error(withoutSecrets("cannot play " + source.uri + ": " + error.what()));
  }
}

}  // namespace workstation
