// SIGTERM belongs to the main thread. Threads inherit the mask of the thread that creates them, so every call that may
// create one (our own, or inside a library) is made with the signal blocked.
#pragma once

#include <csignal>

namespace workstation {

/// Blocks SIGTERM in the calling thread for the lifetime of the object, then restores the mask as it was.
class ScopedSigtermBlock {
 public:
  ScopedSigtermBlock() {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &m_previous);
  }
  ~ScopedSigtermBlock() { pthread_sigmask(SIG_SETMASK, &m_previous, nullptr); }
  ScopedSigtermBlock(const ScopedSigtermBlock&) = delete;
  ScopedSigtermBlock& operator=(const ScopedSigtermBlock&) = delete;

 private:
  sigset_t m_previous{};
};

}  // namespace workstation
