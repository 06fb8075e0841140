// The C library's system log calls, for a machine that may have no log daemon: every line goes to "system.log" in the
// state directory, errors and worse also to standard error, there not again within a minute; where somebody watches a
// live run in a terminal, notices also to standard output. Usable before openlog and after main, from any thread.
//
// File and terminal each have a thread. A caller waits for them, so that a line stands where it belongs, but not for a
// disk or a terminal that does not answer.

// Fortified builds turn these calls into the __..._chk ones within the header itself; we define both kinds here.
#undef _FORTIFY_SOURCE

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/side_thread.h"
#include "platform/workstation/system/standard_output.h"
#include "platform/workstation/system/state_directory.h"

using workstation::SideThread;

namespace {

constexpr off_t kRotateAt_bytes = 10'000'000;  // system.log and system.log.1 together stay within twice this
constexpr std::size_t kLongestLine = 4096;
constexpr time_t kSilence_s = 60;  // before a message is shown again

constexpr std::array<const char*, 8> kLevels{"emergency", "alert",  "critical", "error",
                                             "warning",   "notice", "info",     "debug"};

constexpr std::size_t kMostWaiting = 1000;
constexpr std::chrono::milliseconds kPatience{200};
/// Between two tries of a file that could not be written.
constexpr std::chrono::seconds kPause{2};

std::size_t clampLength(int printed, std::size_t room) {
  return printed < 0 ? 0 : std::min(static_cast<std::size_t>(printed), room - 1);
}

SideThread& disk() {
  static auto& the_disk = *new SideThread(kMostWaiting);  // never destroyed: lines come until the process ends
  return the_disk;
}

SideThread& terminal() {
  static auto& the_terminal = *new SideThread(kMostWaiting);  // never destroyed: see above
  return the_terminal;
}

void toStandardError(std::string text) {
  terminal().post([text = std::move(text)] { workstation::writeAll(STDERR_FILENO, text.data(), text.size()); });
  terminal().settle(kPatience);
}

/// Whether somebody watches a live run in a terminal.
bool areNoticesShown() {
  const char* const output = std::getenv("VELMOR_OUTPUT");
  return output != nullptr && std::string_view(output) == "text" && !ticker_clock::isReplay();
}

/// "14:03:07  message", on the wall clock of the place where the program runs.
void showNotice(const std::string& message) {
  const time_t now = std::time(nullptr);
  tm local{};
  localtime_r(&now, &local);
  std::array<char, 16> time{};
  std::strftime(time.data(), time.size(), "%H:%M:%S", &local);
  workstation::showLines(time.data() + ("  " + message));
}

struct Entry {
  std::string line;
  std::string message;
  std::string for_terminal;  ///< "velmor_care: message": the time and the process are of no use to somebody there
  bool shown;                ///< on standard error already
};

/// system.log. On the disk's thread only.
class LogFile {
 public:
  /// An entry, before which so many others never got here.
  void write(const Entry& entry, unsigned long missed) {
    if (missed > 0 && m_failure.empty()) m_failure = "the disk did not answer";
    m_lost += missed;
    if (store(entry.line)) return;
    ++m_lost;
    if (!entry.shown) toStandardError(entry.for_terminal);
  }

  /// The state directory may be another one from here on.
  void reopen(const std::string& ident) {
    close();
    m_path.clear();
    m_ident = ident;
    m_lost = 0;
    m_failure.clear();
  }

  void close() { m_file = FileDescriptor(); }

 private:
  using Clock = std::chrono::steady_clock;

  bool store(const std::string& line) {
    if (m_file.get() < 0 && !open()) return false;
    if (m_size >= kRotateAt_bytes && !rotate()) return false;
    if (m_lost > 0) {
      const std::string head = line.substr(0, line.find(": ") + 2);
      if (!append(head + std::to_string(m_lost) + " lines before this one are missing here: " + m_failure + "\n")) {
        return false;
      }
      m_lost = 0;
    }
    if (!append(line)) return false;
    m_failure.clear();
    return true;
  }

  /// All of it or nothing.
  bool append(const std::string& text) {
    if (!workstation::writeAll(m_file.get(), text.data(), text.size())) {
      const int reason = errno;
      [[maybe_unused]] const int cut = ::ftruncate(m_file.get(), m_size);
      return fail(strerrordesc_np(reason));
    }
    m_size += static_cast<off_t>(text.size());
    return true;
  }

  bool open() {
    if (!m_failure.empty() && Clock::now() - m_tried < kPause) return false;
    m_tried = Clock::now();
    try {
      m_path = (workstation::stateDirectory() / "system.log").string();
    } catch (...) {
      return fail("no state directory");
    }
    m_file = FileDescriptor(::open(m_path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640));
    struct stat info {};
    if (m_file.get() < 0 || ::fstat(m_file.get(), &info) != 0) return fail(strerrordesc_np(errno));
    m_size = info.st_size;
    return true;
  }

  bool rotate() {
    if (::rename(m_path.c_str(), (m_path + ".1").c_str()) != 0) return fail(strerrordesc_np(errno));
    close();
    return open();
  }

  /// Said once; until the file takes lines again every line goes to standard error.
  bool fail(const std::string& reason) {
    close();
    m_tried = Clock::now();
    if (m_failure.empty()) {
      toStandardError(m_ident + ": cannot write " + (m_path.empty() ? "system.log" : m_path) + ": " + reason +
                      "; the system log goes to standard error\n");
    }
    m_failure = reason;
    return false;
  }

