#include "platform/workstation/decoding/live_camera.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>

#include "platform/support/owners.h"
#include "platform/workstation/decoding/video_source.h"
#include "platform/workstation/system/health.h"
#include "platform/workstation/system/signal_mask.h"

namespace workstation {
namespace {

using Clock = std::chrono::steady_clock;
using Frame = std::shared_ptr<const DecodedFrame>;
using namespace std::chrono_literals;

constexpr auto kLook = 50ms;             // between two looks at a pipeline's complaints
constexpr int kMostOpen = 4;             // pipelines at once, those that cannot be closed included
constexpr guint kConnectPatience_s = 3;  // for finding out why a source does not answer

std::atomic<bool> source_broke{false};

/// The program's main returns 0 after SIGTERM, whoever sent it. From before main, so that it comes after nearly all
/// else.
[[maybe_unused]] const int registered = on_exit(
    [](int status, void* /*unused*/) {
      if (status != 0 || !source_broke) return;
      std::fflush(nullptr);
      _exit(EXIT_FAILURE);
    },
    nullptr);

std::string clockTime(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  localtime_r(&seconds, &local);
  std::array<char, 16> text{};
  std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
  return text.data();
}

/// Why nobody answers at a URI, which GStreamer says late and in few words; empty where somebody does, or for other
/// kinds of URI.
std::string connectProblem(const std::string& uri) {
  if (!uri.starts_with("rtsp") && !uri.starts_with("http")) return "";
  const auto port = static_cast<guint16>(!uri.starts_with("http") ? 554 : uri.starts_with("https") ? 443 : 80);
  const std::string address = withoutUser(uri);
  const GLibPtr<GSocketClient> client(g_socket_client_new());
  g_socket_client_set_timeout(client.get(), kConnectPatience_s);
  CaughtError error;
  const GLibPtr<GSocketConnection> connection(
      g_socket_client_connect_to_uri(client.get(), address.c_str(), port, nullptr, error.out()));
  return error.text("");
}

constexpr const char* kTooLate = "its pictures come too late";

/// One opening of the source.
struct Attempt {
  bool is_wanted = true;   ///< false: its thread is to close it
  bool is_playing = true;  ///< false: ended or broken
  bool is_closed = false;
  bool is_refused = false;  ///< for its user or password
  bool wants_other_transport = false;
  std::string error;  ///< empty after an orderly end
  std::optional<Clock::time_point> first_frame;
  Clock::time_point last_frame;
};

}  // namespace

/// What the camera, its thread and those of the attempts share. An attempt that GStreamer doesn't let go of outlives
/// the camera.
class LiveCamera::Keeper : public std::enable_shared_from_this<Keeper> {
 public:
  Keeper(const CameraSource& source, bool loop, bool is_in_charge)
      : m_source(source),
        m_name(withoutSecrets(source.uri)),
        m_kind(kindOf(source.uri)),
        m_loop(loop),
        m_is_in_charge(is_in_charge) {}

  void start();
  void stop();
  Frame freshFrame();
  std::uint32_t framerate() const;
  void takeCharge();
  std::string whyAway() const;

 private:
  using Lock = std::unique_lock<std::mutex>;
  using Time = Clock::time_point;

  void keepOpen();
  std::shared_ptr<Attempt> open(Lock& lock);
  void play(const std::shared_ptr<Attempt>& attempt);
  void playInto(Attempt& attempt);
  VideoPipeline::Transport transport();
  bool put(Attempt& attempt, Frame frame, const std::string& left_out);
  void watch(Lock& lock, const Attempt& attempt);
  void close(Lock& lock, Attempt& attempt);
  bool isForGood(const Attempt& attempt);
  template <typename Condition>
  bool wait(Lock& lock, Time until, Condition condition);
  void tell(Lock& lock);
  [[nodiscard]] bool isStarting(Time now) const;
  [[nodiscard]] Time countsFrom(const DecodedFrame& frame) const {
    return std::min(frame.taken(), frame.captured().time + m_times.late);
  }
  [[nodiscard]] bool isFresh(Time now) const { return m_newest && now - countsFrom(*m_newest) <= m_times.fresh; }

