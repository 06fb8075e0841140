#include "platform/workstation/inference/engine/threads.h"

#include <omp.h>

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace workstation {
namespace {

constexpr int kMostThreads = 64;

int readThreads() {
  const char* text = std::getenv("VELMOR_THREADS");
  const std::string_view number = text == nullptr ? "" : text;
  int threads = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), threads);
  const bool is_good = error == std::errc() && end == number.data() + number.size() && threads >= 1;
  return is_good && threads <= kMostThreads ? threads : 1;
}

}  // namespace

int threadsOfRun() {
  static const int threads = readThreads();
  return threads;
}

ScopedOpenMpThreads::ScopedOpenMpThreads() : m_before(::omp_get_max_threads()) {
  ::omp_set_num_threads(threadsOfRun());
}

ScopedOpenMpThreads::~ScopedOpenMpThreads() { ::omp_set_num_threads(m_before); }

}  // namespace workstation
