// A network camera of plain grey that a scenario plugs in, freezes and unplugs.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <string>

#ifndef PROGRAM_DIRECTORY
#error "PROGRAM_DIRECTORY is where rtsp_camera lies"
#endif

namespace scripted {

class RtspCamera {
 public:
  enum class Codec { kJpeg, kVp8 };

  /// Chooses a port; nothing listens there yet.
  RtspCamera() {
    const int probe = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(probe, reinterpret_cast<sockaddr*>(&address), length) != 0) throw std::runtime_error("no free port");
    ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
    m_port = std::to_string(ntohs(address.sin_port));
    ::close(probe);
  }
  ~RtspCamera() { unplug(); }
  RtspCamera(const RtspCamera&) = delete;
  RtspCamera& operator=(const RtspCamera&) = delete;

  std::string uri(const std::string& user = "") const { return "rtsp://" + user + "127.0.0.1:" + m_port + "/room"; }

  /// Ten pictures a second of this luma. Sides are multiples of 8.
  void plug(int luma, int width = 320, int height = 176, Codec codec = Codec::kJpeg) {
    const std::string grey = std::to_string(0xFF000000U + static_cast<unsigned>(luma) * 0x010101U);
    const std::string pipeline =
        "( videotestsrc is-live=true pattern=solid-color foreground-color=" + grey +
        " ! video/x-raw,format=I420,framerate=10/1,width=" + std::to_string(width) +
        ",height=" + std::to_string(height) +
        (codec == Codec::kJpeg ? " ! jpegenc ! rtpjpegpay name=pay0 )"
                               : " ! vp8enc deadline=1 keyframe-max-dist=10 ! rtpvp8pay name=pay0 )");
    m_process = ::fork();
    if (m_process == 0) {
      ::execl(PROGRAM_DIRECTORY "/rtsp_camera", "rtsp_camera", m_port.c_str(), pipeline.c_str(), nullptr);
      ::_exit(127);
    }
  }
  void freeze() const { ::kill(m_process, SIGSTOP); }
  void unplug() {
    if (m_process <= 0) return;
    ::kill(m_process, SIGKILL);
    ::waitpid(m_process, nullptr, 0);
    m_process = 0;
  }

 private:
  std::string m_port;
  pid_t m_process = 0;
};

}  // namespace scripted