  const CameraSource m_source;
  const std::string m_name;  ///< of the source, for everybody's eyes
  const SourceKind m_kind;
  const bool m_loop;
  bool m_is_in_charge;
  const LiveTimes m_times = liveTimes();
  std::thread m_thread;

  mutable std::mutex m_mutex;  ///< for all below
  std::condition_variable m_changed;
  bool m_is_leaving = false;
  bool m_is_at_end = false;  ///< for good, and the program does not know yet
  int m_open = 0;            ///< pipelines
  bool m_takes_udp = false;  ///< the camera has refused to send over TCP
  std::shared_ptr<Attempt> m_first;
  Frame m_newest;                            ///< none when it is old
  std::optional<std::uint32_t> m_framerate;  ///< none before the first frame of all
  Time m_last = Clock::now();                ///< when the last frame came, or the camera was opened
  std::chrono::system_clock::time_point m_last_on_the_wall = std::chrono::system_clock::now();
  std::string m_reason = "it does not answer yet";  ///< why there is no frame
  std::string m_told;                               ///< the trouble as it was reported; empty for none
  std::string m_left_out;                           ///< why pictures are; empty while none are
  std::string m_told_left_out;                      ///< the same as it is in the log
};

LiveTimes& liveTimes() {
  static LiveTimes times;
  return times;
}

void LiveCamera::Keeper::start() {
  const ScopedSigtermBlock block;
  m_thread = std::thread([this] { keepOpen(); });
  Lock lock(m_mutex);
  const bool is_file = m_kind == SourceKind::kFile;
  m_changed.wait_for(lock, is_file ? m_times.first_frame : m_times.start,
                     [this] { return m_framerate || (m_first && !m_first->is_playing); });
  if (is_file && !m_framerate)
    throw std::runtime_error(m_first->error.empty() ? "it holds no picture" : m_first->error);
}

void LiveCamera::Keeper::stop() {
  {
    const std::scoped_lock lock(m_mutex);
    m_is_leaving = true;
    m_changed.notify_all();
  }
  m_thread.join();
  if (m_is_in_charge) endTrouble(Trouble::kCameraAway);
}

/// The end of a file is told to the program when it asks for more: it cannot end in order before it has begun.
Frame LiveCamera::Keeper::freshFrame() {
  const std::scoped_lock lock(m_mutex);
  if (std::exchange(m_is_at_end, false)) kill(getpid(), SIGTERM);
  return isFresh(Clock::now()) ? m_newest : nullptr;
}

std::uint32_t LiveCamera::Keeper::framerate() const {
  const std::scoped_lock lock(m_mutex);
  return m_framerate.value_or(0);
}

void LiveCamera::Keeper::takeCharge() {
  const std::scoped_lock lock(m_mutex);
  m_is_in_charge = true;
  m_changed.notify_all();
}

std::string LiveCamera::Keeper::whyAway() const {
  const std::scoped_lock lock(m_mutex);
  return m_reason;
}

/// The camera's own thread: opens the source, watches it, and opens it again.
void LiveCamera::Keeper::keepOpen() {
  Lock lock(m_mutex);
  auto pause = m_times.shortest_pause;
  while (!m_is_leaving) {
    const std::shared_ptr<Attempt> attempt = open(lock);
    if (!attempt) return;
    watch(lock, *attempt);
    close(lock, *attempt);
    if (m_is_leaving || isForGood(*attempt)) return;
    const bool begins_again = m_kind == SourceKind::kFile && attempt->first_frame && attempt->error.empty();
    if (begins_again) continue;
    if (attempt->first_frame && attempt->last_frame - *attempt->first_frame >= m_times.steady) {
      pause = m_times.shortest_pause;
    }
    if (attempt->wants_other_transport) continue;
    wait(lock, Clock::now() + (attempt->is_refused ? m_times.refused_pause : pause), [] { return false; });
    pause = std::min(2 * pause, m_times.longest_pause);
  }
}

/// In a thread that belongs to nobody. Nothing at the camera's end.
std::shared_ptr<Attempt> LiveCamera::Keeper::open(Lock& lock) {
  if (m_open >= kMostOpen) m_reason = "it cannot be closed to open it again: restart the program";
  wait(lock, Time::max(), [this] { return m_open < kMostOpen; });
  if (m_is_leaving) return nullptr;
  auto attempt = std::make_shared<Attempt>();
  if (!m_first) m_first = attempt;
  ++m_open;
  std::thread([self = shared_from_this(), attempt] { self->play(attempt); }).detach();
  return attempt;
}

/// The attempt's thread, from opening to closing; each may last for ever.
void LiveCamera::Keeper::play(const std::shared_ptr<Attempt>& attempt) {
  playInto(*attempt);
  const std::scoped_lock lock(m_mutex);
  attempt->is_closed = true;
  --m_open;
  m_changed.notify_all();
}

void LiveCamera::Keeper::playInto(Attempt& attempt) {
  std::string error = connectProblem(m_source.uri);
  std::unique_ptr<VideoPipeline> pipeline;
  try {
    if (error.empty()) {
      pipeline = std::make_unique<VideoPipeline>(m_source, VideoPipeline::Mode::kLive, transport());
      pipeline->play();
      while (put(attempt, pipeline->pull(kLook), pipeline->leftOut())) {
        if (pipeline->isAtEnd() || !pipeline->error().empty()) break;
      }
      error = pipeline->error();
    }
  } catch (const std::exception& exception) {
    error = exception.what();
  }
  {
    const std::scoped_lock lock(m_mutex);
    attempt.is_playing = false;
    attempt.is_refused = pipeline && pipeline->isRefused();
    const bool wants_other_transport = pipeline && pipeline->wantsOtherTransport();
    attempt.wants_other_transport = wants_other_transport && !m_takes_udp;
    m_takes_udp = wants_other_transport ? !m_takes_udp : m_takes_udp && attempt.first_frame;
    attempt.error = withoutSecrets(error.ends_with('.') ? error.substr(0, error.size() - 1) : error);
    m_changed.notify_all();
  }
}

VideoPipeline::Transport LiveCamera::Keeper::transport() {
  const std::scoped_lock lock(m_mutex);
  return m_takes_udp ? VideoPipeline::Transport::kUdp : VideoPipeline::Transport::kTcp;
}

/// False when the attempt is not wanted any more.
bool LiveCamera::Keeper::put(Attempt& attempt, Frame frame, const std::string& left_out) {
  const std::scoped_lock lock(m_mutex);
  if (!attempt.is_wanted) return false;
  if (left_out != m_left_out) {
    m_left_out = left_out;
    m_changed.notify_all();
  }
  if (!frame) return true;
  attempt.last_frame = frame->taken();
  if (!attempt.first_frame) attempt.first_frame = attempt.last_frame;
  m_framerate = frame->framerate();
  m_last = countsFrom(*frame);
  const bool is_late = Clock::now() - m_last > m_times.fresh;
  m_reason = is_late ? kTooLate : "it has stopped sending";  // should it become old
  if (!is_late) m_last_on_the_wall = std::chrono::system_clock::now();
  m_newest = std::move(frame);
  m_changed.notify_all();
  return true;
}

/// Until it has ended, has broken, or has been silent for too long. A file is never silent for too long: it may show
/// one picture for as long as it likes, and nothing is gained by opening it anew.
void LiveCamera::Keeper::watch(Lock& lock, const Attempt& attempt) {
  const Time opened = Clock::now();
  const auto deadline = [&] {
    if (m_kind == SourceKind::kFile) return Time::max();
    return attempt.first_frame ? attempt.last_frame + m_times.next_frame : opened + m_times.first_frame;
  };
  for (Time until = deadline();; until = deadline()) {
    if (!wait(lock, until, [&] { return !attempt.is_playing || deadline() != until; })) {
      m_reason = !m_left_out.empty()   ? m_left_out
                 : attempt.first_frame ? "it has stopped sending"
                                       : "it sends no picture";
      return;
    }
    if (m_is_leaving) return;
    if (!attempt.is_playing) break;
  }
  m_reason = !attempt.error.empty() ? attempt.error
             : attempt.first_frame  ? "it has ended its stream"
                                    : "it holds no picture";
}

/// A thread that GStreamer doesn't let go of is left behind.
void LiveCamera::Keeper::close(Lock& lock, Attempt& attempt) {
  attempt.is_wanted = false;
  m_changed.wait_for(lock, m_times.closing, [&] { return attempt.is_closed; });
  tell(lock);
}

/// A file that does not loop plays once. One that never gave a picture was refused when it was opened.
bool LiveCamera::Keeper::isForGood(const Attempt& attempt) {
  if (m_kind != SourceKind::kFile || m_loop) return false;
  if (!attempt.first_frame) return true;
  if (!attempt.error.empty()) {
    syslog(LOG_ERR, "cannot play %s any further: %s", m_name.c_str(), attempt.error.c_str());
    source_broke = true;
  } else {
    syslog(LOG_INFO, "%s has come to its end", m_name.c_str());
    std::fprintf(stderr, "%s has come to its end; give --loop to begin again\n", m_name.c_str());
  }
  m_is_at_end = true;
  return true;
}

/// True at the condition or the camera's end, false at `until`. Meanwhile it tells when the newest frame becomes old.
template <typename Condition>
bool LiveCamera::Keeper::wait(Lock& lock, Time until, Condition condition) {
  for (;;) {
    tell(lock);
    if (m_is_leaving || condition()) return true;
    const Time now = Clock::now();
    if (now >= until) return false;
    const Time old = m_last + m_times.fresh + 1ms;
    const Time next = m_told.empty() && old > now ? std::min(old, until) : until;
    if (next == Time::max()) {
      m_changed.wait(lock);
    } else {
      m_changed.wait_until(lock, next);
    }
  }
}

/// Reports the trouble when it begins and when its reason changes, and its end. The log may wait for a disk: nobody who
/// asks for a frame does.
void LiveCamera::Keeper::tell(Lock& lock) {
  if (!m_left_out.empty() && m_left_out != m_told_left_out) {
    const std::string text = m_told_left_out = m_left_out;
    lock.unlock();
    syslog(LOG_WARNING, "%s: %s", m_name.c_str(), text.c_str());
    lock.lock();
  }
  const Time now = Clock::now();
  if (isFresh(now) || isStarting(now)) {
    if (m_told.empty()) return;
    m_told.clear();
    lock.unlock();
    endTrouble(Trouble::kCameraAway);
    syslog(LOG_INFO, "%s: the camera gives pictures again", m_name.c_str());
    return lock.lock();
  }
  m_newest.reset();
  if (!m_is_in_charge) return;
  const std::string text = "The camera has given no picture since " + clockTime(m_last_on_the_wall) + " (" + m_reason +
                           "): nobody is being watched. It is tried again until it answers.";
  if (text == m_told) return;
  m_told = text;
  lock.unlock();
  reportTrouble(Trouble::kCameraAway, text);
  syslog(LOG_ERR, "%s: %s", m_name.c_str(), text.c_str());
  lock.lock();
}

/// A file that gives nothing at the start is refused.
bool LiveCamera::Keeper::isStarting(Time now) const {
  if (m_framerate) return false;
  return m_kind == SourceKind::kFile || ((!m_first || m_first->is_playing) && now - m_last <= m_times.fresh);
}

LiveCamera::LiveCamera(const CameraSource& source, bool loop, Charge charge)
    : m_keeper(std::make_shared<Keeper>(source, loop, charge == Charge::kNow)) {
  try {
    m_keeper->start();
  } catch (...) {
    m_keeper->stop();
    throw;
  }
}

LiveCamera::~LiveCamera() {
  const ScopedSigtermBlock block;
  m_keeper->stop();
}

Frame LiveCamera::frameAt(TimeStamp /*now*/) { return m_keeper->freshFrame(); }

std::uint32_t LiveCamera::framerate() const { return m_keeper->framerate(); }

void LiveCamera::takeCharge() { m_keeper->takeCharge(); }

std::string LiveCamera::whyAway() const { return m_keeper->whyAway(); }

}  // namespace workstation
