#include "platform/workstation/camera/takeover.h"

#include <syslog.h>

#include <chrono>
#include <optional>
#include <stdexcept>
#include <thread>

#include "platform/clock/clock.h"
#include "platform/workstation/camera/taken_camera.h"
#include "platform/workstation/decoding/live_camera.h"
#include "platform/workstation/decoding/video_source.h"
#include "platform/workstation/system/signal_mask.h"
#include "platform/workstation/system/state_directory.h"
#include "platform/workstation/system/utc_text.h"

namespace workstation {
namespace {

using namespace std::chrono_literals;

constexpr auto kLook = 20ms;

struct Taken {
  std::mutex mutex;
  std::optional<CameraSource> source;  ///< in this run
};

Taken& taken() {
  static auto& the_taken = *new Taken;  // never destroyed: threads may ask until the process ends
  return the_taken;
}

/// Keeps the source for the next start. What a start has named stays known, however often cameras are taken over.
CameraSource keep(const CameraSource& source) {
  const auto state = stateDirectory();
  const auto before = readTakenCamera(state);
  TakenCamera camera{source, before ? before->in_place_of : withoutUser(startedCamera().source),
                     utcText(ticker_clock::now())};
  return storeTakenCamera(state, std::move(camera)).source;
}

/// Throws std::runtime_error with the reason when it gives no picture.
void awaitPicture(LiveCamera& camera) {
  const auto until = std::chrono::steady_clock::now() + liveTimes().first_frame;
  while (!camera.frameAt(ticker_clock::now())) {
    if (std::chrono::steady_clock::now() >= until) throw std::runtime_error(camera.whyAway());
    std::this_thread::sleep_for(kLook);
  }
}

void takeOver(WatchedCamera& camera, const CameraSource& source) {
  const auto next = std::make_shared<LiveCamera>(source, false, LiveCamera::Charge::kLater);
  awaitPicture(*next);
  const CameraSource kept = keep(source);
  {
    const std::scoped_lock lock(taken().mutex);
    taken().source = kept;
  }
  auto old = camera.exchange(next);
  while (old.use_count() > 1) std::this_thread::sleep_for(1ms);  // closing it may last: nobody else should have to
  old.reset();  // it has its last word on troubles before the new one has its first
  next->takeCharge();
  syslog(LOG_INFO, "%s was taken over on the page and is watched now; check the floor points and the bed areas",
         withoutSecrets(source.uri).c_str());
}

}  // namespace

WatchedCamera::WatchedCamera(const CameraDescription& description)
    : m_current(openCamera(sourceOf(description), description.loop)) {}

std::shared_ptr<VideoCamera> WatchedCamera::exchange(std::shared_ptr<VideoCamera> next) {
  const std::scoped_lock lock(m_mutex);
  return std::exchange(m_current, std::move(next));
}

std::shared_ptr<VideoCamera> WatchedCamera::current() const {
  const std::scoped_lock lock(m_mutex);
  return m_current;
}

struct Takeover::Shared {
  std::mutex mutex;
  Progress progress;
};

Takeover::Takeover(std::shared_ptr<WatchedCamera> camera, const CameraSource& source, const std::function<void()>& done)
    : m_shared(std::make_shared<Shared>()) {
  const ScopedSigtermBlock block;
  std::thread([shared = m_shared, camera = std::move(camera), source, done] {
    Progress end{State::kDone};
    try {
      takeOver(*camera, source);
      done();
    } catch (const std::exception& error) {
      end = {State::kFailed, withoutSecrets(error.what())};
      syslog(LOG_ERR, "%s was not taken over: %s", withoutSecrets(source.uri).c_str(), end.reason.c_str());
    }
    const std::scoped_lock lock(shared->mutex);
    shared->progress = end;
  }).detach();
}

Takeover::Progress Takeover::progress() const {
  const std::scoped_lock lock(m_shared->mutex);
  return m_shared->progress;
}

CameraSource watchedSource() {
  const std::scoped_lock lock(taken().mutex);
  return taken().source ? *taken().source : sourceOf(startedCamera());
}

}  // namespace workstation
