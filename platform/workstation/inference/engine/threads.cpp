#include "platform/workstation/inference/engine/threads.h"

#include <omp.h>

#include <charconv>
#include <cstdlib>

namespace workstation {

std::optional<int> threadsFrom(std::string_view text) {
  int threads = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, threads);
  const bool is_good = error == std::errc() && stop == end && threads >= 1 && threads <= kMostThreads;
  return is_good ? std::optional(threads) : std::nullopt;
}

int threadsOfRun() {
  static const int threads = [] {
    const char* text = std::getenv("VELMOR_THREADS");
    return threadsFrom(text == nullptr ? "" : text).value_or(1);
  }();
  return threads;
}

ScopedOpenMpThreads::ScopedOpenMpThreads() : m_before(::omp_get_max_threads()) {
  ::omp_set_num_threads(threadsOfRun());
}

ScopedOpenMpThreads::~ScopedOpenMpThreads() { ::omp_set_num_threads(m_before); }

}  // namespace workstation
