#include "platform/workstation/system/durable_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace workstation {
namespace {

[[noreturn]] void fail(const std::filesystem::path& path, const char* what) {
  throw std::runtime_error(path.string() + ": " + what + ": " + std::strerror(errno));
}

/// Gives the old file its second name without a moment in which it has none.
void keepAs(const std::filesystem::path& path, const std::filesystem::path& previous) {
  const std::filesystem::path step = previous.string() + ".new";
  ::unlink(step.c_str());
  if (::link(path.c_str(), step.c_str()) != 0) {
    if (errno == ENOENT) {
      return;
    }
    fail(path, "the old content cannot be kept");
  }
  if (::rename(step.c_str(), previous.c_str()) != 0) {
    fail(previous, "the old content cannot be kept");
  }
}

}  // namespace

void takeFileLimitsAsFullDisks() { std::signal(SIGXFSZ, SIG_IGN); }

bool writeAll(int fd, const void* bytes, size_t size) {
  const char* next = static_cast<const char*>(bytes);
  while (size > 0) {
    const ssize_t written = ::write(fd, next, size);
    if (written < 0 && errno == EAGAIN) {  // a pipe that its owner has set so
      pollfd room{fd, POLLOUT, 0};
      ::poll(&room, 1, -1);
      continue;
    }
    if (written < 0 && errno != EINTR) {
      return false;
    }
    if (written > 0) {
      next += written;
      size -= static_cast<size_t>(written);
    }
  }
  return true;
}

std::optional<std::string> readFile(const std::filesystem::path& path, size_t limit) {
  // Non-blocking: a pipe in the file's place must not hang the start.
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.get() < 0) {
    if (errno == ENOENT) {
      return std::nullopt;
    }
    fail(path, "cannot be opened");
  }
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) {
    fail(path, "cannot be read");
  }
  if (!S_ISREG(status.st_mode)) {
    throw std::runtime_error(path.string() + ": is not a file");
  }
  std::string content;
  content.reserve(std::min(static_cast<size_t>(status.st_size), limit));  // growing takes up to three times as much
  char block[65536];
  for (;;) {
    const ssize_t got = ::read(file.get(), block, sizeof block);
    if (got < 0 && errno != EINTR) {
      fail(path, "cannot be read");
    }
    if (got == 0) {
      return content;
    }
    content.append(block, got > 0 ? static_cast<size_t>(got) : 0);
    if (content.size() > limit) {
      throw std::runtime_error(path.string() + ": is larger than " + std::to_string(limit) + " bytes");
    }
  }
}

void syncDirectory(const std::filesystem::path& directory) {
  const FileDescriptor fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.get() < 0 || ::fsync(fd.get()) != 0) {
    fail(directory, "cannot be written to disk");
  }
}

bool isElsewhere(const FileDescriptor& file, const std::filesystem::path& path) {
  struct stat own {};
  struct stat there {};
  if (::fstat(file.get(), &own) != 0) return false;
  if (::stat(path.c_str(), &there) != 0) return errno == ENOENT;
  return own.st_dev != there.st_dev || own.st_ino != there.st_ino;
}

bool removeFile(const std::filesystem::path& path) {
  std::error_code error;
  const bool was_there = std::filesystem::remove(path, error);
  if (error) throw std::runtime_error(path.string() + ": cannot be removed: " + error.message());
  if (was_there) syncDirectory(path.parent_path());
  return was_there;
}

void replaceFile(const std::filesystem::path& path, std::string_view content, const std::filesystem::path& previous) {
  const std::filesystem::path fresh = path.string() + ".new";
  {
    const FileDescriptor file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (file.get() < 0 || !writeAll(file.get(), content.data(), content.size()) || ::fdatasync(file.get()) != 0) {
      fail(fresh, "cannot be written");
    }
  }
  if (!previous.empty()) {
    keepAs(path, previous);
  }
  if (::rename(fresh.c_str(), path.c_str()) != 0) {
    fail(path, "cannot be replaced");
  }
  syncDirectory(path.parent_path());
}

}  // namespace workstation
