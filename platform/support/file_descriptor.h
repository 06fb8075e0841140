// The owner of a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

/// Closes it at the end; -1 is none.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd = -1) : m_fd(fd) {}
  ~FileDescriptor() {
    if (m_fd >= 0) ::close(m_fd);
  }
  FileDescriptor(FileDescriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  [[nodiscard]] int get() const { return m_fd; }
  [[nodiscard]] explicit operator bool() const { return m_fd >= 0; }

 private:
  int m_fd;
};
