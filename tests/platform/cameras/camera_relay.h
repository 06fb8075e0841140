// A bad network between an RTSP camera and whoever watches it over TCP: holds up, loses, cuts, and sets clocks wrong.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "platform/support/file_descriptor.h"

class CameraRelay {
 public:
  /// Listens at a port of its own for connections to that one of this machine.
  explicit CameraRelay(const std::string& camera_port);
  ~CameraRelay();
  CameraRelay(const CameraRelay&) = delete;
  CameraRelay& operator=(const CameraRelay&) = delete;

  std::string uri() const { return "rtsp://127.0.0.1:" + std::to_string(m_port) + "/room"; }

  std::atomic<std::chrono::milliseconds> delay{};  ///< what the camera sends comes so much later
  std::atomic<bool> is_stalled{false};             ///< nothing comes; nothing is lost
  std::atomic<int> lost_percent{0};                ///< of the packets with pictures
  std::atomic<std::int64_t> clock_s{0};            ///< the camera's clock is wrong by so much

 private:
  std::uint16_t m_port = 0;
  FileDescriptor m_listener;
  std::atomic<bool> m_is_leaving{false};
  std::vector<std::thread> m_connections;  ///< of the serving thread alone, until that has ended
  std::thread m_server;
};
