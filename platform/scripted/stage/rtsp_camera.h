// A network camera that a scenario plugs in, freezes and unplugs.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#ifndef PROGRAM_DIRECTORY
#define PROGRAM_DIRECTORY "."  // where rtsp_camera lies
#endif

namespace scripted {

class RtspCamera {
 public:
  enum class Codec { kJpeg, kVp8, kH264, kH265 };

  /// What is plugged in: pictures of one grey, or a film.
  struct Shown {
    int luma = 128;
    int width = 320;  ///< sides are multiples of 8
    int height = 176;
    Codec codec = Codec::kJpeg;
    int fps = 10;
    bool only_udp = false;
    bool is_clock = false;         ///< the grey tells the time: greyAt()
    std::string login = {};        ///< "user:password": nobody else is let in
    std::string certificate = {};  ///< a file with a certificate and its key: rtsps
    std::string film = {};         ///< an MP4 with H.264, instead of all above but the login; it plays once
  };

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

  /// The luma, in full range, of a second since 1970; it comes again after kGreys of them.
  static constexpr int kGreys = 50;
  static int greyAt(std::int64_t second) { return 30 + 4 * static_cast<int>(second % kGreys); }

  std::string uri(const std::string& user = "") const { return "rtsp://" + user + "127.0.0.1:" + m_port + "/room"; }
  const std::string& port() const { return m_port; }

  void plug(const Shown& shown) {
    std::vector<std::string> words{"rtsp_camera", m_port, pipelineOf(shown)};
    if (!shown.login.empty()) words.push_back("login=" + shown.login);
    if (!shown.certificate.empty()) words.push_back("certificate=" + shown.certificate);
    if (shown.only_udp) words.emplace_back("udp");
    if (shown.is_clock) words.emplace_back("clock");
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    m_process = ::fork();
    if (m_process == 0) {
      ::execv(PROGRAM_DIRECTORY "/rtsp_camera", arguments.data());
      ::_exit(127);
    }
  }
  void freeze() const { ::kill(m_process, SIGSTOP); }
  void thaw() const { ::kill(m_process, SIGCONT); }
  void unplug() {
    if (m_process <= 0) return;
    ::kill(m_process, SIGKILL);
    ::waitpid(m_process, nullptr, 0);
    m_process = 0;
  }

 private:
  static std::string pipelineOf(const Shown& shown) {
    if (!shown.film.empty()) {
      return "( filesrc location=" + shown.film + " ! qtdemux ! h264parse ! rtph264pay config-interval=1 name=pay0 )";
    }
    const unsigned luma = shown.is_clock ? 0 : static_cast<unsigned>(shown.luma);
    const std::string grey = std::to_string(0xFF000000U + luma * 0x010101U);
    return "( videotestsrc is-live=true pattern=solid-color foreground-color=" + grey +
           " ! video/x-raw,format=I420,framerate=" + std::to_string(shown.fps) +
           "/1,width=" + std::to_string(shown.width) + ",height=" + std::to_string(shown.height) + " ! " +
           (shown.is_clock ? "videobalance name=time ! " : "") + encoderOf(shown.codec) + " name=pay0 )";
  }
  static std::string encoderOf(Codec codec) {
    switch (codec) {
      case Codec::kJpeg:
        return "jpegenc ! rtpjpegpay";
      case Codec::kVp8:
        return "vp8enc deadline=1 keyframe-max-dist=10 ! rtpvp8pay";
      case Codec::kH264:
        return "x264enc tune=zerolatency speed-preset=ultrafast key-int-max=10 ! rtph264pay config-interval=-1";
      case Codec::kH265:
        return "x265enc tune=zerolatency speed-preset=ultrafast key-int-max=10 ! rtph265pay config-interval=-1";
    }
    return "";
  }

  std::string m_port;
  pid_t m_process = 0;
};

}  // namespace scripted
