#include "tests/platform/http_client.h"

#include <arpa/inet.h>
#include <glib.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

namespace {

constexpr int kTurn_ms = 5;
constexpr int kTurns = 2000;

}  // namespace

HttpClient::HttpClient(std::uint16_t port, const std::string& text, const char* from)
    : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const auto end = [](in_addr_t address, std::uint16_t at) {
    sockaddr_in inet{};
    inet.sin_family = AF_INET;
    inet.sin_port = htons(at);
    inet.sin_addr.s_addr = address;
    return inet;
  };
  const sockaddr_in own = end(::inet_addr(from), 0);
  const sockaddr_in other = end(htonl(INADDR_LOOPBACK), port);
  const int on = 1;
  ::setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (::bind(m_socket, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
      ::connect(m_socket, reinterpret_cast<const sockaddr*>(&other), sizeof other) != 0) {
    ::close(m_socket);
    m_socket = -1;
  } else {
    send(text);
  }
}

HttpClient::~HttpClient() {
  if (m_socket >= 0) ::close(m_socket);
}

void HttpClient::send(const std::string& bytes) {
  for (size_t sent = 0; sent < bytes.size();) {
    pollfd waiting{m_socket, POLLOUT, 0};
    if (::poll(&waiting, 1, kTurn_ms * kTurns) != 1) return;
    const ssize_t taken = ::send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (taken < 0) return;
    sent += static_cast<size_t>(taken);
  }
}

bool HttpClient::leave() {
  ::shutdown(m_socket, SHUT_WR);
  pollfd waiting{m_socket, POLLIN, 0};
  char byte = 0;
  return ::poll(&waiting, 1, kTurn_ms * kTurns) == 1 && ::recv(m_socket, &byte, 1, 0) <= 0;
}

bool HttpClient::read() {
  for (int turn = 0; turn < kTurns; ++turn) {
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
    pollfd waiting{m_socket, POLLIN, 0};
    if (::poll(&waiting, 1, kTurn_ms) != 1) continue;
    char block[65536];
    const ssize_t got = ::recv(m_socket, block, sizeof block, 0);
    if (got <= 0) return false;
    m_pending.append(block, static_cast<size_t>(got));
    return true;
  }
  return false;
}

std::string HttpClient::receiveUntil(const std::string& text) {
  size_t found = 0;
  while ((found = m_pending.find(text)) == std::string::npos && read()) {
  }
  const size_t length = found == std::string::npos ? m_pending.size() : found + text.size();
  std::string taken = m_pending.substr(0, length);
  m_pending.erase(0, length);
  return taken;
}

bool HttpClient::isOpen(std::chrono::milliseconds time) {
  pollfd waiting{m_socket, POLLIN, 0};
  char block[65536];
  return ::poll(&waiting, 1, static_cast<int>(time.count())) != 1 || ::recv(m_socket, block, sizeof block, 0) > 0;
}

bool HttpClient::seesEnd() {
  for (int turn = 0; turn < kTurns; ++turn) {
    if (!isOpen(std::chrono::milliseconds(kTurn_ms))) return true;
  }
  return false;
}

HttpReply HttpClient::receive(bool with_body) {
  HttpReply reply;
  std::istringstream head(receiveUntil("\r\n\r\n"));
  std::string version;
  head >> version >> reply.status;
  std::string line;
  std::getline(head, line);
  while (std::getline(head, line) && line.size() > 1) {
    const size_t colon = std::min(line.find(':'), line.size() - 1);
    std::string name = line.substr(0, colon);
    std::transform(name.begin(), name.end(), name.begin(), [](char c) { return g_ascii_tolower(c); });
    const size_t start = std::min(line.find_first_not_of(' ', colon + 1), line.size() - 1);
    reply.headers[name] = line.substr(start, line.size() - 1 - start);
  }
  const size_t length = with_body ? std::stoul("0" + reply.headers["content-length"]) : 0;
  while (m_pending.size() < length && read()) {
  }
  reply.body = m_pending.substr(0, length);
  m_pending.erase(0, length);
  return reply;
}

std::string requestText(std::uint16_t port, const std::string& method, const std::string& path,
                        const std::string& headers, const std::string& body) {
  std::string head = method + " " + path + " HTTP/1.1\r\n" + headers;
  if (headers.find("Host:") == std::string::npos) head += "Host: 127.0.0.1:" + std::to_string(port) + "\r\n";
  if (!body.empty() && headers.find("Transfer-Encoding:") == std::string::npos) {
    head += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  }
  return head + "\r\n" + body;
}

HttpReply request(std::uint16_t port, const std::string& method, const std::string& path, const std::string& headers,
                  const std::string& body) {
  return HttpClient(port, requestText(port, method, path, headers, body)).receive(method != "HEAD");
}
