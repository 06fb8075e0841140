// How many threads one run of a network takes.
#pragma once

#include <optional>
#include <string_view>

namespace workstation {

inline constexpr int kMostThreads = 64;

/// A whole number from 1 to kMostThreads, or nothing.
std::optional<int> threadsFrom(std::string_view text);

/// As the environment's VELMOR_THREADS says; else 1: two threads on one run wait for each other for a quarter
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
