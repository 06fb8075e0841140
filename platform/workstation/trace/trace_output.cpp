#include "platform/workstation/trace/trace_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

/// Whether the line's first "kind" is this one.
bool isOfKind(std::string_view line, std::string_view kind) {
  constexpr std::string_view kKey = "\"kind\":";
  const std::size_t key = line.find(kKey);
  if (key == std::string_view::npos) return false;
  line.remove_prefix(key + kKey.size());
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  return line.starts_with('"') && line.substr(1).starts_with(kind) && line.substr(1 + kind.size()).starts_with('"');
}

}  // namespace

ReplayTrace::ReplayTrace(std::filesystem::path file)
    : m_path(std::move(file)),
      m_file(::open(m_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
  struct stat status {};
  if (m_file.get() < 0 || ::fstat(m_file.get(), &status) != 0) {
    fail(errno);
  } else if (S_ISREG(status.st_mode)) {  // what stood there may have been for others' eyes
    ::fchmod(m_file.get(), S_IRUSR | S_IWUSR);
  }
}

void ReplayTrace::take(const std::string& lines) {
  const std::scoped_lock lock(m_mutex);
  if (m_file.get() < 0) return;
  if (!writeAll(m_file.get(), lines.data(), lines.size())) return fail(errno);
  m_size += static_cast<std::int64_t>(lines.size());
  m_has_end = isOfKind(lines, "end");
}

bool ReplayTrace::finish() {
  const std::scoped_lock lock(m_mutex);
  // What is no file on a disk cannot be synced.
  if (m_file.get() >= 0 && ::fdatasync(m_file.get()) != 0 && errno != EINVAL && errno != EROFS) fail(errno);
  m_file = FileDescriptor();
  return !m_failed && m_has_end;
}

void ReplayTrace::fail(int reason) {
  [[maybe_unused]] const int cut = m_file.get() < 0 ? 0 : ::ftruncate(m_file.get(), m_size);
  m_file = FileDescriptor();
  m_failed = true;
  ::syslog(LOG_ERR, "%s: the trace cannot be written: %s; the replay goes on without", m_path.c_str(),
           strerrordesc_np(reason));
}

LiveTrace::LiveTrace(const std::filesystem::path& directory, const TraceLimits& limits, std::size_t most_waiting)
    : m_directory(directory),
      m_hang(limits.hang),
      m_folder(std::make_shared<TraceFolder>(directory, limits)),
      m_writer(most_waiting) {}

void LiveTrace::take(const std::string& lines) {
  const std::scoped_lock lock(m_mutex);
  for (std::size_t begin = 0; begin < lines.size();) {
    const std::size_t end = std::min(lines.find('\n', begin), lines.size() - 1) + 1;
    takeLine(lines.substr(begin, end - begin));
    begin = end;
  }
}

void LiveTrace::takeLine(std::string line) {
  if (!m_header) {
    if (isOfKind(line, "trace")) m_header = std::make_shared<std::string>(std::move(line));
    return;
  }
  if (isOfKind(line, "settings")) {
    m_settings = std::make_shared<std::string>(std::move(line));
    return;
  }
  watchDisk();
  // Once a line is lost, none is taken before the disk is through with all that waits: one gap instead of many.
  const bool is_open = m_missed == 0 || m_writer.settle(std::chrono::milliseconds(0));
  TracedLine traced{m_header, m_settings, std::move(line), ticker_clock::now(), m_missed};
  if (is_open && m_writer.post([folder = m_folder, traced = std::move(traced)] { folder->write(traced); })) {
    m_missed = 0;
    ++m_posted;
  } else if (++m_missed == 1) {
    say(LOG_ERR, "the trace cannot be written: the disk does not answer; lines are left out until it does");
  }
}

void LiveTrace::watchDisk() {
  const auto now = std::chrono::steady_clock::now();
  const std::uint64_t done = m_folder->linesTaken();
  if (done == m_posted || done != m_done) {
    if (std::exchange(m_told, false) && m_missed == 0) say(LOG_NOTICE, "the disk answers again; nothing is missing");
    m_done = done;
    m_went_on = now;
  } else if (!m_told && now - m_went_on >= m_hang) {
    m_told = true;
    say(LOG_WARNING,
        "the trace waits for the disk, which does not answer; after five minutes of that, lines are left out");
  }
}

void LiveTrace::say(int priority, const std::string& what) {
  m_voice.post([priority, text = m_directory.string() + ": " + what] { ::syslog(priority, "%s", text.c_str()); });
}

void LiveTrace::finish(std::chrono::milliseconds patience) {
  if (m_writer.drain(patience)) return;
  ::syslog(LOG_ERR, "%s: the end of the trace is missing: the disk does not answer", m_directory.c_str());
}

}  // namespace workstation
