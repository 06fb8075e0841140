#include "platform/workstation/system/standard_output.h"

#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/clock/clock.h"
#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/side_thread.h"

namespace workstation {
namespace {

constexpr std::size_t kMostWaiting = 1000;
/// Long enough for a reader who reads, so that the order among streams is kept.
constexpr std::chrono::milliseconds kPatience{200};
constexpr std::chrono::seconds kPatienceAtEnd{2};

std::atomic<unsigned> lost{0};

SideThread& output() {
  static auto& the_output = *new SideThread(kMostWaiting);  // never destroyed: lines come until the process ends
  return the_output;
}

std::atomic<bool> replay_failed{false};

/// A replay is made for what it shows: its main returns 0 whatever became of that. From before main, so that it comes
/// after nearly all else.
[[maybe_unused]] const int registered = on_exit(
    [](int status, void* /*unused*/) {
      if (!replay_failed || status != 0) return;
      std::fflush(nullptr);
      _exit(EXIT_FAILURE);
    },
    nullptr);

void write(const std::string& lines) {
  if (writeAll(STDOUT_FILENO, lines.data(), lines.size())) return;
  const char* const why = strerrordesc_np(errno);
  if (!ticker_clock::isReplay()) {
    syslog(LOG_WARNING, "a line could not be shown on standard output: %s", why);
  } else if (!replay_failed.exchange(true)) {
    syslog(LOG_ERR, "standard output cannot be written: %s", why);
  }
}

void writeWithLosses(const std::string& lines) {
  if (const unsigned missed = lost.exchange(0); missed > 0) {
    write("(" + std::to_string(missed) + " lines were not shown here: nobody read)\n");
  }
  write(lines);
}

void showLive(const std::string& lines) {
  if (!output().post([lines] { writeWithLosses(lines); })) ++lost;
  output().settle(kPatience);
}

ssize_t writeStream(void* /*cookie*/, const char* bytes, size_t size) {
  showLive({bytes, size});
  return static_cast<ssize_t>(size);
}

void finish() {
  std::fflush(stdout);
  if (!output().drain(kPatienceAtEnd)) syslog(LOG_WARNING, "standard output was not read to its end");
}

}  // namespace

void showLines(const std::string& lines) {
  std::fflush(stdout);
  if (ticker_clock::isReplay()) {
    write(lines);
  } else {
    showLive(lines);
  }
}

void keepStandardOutputFromBlocking() {
  static FILE* stream = nullptr;
  if (stream != nullptr || ticker_clock::isReplay()) return;
  stream = fopencookie(nullptr, "w", {nullptr, writeStream, nullptr, nullptr});
  if (stream == nullptr) return;
  std::setvbuf(stream, nullptr, _IOLBF, BUFSIZ);
  std::fflush(stdout);
  stdout = stream;
  std::atexit(finish);
}

}  // namespace workstation
