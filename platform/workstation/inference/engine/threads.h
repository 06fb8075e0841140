// How many threads one run of a network takes.
#pragma once

namespace workstation {

/// As the environment's VELMOR_THREADS says, 1 to 64; else 1: two threads on one run wait for each other for a quarter
/// of their time, and beside other work for most of it.
int threadsOfRun();

/// While it lives, what the calling thread asks of OpenMP, which oneDNN runs on, takes threadsOfRun() threads. With one
/// no pool is ever made.
class ScopedOpenMpThreads {
 public:
  ScopedOpenMpThreads();
  ~ScopedOpenMpThreads();
  ScopedOpenMpThreads(const ScopedOpenMpThreads&) = delete;
  ScopedOpenMpThreads& operator=(const ScopedOpenMpThreads&) = delete;

 private:
  int m_before;
};

}  // namespace workstation
