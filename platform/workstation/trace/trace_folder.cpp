#include "platform/workstation/trace/trace_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using Seconds = std::chrono::sys_seconds;

constexpr const char* kNameFormat = "trace-%Y%m%dT%H%M%SZ.jsonl";
/// Names of the next seconds that are tried where one is taken.
constexpr int kMostNames = 60;

Seconds secondOf(TimeStamp time) { return std::chrono::floor<std::chrono::seconds>(time); }

std::string nameAt(Seconds time) {
  const std::time_t seconds = time.time_since_epoch().count();
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  std::array<char, 64> name{};
  std::strftime(name.data(), name.size(), kNameFormat, &utc);
  return name.data();
}

/// When a trace of that name began; none for a file that is none of ours.
std::optional<Seconds> beginOf(const std::string& name) {
  std::tm utc{};
  if (::strptime(name.c_str(), kNameFormat, &utc) == nullptr) return std::nullopt;
  const Seconds begin{std::chrono::seconds(::timegm(&utc))};
  return nameAt(begin) == name ? std::optional(begin) : std::nullopt;
}

struct Trace {
  fs::path path;
  std::int64_t size;
};

/// Ours, the oldest first.
std::multimap<Seconds, Trace> tracesIn(const fs::path& directory) {
  std::multimap<Seconds, Trace> found;
  std::error_code error;
  const fs::directory_iterator end;
  for (fs::directory_iterator entry(directory, error); !error && entry != end; entry.increment(error)) {
    const auto begin = beginOf(entry->path().filename().string());
    struct stat status {};
    if (!begin || ::lstat(entry->path().c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    found.emplace(*begin, Trace{entry->path(), status.st_size});
  }
  return found;
}

}  // namespace

TraceFolder::TraceFolder(fs::path directory, const TraceLimits& limits)
    : m_directory(directory.has_filename() ? std::move(directory) : directory.parent_path()), m_limits(limits) {}

void TraceFolder::write(const TracedLine& line) {
  m_missing += line.missed;
  if (store(line)) {
    sayWhatIsMissing();
  } else {
    ++m_missing;
  }
  ++m_taken;
}

void TraceFolder::sayWhatIsMissing() {
  const std::uint64_t missing = std::exchange(m_missing, 0);
  m_failed = false;
  if (missing == 0) return;
  ::syslog(LOG_INFO, "%s: the trace goes on; %llu lines are missing", m_directory.c_str(),
           static_cast<unsigned long long>(missing));
}

bool TraceFolder::store(const TracedLine& line) {
  if (m_failed && std::chrono::steady_clock::now() - m_tried < m_limits.pause) return false;
  if (hasEnded(line.time, line.text.size()) && !begin(line.time)) return fail(errno);
  if (!leavesSpare()) return fail(ENOSPC);
  const std::string text = textFor(line);
  if (!writeAll(m_file.get(), text.data(), text.size())) {
    const int reason = errno;
    [[maybe_unused]] const int cut = ::ftruncate(m_file.get(), m_size);
    if (m_size == 0) ::unlink(m_path.c_str());
    // The same file goes on once a full disk has room again; where anything else has happened, another may.
    if (m_size == 0 || reason != ENOSPC) m_file = FileDescriptor();
    return fail(reason);
  }
  m_size += static_cast<std::int64_t>(text.size());
  m_settings = line.settings;
  return true;
}

std::string TraceFolder::textFor(const TracedLine& line) const {
  std::string text = m_size == 0 ? *line.header : "";
  if (line.settings && (m_size == 0 || line.settings != m_settings)) text += *line.settings;
  if (m_missing > 0) text += R"({"kind":"missing","lines":)" + std::to_string(m_missing) + "}\n";
  return text + line.text;
}

/// Also when the clock was set back, and when somebody has removed the file or the disk below it.
bool TraceFolder::hasEnded(TimeStamp time, std::size_t more) const {
  if (m_file.get() < 0 || m_size + static_cast<std::int64_t>(more) > m_limits.file_bytes || time < m_began ||
      time - m_began >= m_limits.file_age) {
    return true;
  }
  struct stat open {};
  struct stat named {};
  return ::fstat(m_file.get(), &open) != 0 || ::stat(m_path.c_str(), &named) != 0 || open.st_dev != named.st_dev ||
         open.st_ino != named.st_ino;
}

/// A new file; false with errno set when there can be none.
bool TraceFolder::begin(TimeStamp time) {
  m_file = FileDescriptor();
  if (!makeFolders()) return false;
  makeRoom(time);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC;
  for (int later = 0; m_file.get() < 0; ++later) {
    m_path = m_directory / nameAt(secondOf(time) + std::chrono::seconds(later));
    m_file = FileDescriptor(::open(m_path.c_str(), kFlags, S_IRUSR | S_IWUSR));
    if (m_file.get() < 0 && (errno != EEXIST || later == kMostNames)) return false;
  }
  m_began = time;
  m_size = 0;
  return true;
}

/// Also those above it, of which somebody may have removed one, or not mounted it yet.
bool TraceFolder::makeFolders() const {
  std::error_code error;
  fs::create_directories(m_directory.parent_path(), error);
  if (::mkdir(m_directory.c_str(), S_IRWXU) == 0 || errno == EEXIST) return true;
  if (error) errno = error.value();
  return false;
}

/// For one more file of full size. A clock that jumps for a moment makes nothing old: the newest trace must be as late.
void TraceFolder::makeRoom(TimeStamp time) const {
  const auto traces = tracesIn(m_directory);
  if (traces.empty()) return;
  const Seconds now = std::min(secondOf(time), traces.rbegin()->first + m_limits.file_age);
  std::int64_t all = m_limits.file_bytes;
  for (const auto& [begin, trace] : traces) all += trace.size;
  for (const auto& [begin, trace] : traces) {
    if (all <= m_limits.all_bytes && now - begin <= m_limits.age) break;
    if (::unlink(trace.path.c_str()) != 0) break;
    all -= trace.size;
  }
}

bool TraceFolder::leavesSpare() const {
  const auto isShort = [this] {
    struct statvfs disk {};
    return ::statvfs(m_directory.c_str(), &disk) == 0 &&
           static_cast<std::int64_t>(disk.f_bavail) < m_limits.spare_bytes / static_cast<std::int64_t>(disk.f_frsize);
  };
  if (!isShort()) return true;
  for (const auto& [begin, trace] : tracesIn(m_directory)) {
    if (trace.path != m_path && ::unlink(trace.path.c_str()) == 0 && !isShort()) return true;
  }
  return false;
}

bool TraceFolder::fail(int reason) {
  m_tried = std::chrono::steady_clock::now();
  if (!std::exchange(m_failed, true)) {
    ::syslog(LOG_ERR, "%s: the trace cannot be written: %s; lines are left out until it can", m_directory.c_str(),
             strerrordesc_np(reason));
  }
  return false;
}

}  // namespace workstation
