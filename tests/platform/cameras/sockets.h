// Sockets of this machine, as servers of tests use them.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "platform/support/file_descriptor.h"

inline sockaddr_in addressHere(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

/// Listens at a free port.
inline FileDescriptor listenHere(std::uint16_t& port) {
  FileDescriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = addressHere(0);
  socklen_t length = sizeof address;
  if (::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), length) != 0 || ::listen(listener.get(), 64) != 0 ||
      ::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    throw std::runtime_error("no free port");
  }
  port = ntohs(address.sin_port);
  return listener;
}

/// Nobody where none comes in time.
inline FileDescriptor acceptWithin(const FileDescriptor& listener, int wait_ms) {
  pollfd waiting{listener.get(), POLLIN, 0};
  if (::poll(&waiting, 1, wait_ms) <= 0) return FileDescriptor();
  return FileDescriptor(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
}

inline FileDescriptor connectHere(std::uint16_t port) {
  FileDescriptor connection(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = addressHere(port);
  if (::connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return FileDescriptor();
  }
  return connection;
}

inline bool sendAll(const FileDescriptor& to, const std::string& bytes) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t now = ::send(to.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (now <= 0) return false;
    sent += static_cast<std::size_t>(now);
  }
  return true;
}
