// A disk without room, by a limit on the size of files.
#pragma once

#include <sys/resource.h>

#include <csignal>

/// For as long as it lives, files of this process hold so many bytes at most.
class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes) {
    ::signal(SIGXFSZ, SIG_IGN);
    ::getrlimit(RLIMIT_FSIZE, &m_before);
    const rlimit full{bytes, m_before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &full);
  }
  ~FullDisk() { ::setrlimit(RLIMIT_FSIZE, &m_before); }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit m_before{};
};