  std::string m_ident = program_invocation_short_name;
  std::string m_path;
  FileDescriptor m_file;
  off_t m_size = 0;
  std::string m_failure;  ///< why the file took no line last, else empty
  Clock::time_point m_tried;
  unsigned long m_lost = 0;  ///< lines since the file took one
};

LogFile& logFile() {
  static auto& the_file = *new LogFile;  // never destroyed: see above
  return the_file;
}

/// Trivially destroyed, so that it serves destructors that run after main too.
class SystemLog {
 public:
  void open(const char* ident, int options) {
    workstation::takeFileLimitsAsFullDisks();
    {
      const std::scoped_lock lock(m_mutex);
      m_options = options;
      m_ident.fill('\0');
      if (ident != nullptr) std::strncpy(m_ident.data(), ident, m_ident.size() - 1);
    }
    disk().post([name = std::string(this->ident())] { logFile().reopen(name); });
    disk().settle(kPatience);
  }

  static void close() {
    disk().post([] { logFile().close(); });
    disk().settle(kPatience);
  }

  void write(int priority, const char* format, va_list arguments) {
    const int caller_errno = errno;
    Entry entry = entryOf(priority, format, arguments);
    if (entry.shown) toStandardError(entry.for_terminal);
    if (LOG_PRI(priority) == LOG_NOTICE && areNoticesShown()) showNotice(entry.message);
    const unsigned long missed = m_missed.exchange(0);
    const bool taken = disk().post([entry = std::move(entry), missed] { logFile().write(entry, missed); });
    if (!taken) m_missed += missed + 1;
    disk().settle(kPatience);
    errno = caller_errno;
  }

 private:
  [[nodiscard]] const char* ident() const {
    return m_ident[0] != '\0' ? m_ident.data() : program_invocation_short_name;
  }

  Entry entryOf(int priority, const char* format, va_list arguments) {
    const int caller_errno = errno;
    std::array<char, kLongestLine> line{};
    const std::scoped_lock lock(m_mutex);
    const std::size_t head = writeHead(priority, line);
    errno = caller_errno;  // for %m
    const int printed = vsnprintf(line.data() + head, line.size() - 1 - head, format, arguments);
    const std::size_t length = finish(line, head, head + clampLength(printed, line.size() - 1 - head));
    const std::string message(line.data() + head, length - head);
    const bool for_terminal = LOG_PRI(priority) <= LOG_ERR || (m_options & LOG_PERROR) != 0;
    return {
        {line.data(), length}, message, std::string(ident()) + ": " + message, for_terminal && !isRepetition(message)};
  }

  struct Shown {
    std::size_t hash;
    time_t second;  ///< since the machine's start; 0 for none
  };

  /// "2026-01-31T08:15:00.250Z velmor_care[123] error: "; returns its length.
  std::size_t writeHead(int priority, std::array<char, kLongestLine>& line) const {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    const std::size_t date = std::strftime(line.data(), line.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    const int rest = snprintf(line.data() + date, line.size() - date, ".%03ldZ %.64s[%d] %s: ", now.tv_nsec / 1'000'000,
                              ident(), getpid(), kLevels.at(static_cast<std::size_t>(LOG_PRI(priority))));
    return date + clampLength(rest, line.size() - date);
  }

  /// One entry is one line: trailing line feeds go, control characters within become blanks. Returns the length with
  /// the final line feed.
  static std::size_t finish(std::array<char, kLongestLine>& line, std::size_t head, std::size_t end) {
    while (end > head && line[end - 1] == '\n') --end;
    const auto is_control = [](char c) { return (c >= '\0' && c < ' ') || c == '\x7f'; };
    std::replace_if(line.data() + head, line.data() + end, is_control, ' ');
    line[end] = '\n';
    return end + 1;
  }

  /// Whether the message was shown a moment ago: who looks at the terminal need not read twice a second that a camera
  /// is away. Keeps it if not.
  bool isRepetition(std::string_view message) {
    const std::size_t hash = std::hash<std::string_view>()(message);
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto is_recent = [&](const Shown& shown) {
      return shown.hash == hash && shown.second != 0 && now.tv_sec - shown.second < kSilence_s;
    };
    if (std::any_of(m_shown.begin(), m_shown.end(), is_recent)) return true;
    m_shown.at(m_next_shown) = {hash, now.tv_sec};
    m_next_shown = (m_next_shown + 1) % m_shown.size();
    return false;
  }

  std::mutex m_mutex;
  std::array<char, 65> m_ident{};
  std::array<Shown, 8> m_shown{};  ///< the last messages on standard error
  std::size_t m_next_shown = 0;
  int m_options = 0;
  std::atomic<unsigned long> m_missed{0};  ///< lines that no longer found a place in the queue
};

constinit SystemLog the_log;

}  // namespace

extern "C" {

void openlog(const char* ident, int option, int /*facility*/) { the_log.open(ident, option); }

void closelog() { the_log.close(); }

void vsyslog(int pri, const char* fmt, va_list ap) { the_log.write(pri, fmt, ap); }

void syslog(int pri, const char* fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  the_log.write(pri, fmt, arguments);
  va_end(arguments);
}

// The C library's own names for fortified builds.
void __vsyslog_chk(int priority, int /*flag*/, const char* format, va_list arguments) {
  the_log.write(priority, format, arguments);
}

void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  the_log.write(priority, format, arguments);
  va_end(arguments);
}

}  // extern "C"
