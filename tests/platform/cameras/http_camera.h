// A camera that sends JPEG pictures over HTTP, as multipart/x-mixed-replace, to whoever may see them.
#pragma once

#include <glib.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>

#include "platform/support/owners.h"
#include "tests/platform/cameras/sockets.h"

class HttpCamera {
 public:
  enum class Door { kOpen, kBasic, kDigest };

  HttpCamera(Door door, std::string user, std::string password)
      : m_door(door), m_user(std::move(user)), m_password(std::move(password)), m_listener(listenHere(m_port)) {
    m_server = std::thread([this] {
      while (!m_is_leaving) {
        if (const FileDescriptor viewer = acceptWithin(m_listener, 20)) serve(viewer);
      }
    });
  }
  ~HttpCamera() {
    m_is_leaving = true;
    m_server.join();
  }
  HttpCamera(const HttpCamera&) = delete;
  HttpCamera& operator=(const HttpCamera&) = delete;

  std::string uri() const { return "http://127.0.0.1:" + std::to_string(m_port) + "/video"; }

  /// From the next picture on: this one, after each such a pause.
  void show(std::string jpeg, std::chrono::milliseconds pause = std::chrono::milliseconds(50)) {
    const std::scoped_lock lock(m_mutex);
    m_jpeg = std::move(jpeg);
    m_pause = pause;
  }
  std::atomic<bool> has_no_end{false};  ///< pictures are parts that never end

 private:
  static std::string md5(const std::string& text) {
    return GLibPtr<gchar>(g_compute_checksum_for_string(G_CHECKSUM_MD5, text.c_str(), -1)).get();
  }
  static std::string fieldOf(const std::string& request, const std::string& name) {
    const std::size_t begin = request.find(" " + name + "=");
    if (begin == std::string::npos) return "";
    std::string value = request.substr(begin + name.size() + 2);
    value = value.substr(0, value.find_first_of(",\r"));
    std::erase(value, '"');
    return value;
  }
  bool mayEnter(const std::string& request) const {
    if (m_door == Door::kOpen) return true;
    const std::string both = m_user + ":" + m_password;
    if (m_door == Door::kBasic) {
      const GLibPtr<gchar> code(g_base64_encode(reinterpret_cast<const guchar*>(both.data()), both.size()));
      return request.find(std::string("Authorization: Basic ") + code.get() + "\r\n") != std::string::npos;
    }
    const std::string first = md5(m_user + ":room:" + m_password);
    const std::string second = md5("GET:" + fieldOf(request, "uri"));
    return fieldOf(request, "response") ==
           md5(first + ":n0nce:" + fieldOf(request, "nc") + ":" + fieldOf(request, "cnonce") + ":auth:" + second);
  }

  void serve(const FileDescriptor& viewer) {
    std::string request;
    for (char next = 0; request.find("\r\n\r\n") == std::string::npos; request += next) {
      if (::recv(viewer.get(), &next, 1, 0) != 1) return;
    }
    if (!mayEnter(request)) {
      const std::string challenge =
          m_door == Door::kBasic ? "Basic realm=\"room\"" : "Digest realm=\"room\", nonce=\"n0nce\", qop=\"auth\"";
      sendAll(viewer, "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: " + challenge +
                          "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
      return;
    }
    bool is_there = sendAll(viewer,
                            "HTTP/1.1 200 OK\r\nConnection: close\r\n"
                            "Content-Type: multipart/x-mixed-replace; boundary=\"next\"\r\n\r\n");
    for (bool is_first = true; is_there && !m_is_leaving; is_first = false) {
      std::unique_lock lock(m_mutex);
      const std::string jpeg = m_jpeg;
      const auto pause = m_pause;
      lock.unlock();
      const std::string end = has_no_end && !is_first ? "" : "--next\r\nContent-Type: image/jpeg\r\n\r\n";
      is_there = sendAll(viewer, end + jpeg + "\r\n");
      std::this_thread::sleep_for(pause);
    }
  }

  const Door m_door;
  const std::string m_user;
  const std::string m_password;
  std::mutex m_mutex;
  std::string m_jpeg;
  std::chrono::milliseconds m_pause{50};
  std::atomic<bool> m_is_leaving{false};
  std::uint16_t m_port = 0;
  FileDescriptor m_listener;
  std::thread m_server;
};
