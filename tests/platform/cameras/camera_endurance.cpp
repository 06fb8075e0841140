// A fault a minute on a network camera in real time, outside ./test: camera_endurance [MINUTES]. The camera's pictures
// tell the time, so what is shown as live shows how old it is. Prints a line a fault and ends with 1 when one was too
// much.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/scripted/stage/rtsp_camera.h"
#include "platform/workstation/decoding/live_camera.h"
#include "tests/platform/cameras/camera_relay.h"

using namespace std::chrono_literals;
using scripted::RtspCamera;

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kOldest_s = 3, kLatestReturn_s = 5;

double since(Clock::time_point time) { return std::chrono::duration<double>(Clock::now() - time).count(); }

/// How old the picture is by what it shows, in seconds; a second's grey is seen for a second.
double shownAge(const workstation::DecodedFrame& frame) {
  const workstation::I420View view = frame.view();
  const std::uint8_t luma = view.y[view.height / 2 * view.y_stride + view.width / 2];
  const double full = view.full_range ? luma : (luma - 16) * 255.0 / 219;
  const auto shown = std::lround((full - RtspCamera::greyAt(0)) / 4);
  const double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  const double age = std::fmod(now - static_cast<double>(shown + 1), RtspCamera::kGreys);
  return age > RtspCamera::kGreys - 2 ? 0 : age;
}

long residentMiB() {
  long all = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident * ::sysconf(_SC_PAGESIZE) >> 20;
}

long descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

/// A camera behind a bad network, and who watches it.
class Room {
 public:
  Room() { m_camera.plug(m_shown); }

  struct Seen {
    double oldest_s = 0;    ///< picture that was shown as live
    double without_s = 0;   ///< the longest time without one
    double back_after_s{};  ///< the fault's end, until there was one again
  };

  /// Watches a minute with the fault from its 5th second on.
  Seen watch(int kind) {
    Seen seen;
    watch(seen, 5);
    const double length = begin(kind);
    watch(seen, length);
    end(kind);
    const auto ended = Clock::now();
    bool is_back = false;
    while (since(ended) < 55 - length) {
      const bool has_picture = look(seen);
      m_is_damaged = m_is_damaged && since(ended) < 2;  // until the next picture that stands alone
      if (has_picture && !is_back) seen.back_after_s = since(ended);
      is_back = is_back || has_picture;
    }
    if (!is_back) seen.back_after_s = since(ended);
    return seen;
  }

  static constexpr const char* kFaults[] = {
      "killed for 10 s",         "frozen for 10 s",       "another size and codec", "held up for 1 s",
      "held up for 5 s",         "held up for 40 s",      "1 s late for 10 s",      "loses a fifth for 10 s",
      "clock 2 h back for 10 s", "clock 2 h on for 10 s", "cut for a moment"};

 private:
  bool look(Seen& seen) {
    std::this_thread::sleep_for(50ms);
    const auto frame = m_watcher.frameAt({});
    if (frame) {
      if (!m_is_damaged) seen.oldest_s = std::max(seen.oldest_s, shownAge(*frame));
      m_last = Clock::now();
    }
    seen.without_s = std::max(seen.without_s, since(m_last));
    return frame != nullptr;
  }
  void watch(Seen& seen, double seconds) {
    for (const auto begun = Clock::now(); since(begun) < seconds;) look(seen);
  }
  void replug() {
    m_camera.unplug();
    m_camera.plug(m_shown);
  }
  /// How many seconds it lasts.
  double begin(int kind) {
    switch (kind) {
      case 0:
        m_camera.unplug();
        return 10;
      case 1:
        m_camera.freeze();
        return 10;
      case 2: {
        const bool was_h264 = m_shown.codec == RtspCamera::Codec::kH264;
        m_shown.codec = was_h264 ? RtspCamera::Codec::kH265 : RtspCamera::Codec::kH264;
        m_shown.width = was_h264 ? 640 : 1280;
        m_shown.height = was_h264 ? 480 : 720;
        replug();
        return 0;
      }
      case 3:
      case 4:
      case 5:
        m_relay.is_stalled = true;
        return kind == 3 ? 1 : kind == 4 ? 5 : 40;
      case 6:
        m_relay.delay = 1s;
        return 10;
      case 7:
        m_relay.lost_percent = 20;
        m_is_damaged = true;
        return 10;
      case 8:
      case 9:
        m_relay.clock_s = kind == 8 ? -7200 : 7200;
        return 10;
      default:
        replug();
        return 0;
    }
  }
  void end(int kind) {
    if (kind == 0) m_camera.plug(m_shown);
    if (kind == 1) m_camera.thaw();
    m_relay.is_stalled = false;
    m_relay.delay = 0ms;
    m_relay.lost_percent = 0;
    m_relay.clock_s = 0;
  }

  RtspCamera::Shown m_shown{
      .width = 1280, .height = 720, .codec = RtspCamera::Codec::kH264, .fps = 15, .is_clock = true};
  RtspCamera m_camera;
  CameraRelay m_relay{m_camera.port()};
  workstation::LiveCamera m_watcher{{.uri = m_relay.uri()}, false};
  Clock::time_point m_last = Clock::now();
  bool m_is_damaged = false;  ///< what a picture shows tells no time while parts of it are lost
};

int endure(int minutes) {
  bool is_well = true;
  Room room;
  std::printf("%-26s %10s %12s %12s %8s %12s\n", "fault", "oldest, s", "without, s", "back, s", "MiB", "descriptors");
  for (int minute = 0; minute < minutes; ++minute) {
    const int kind = minute % static_cast<int>(std::size(Room::kFaults));
    const Room::Seen seen = room.watch(kind);
    std::printf("%-26s %10.1f %12.1f %12.1f %8ld %12ld\n", Room::kFaults[kind], seen.oldest_s, seen.without_s,
                seen.back_after_s, residentMiB(), descriptors());
    std::fflush(stdout);
    is_well = is_well && seen.oldest_s <= kOldest_s && seen.back_after_s <= kLatestReturn_s;
  }
  return is_well ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return endure(argc > 1 ? std::atoi(argv[1]) : 30);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "camera_endurance: %s\n", error.what());
    return 2;
  }
}
