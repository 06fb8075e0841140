// The C library's system log calls, for a machine that may have no log daemon: every line goes to "system.log" in the
// state directory, errors and worse also to standard error, there not again within a minute. Usable before openlog and
// after main, from any thread.

// Fortified builds turn these calls into the __..._chk ones within the header itself; we define both kinds here.
#undef _FORTIFY_SOURCE

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/workstation/state_directory.h"

namespace {

constexpr off_t kRotateAt_bytes = 10'000'000;  // system.log and system.log.1 together stay within twice this
constexpr std::size_t kLongestLine = 4096;
constexpr time_t kSilence_s = 60;  // before a message is shown again

constexpr std::array<const char*, 8> kLevels{"emergency", "alert",  "critical", "error",
                                             "warning",   "notice", "info",     "debug"};

std::size_t clampLength(int printed, std::size_t room) {
  return printed < 0 ? 0 : std::min(static_cast<std::size_t>(printed), room - 1);
}

/// Trivially destroyed, so that it serves destructors that run after main too.
class SystemLog {
 public:
  void open(const char* ident, int options) {
    const std::scoped_lock lock(m_mutex);
    closeFile();
    m_options = options;
    m_ident.fill('\0');
    if (ident != nullptr) std::strncpy(m_ident.data(), ident, m_ident.size() - 1);
  }

  void close() {
    const std::scoped_lock lock(m_mutex);
    closeFile();
  }

  void write(int priority, const char* format, va_list arguments) {
    const int caller_errno = errno;
    std::array<char, kLongestLine> line{};
    const std::scoped_lock lock(m_mutex);
    const std::size_t head = writeHead(priority, line);
    errno = caller_errno;  // for %m
    const int printed = vsnprintf(line.data() + head, line.size() - 1 - head, format, arguments);
    const std::size_t length = finish(line, head, head + clampLength(printed, line.size() - 1 - head));
    const bool stored = writeFile(line.data(), length);
    const bool shown = LOG_PRI(priority) <= LOG_ERR || (m_options & LOG_PERROR) != 0;
    if (!stored || (shown && !isRepetition({line.data() + head, length - head}))) echo(line, head, length);
    errno = caller_errno;
  }

 private:
  struct Shown {
    std::size_t hash;
    time_t second;  ///< since the machine's start; 0 for none
  };

  [[nodiscard]] const char* ident() const {
    return m_ident[0] != '\0' ? m_ident.data() : program_invocation_short_name;
  }

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

  bool writeFile(const char* line, std::size_t length) {
    if (m_fd < 0 && !m_given_up) openFile();
    if (m_fd < 0) return false;
    if (m_size >= kRotateAt_bytes) rotate();
    if (m_fd < 0) return false;
    if (::write(m_fd, line, length) != static_cast<ssize_t>(length)) {
      giveUp(errno);
      return false;
    }
    m_size += static_cast<off_t>(length);
    return true;
  }

  void openFile() {
    if (!resolvePath()) return giveUp(0);
    m_fd = ::open(m_path.data(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
    struct stat info {};
    if (m_fd < 0 || fstat(m_fd, &info) != 0) return giveUp(errno);
    m_size = info.st_size;
  }

  bool resolvePath() {
    try {
      const std::string path = workstation::stateDirectory() / "system.log";
      if (path.size() >= m_path.size()) return false;
      std::copy(path.c_str(), path.c_str() + path.size() + 1, m_path.begin());
      return true;
    } catch (...) {
      return false;
    }
  }

  void rotate() {
    std::array<char, sizeof(m_path) + 2> old{};
    snprintf(old.data(), old.size(), "%s.1", m_path.data());
    if (rename(m_path.data(), old.data()) != 0) return giveUp(errno);
    closeFile();
    openFile();
  }

  /// Said once for each openlog; from then on every line goes to standard error.
  void giveUp(int reason) {
    closeFile();
    m_given_up = true;
    std::array<char, sizeof(m_path) + 256> text{};
    const int length =
        snprintf(text.data(), text.size(), "%.64s: cannot write %s%s%s; the system log goes to standard error\n",
                 ident(), m_path[0] != '\0' ? m_path.data() : "system.log: no state directory", reason != 0 ? ": " : "",
                 reason != 0 ? strerrordesc_np(reason) : "");
    toStandardError(text.data(), clampLength(length, text.size()));
  }

  void closeFile() {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
    m_given_up = false;
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

  /// "velmor_care: message": the time and the process are of no use to somebody who looks at the terminal.
  void echo(const std::array<char, kLongestLine>& line, std::size_t head, std::size_t length) const {
    std::array<char, kLongestLine + 72> text{};
    const int printed =
        snprintf(text.data(), text.size(), "%.64s: %.*s", ident(), static_cast<int>(length - head), line.data() + head);
    toStandardError(text.data(), clampLength(printed, text.size()));
  }

  static void toStandardError(const char* text, std::size_t length) {
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text, length);
  }

  std::mutex m_mutex;
  std::array<char, 65> m_ident{};
  std::array<char, 4096> m_path{};
  std::array<Shown, 8> m_shown{};  ///< the last messages on standard error
  std::size_t m_next_shown = 0;
  int m_options = 0;
  int m_fd = -1;
  off_t m_size = 0;
  bool m_given_up = false;
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
