#include "tests/platform/cameras/camera_relay.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <deque>
#include <optional>

#include "tests/platform/cameras/sockets.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kLook_ms = 5;

std::size_t byteAt(const std::string& text, std::size_t place) { return static_cast<unsigned char>(text[place]); }

/// The length of what stands at the beginning of the bytes, a packet or an answer; 0 while it is not complete.
std::size_t unitIn(const std::string& bytes) {
  if (bytes.size() < 4) return 0;
  if (bytes[0] == '$') {
    const std::size_t length = 4 + (byteAt(bytes, 2) << 8 | byteAt(bytes, 3));
    return bytes.size() < length ? 0 : length;
  }
  const std::size_t end = bytes.find("\r\n\r\n");
  if (end == std::string::npos) return 0;
  const std::size_t field = bytes.find("Content-Length: ");
  const std::size_t body = field < end ? std::strtoul(bytes.c_str() + field + 16, nullptr, 10) : 0;
  return bytes.size() < end + 4 + body ? 0 : end + 4 + body;
}

bool isPicture(const std::string& unit) { return unit[0] == '$' && unit[1] % 2 == 0; }

/// Sets the clock of a sender's report.
void setClock(std::string& unit, std::int64_t offset_s) {
  constexpr std::size_t kSeconds = 4 + 8;
  if (unit[0] != '$' || unit[1] % 2 == 0 || unit.size() < kSeconds + 4 || byteAt(unit, 5) != 200) return;
  std::int64_t seconds = 0;
  for (std::size_t i = 0; i < 4; ++i) seconds = seconds << 8 | static_cast<std::int64_t>(byteAt(unit, kSeconds + i));
  seconds += offset_s;
  for (std::size_t i = 0; i < 4; ++i) unit[kSeconds + i] = static_cast<char>(seconds >> (24 - 8 * i));
}

/// One viewer's connection, until one of the two ends it.
class Connection {
 public:
  Connection(CameraRelay& relay, FileDescriptor viewer, FileDescriptor camera)
      : m_relay(relay), m_viewer(std::move(viewer)), m_camera(std::move(camera)) {}

  void run(const std::atomic<bool>& is_leaving) {
    while (!is_leaving && m_is_open) {
      const bool reads_camera = !m_relay.is_stalled;
      std::array<pollfd, 2> ends{{{m_viewer.get(), POLLIN, 0}, {reads_camera ? m_camera.get() : -1, POLLIN, 0}}};
      ::poll(ends.data(), ends.size(), kLook_ms);
      if (ends[0].revents != 0) {
        const std::string bytes = receive(m_viewer);
        m_is_open = m_is_open && sendAll(m_camera, bytes);
      }
      if (ends[1].revents != 0) take(receive(m_camera));
      if (reads_camera) deliver();
    }
  }

 private:
  struct Unit {
    Clock::time_point due;
    std::string bytes;
  };

  std::string receive(const FileDescriptor& from) {
    std::string bytes(65536, '\0');
    const ssize_t got = ::recv(from.get(), bytes.data(), bytes.size(), 0);
    m_is_open = m_is_open && got > 0;
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return bytes;
  }

  void take(const std::string& bytes) {
    m_bytes += bytes;
    while (const std::size_t length = unitIn(m_bytes)) {
      std::string unit = m_bytes.substr(0, length);
      m_bytes.erase(0, length);
      if (isPicture(unit) && isLost()) continue;
      setClock(unit, m_relay.clock_s);
      m_under_way.push_back({Clock::now() + m_relay.delay.load(), std::move(unit)});
    }
  }

  bool isLost() {
    const int before = m_packets++ * m_relay.lost_percent / 100;
    return m_packets * m_relay.lost_percent / 100 != before;
  }

  void deliver() {
    while (!m_under_way.empty() && m_under_way.front().due <= Clock::now()) {
      m_is_open = m_is_open && sendAll(m_viewer, m_under_way.front().bytes);
      m_under_way.pop_front();
    }
  }

  CameraRelay& m_relay;
  FileDescriptor m_viewer;
  FileDescriptor m_camera;
  bool m_is_open = true;
  std::string m_bytes;  ///< of a unit that is not complete
  std::deque<Unit> m_under_way;
  int m_packets = 0;
};

}  // namespace

CameraRelay::CameraRelay(const std::string& camera_port) : m_listener(listenHere(m_port)) {
  m_server = std::thread([this, port = static_cast<std::uint16_t>(std::stoi(camera_port))] {
    while (!m_is_leaving) {
      FileDescriptor viewer = acceptWithin(m_listener, kLook_ms);
      if (!viewer) continue;
      FileDescriptor camera = connectHere(port);
      if (!camera) continue;
      m_connections.emplace_back([this, viewer = std::move(viewer), camera = std::move(camera)]() mutable {
        Connection(*this, std::move(viewer), std::move(camera)).run(m_is_leaving);
      });
    }
  });
}

CameraRelay::~CameraRelay() {
  m_is_leaving = true;
  m_server.join();
  for (std::thread& connection : m_connections) connection.join();
}
