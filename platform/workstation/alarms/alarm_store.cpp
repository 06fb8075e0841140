#include "platform/workstation/alarms/alarm_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <filesystem>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/state_directory.h"

namespace workstation {
namespace {

using Steady = std::chrono::steady_clock;

constexpr const char* kFile = "alarms.jsonl";
/// Of a longer file the end is read: whatever made it so long, a start does not take longer for it.
constexpr std::int64_t kMostBytes = 32 << 20;
constexpr int kFlags = O_WRONLY | O_APPEND | O_CLOEXEC | O_NONBLOCK;
constexpr std::size_t kLargestBatch = 64;
constexpr std::size_t kMostJobs = 64;
/// A disk that takes longer does not answer.
constexpr std::chrono::seconds kLongestAnswer{3};

[[noreturn]] void fail(const std::filesystem::path& path, const std::string& what) {
  throw std::runtime_error(path.string() + ": " + what + ": " + std::strerror(errno));
}

struct Read {
  std::string text;
  std::int64_t size = 0;  ///< of the file
};

/// The whole file or its end; nothing for none. Non-blocking: a pipe in its place must not hang the start.
Read readEnd(const std::filesystem::path& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.get() < 0 && errno == ENOENT) return {};
  struct stat status {};
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0) fail(path, "cannot be read");
  if (!S_ISREG(status.st_mode)) throw std::runtime_error(path.string() + ": is not a file");
  Read read{{}, status.st_size};
  const std::int64_t begin = std::max<std::int64_t>(0, read.size - kMostBytes);
  read.text.resize(static_cast<std::size_t>(read.size - begin));
  for (std::size_t done = 0; done < read.text.size();) {
    const ssize_t got = ::pread(file.get(), read.text.data() + done, read.text.size() - done,
                                static_cast<off_t>(begin) + static_cast<off_t>(done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) fail(path, "cannot be read");
    done += static_cast<std::size_t>(got);
  }
  if (begin > 0) read.text.erase(0, std::min(read.text.find('\n'), read.text.size() - 1) + 1);
  return read;
}

struct Loaded {
  AlarmBook book;
  std::size_t damaged = 0;  ///< lines that are none of ours, before the last
  std::int64_t whole = 0;   ///< bytes of whole lines
  bool trimmed = false;
  std::size_t untold = 0;  ///< alarms that are forgotten though a receiver may not have been told of them
};

Loaded parse(const Read& read, const AlarmLimits& limits) {
  Loaded loaded{.book = AlarmBook(limits)};
  std::string_view rest = read.text;
  loaded.whole = read.size - static_cast<std::int64_t>(read.text.size());
  for (std::size_t end = 0; (end = rest.find('\n')) != std::string_view::npos; rest.remove_prefix(end + 1)) {
    auto entry = end > kLongestAlarmLine ? std::nullopt : parseAlarmEntry(rest.substr(0, end));
    loaded.whole += static_cast<std::int64_t>(end) + 1;
    if (!entry) {
      ++loaded.damaged;
      continue;
    }
    loaded.book.apply(std::move(*entry));
    loaded.book.store(loaded.book.last());
    const auto untold = loaded.book.trim();
    loaded.trimmed = untold || loaded.trimmed;
    loaded.untold += untold.value_or(0);
  }
  return loaded;
}

/// A second name, with which the file may be replaced; empty where it gets none.
std::string keepAside(const std::filesystem::path& path) {
  for (int number = 1; number < 1000; ++number) {
    const std::filesystem::path kept = path.string() + ".damaged-" + std::to_string(number);
    if (::link(path.c_str(), kept.c_str()) == 0) return kept.filename().string();
    if (errno != EEXIST) break;
  }
  return "";
}

std::string allLines(const std::deque<AlarmEntry>& entries) {
  std::string text;
  for (const AlarmEntry& entry : entries) text += lineOf(entry);
  return text;
}

}  // namespace

/// Shared with the thread, which may outlive the store.
struct AlarmStore::Core {
  struct Line {
    std::uint64_t number;
    std::string text;
  };

  Hooks hooks;
  AlarmLimits limits;
  mutable std::mutex mutex;
  std::deque<Line> queue;
  std::optional<Line> whole;  ///< all of the file, before the queue
  std::optional<Steady::time_point> asked;
  std::string failure;
  bool is_loaded = false;
  bool is_posted = false;

  // The thread's own.
  bool are_calls_known = false;
  std::filesystem::path path;
  FileDescriptor file;
  std::int64_t size = 0;
  bool torn = false;
  bool named = false;

  void work();
  void loadCalls() const;
  void load();
  bool writeSome(std::unique_lock<std::mutex>& lock);
  [[nodiscard]] bool isRemoved() const;
  bool replaceAll(std::unique_lock<std::mutex>& lock);
  void haveWritten(std::uint64_t number, std::unique_lock<std::mutex>& lock);
  bool replace(const std::string& text);
  void append(const std::string& text);
  void open();
};

void AlarmStore::Core::work() {
  std::unique_lock lock(mutex);
  asked = Steady::now();
  try {
    if (!is_loaded) {
      lock.unlock();
      load();
      lock.lock();
      is_loaded = true;
    }
    while (writeSome(lock)) asked = Steady::now();
    failure.clear();
  } catch (const std::exception& error) {
    if (!lock.owns_lock()) lock.lock();
    failure = error.what();
  }
  asked.reset();
  is_posted = false;
}

/// First, and by itself: a journal that cannot be read keeps nobody from being called.
void AlarmStore::Core::loadCalls() const {
  StoredCalls calls;
  calls.settings = loadCallSettings(stateDirectory(), calls.problem);
  if (hooks.floor) calls.floor = hooks.floor();
  hooks.calls(std::move(calls));
}

void AlarmStore::Core::load() {
  if (!std::exchange(are_calls_known, true)) loadCalls();
  path = stateDirectory() / kFile;
  const Read read = readEnd(path);
  Loaded loaded = parse(read, limits);
  AlarmPast past;
  size = loaded.whole;
  torn = read.size > loaded.whole;
  file = FileDescriptor(::open(path.c_str(), kFlags));  // where there is one
  past.untold = loaded.untold;
  bool is_replaced = loaded.trimmed;
  if (loaded.damaged > 0) {
    const std::string kept = keepAside(path);
    is_replaced = !kept.empty();
    past.damage = path.string() + ": " + std::to_string(loaded.damaged) + " damaged lines were left out; " +
                  (is_replaced ? "kept as " + kept : "they stay in the file");
  }
  if (is_replaced) {
    const std::scoped_lock lock(mutex);
    whole = Line{loaded.book.last(), allLines(loaded.book.entries())};
  }
  past.book = std::move(loaded.book);
  hooks.loaded(std::move(past));
}

/// Whether there was something. What a disk does not take stays.
bool AlarmStore::Core::writeSome(std::unique_lock<std::mutex>& lock) {
  if (whole) return replaceAll(lock);
  if (queue.empty()) return false;
  if (isRemoved()) {
    lock.unlock();
    const std::string kept = keepAside(path);  // where there is another in its place
    const std::string what = kept.empty() ? "has been removed" : "is another file than before, kept as " + kept;
    ::syslog(LOG_ERR, "%s: %s; what is known of alarms is written anew", path.c_str(), what.c_str());
    file = FileDescriptor();
    size = 0;
    torn = named = false;
    if (hooks.removed) hooks.removed();
    lock.lock();
    return true;
  }
  // A disk that has no room for all may have room for one.
  const std::size_t count = std::min(failure.empty() ? kLargestBatch : 1, queue.size());
  const std::uint64_t number = queue[count - 1].number;
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += queue[i].text;
  lock.unlock();
  append(text);
  lock.lock();
  haveWritten(number, lock);
  return true;
}

bool AlarmStore::Core::isRemoved() const { return file.get() >= 0 && isElsewhere(file, path); }

/// Where the shorter file finds no room, the longer one goes on.
bool AlarmStore::Core::replaceAll(std::unique_lock<std::mutex>& lock) {
  const Line all = *std::exchange(whole, std::nullopt);
  lock.unlock();
  const bool is_replaced = replace(all.text);
  lock.lock();
  if (is_replaced) haveWritten(all.number, lock);
  return true;
}

void AlarmStore::Core::haveWritten(std::uint64_t number, std::unique_lock<std::mutex>& lock) {
  std::erase_if(queue, [number](const Line& line) { return line.number <= number; });
  failure.clear();
  lock.unlock();
  hooks.written(number);
  lock.lock();
}

void AlarmStore::Core::open() {
  file = FileDescriptor(::open(path.c_str(), kFlags | O_CREAT, S_IRUSR | S_IWUSR));
  if (file.get() < 0) fail(path, "cannot be opened");
}

/// The new file may be in its place although that could not be made sure.
bool AlarmStore::Core::replace(const std::string& text) {
  bool is_sure = true;
  try {
    replaceFile(path, text);
  } catch (const std::exception& error) {
    ::syslog(LOG_INFO, "alarms that are closed are not forgotten yet: %s", error.what());
    is_sure = false;
  }
  struct stat own {};
  struct stat there {};
  const bool is_known = file.get() >= 0 && ::fstat(file.get(), &own) == 0 && ::stat(path.c_str(), &there) == 0;
  if (!is_sure && (!is_known || own.st_ino == there.st_ino)) return false;
  file = FileDescriptor();
  size = static_cast<std::int64_t>(text.size());
  torn = false;
  named = is_sure;
  return is_sure;
}

/// On disk on return, or not in the file. What a failed write or a kill left goes first, or this would be glued to it.
void AlarmStore::Core::append(const std::string& text) {
  if (file.get() < 0) open();
  if (torn && ::ftruncate(file.get(), size) != 0) fail(path, "a torn line cannot be cut off");
  torn = true;
  if (!writeAll(file.get(), text.data(), text.size()) || ::fdatasync(file.get()) != 0) {
    const int reason = errno;
    torn = ::ftruncate(file.get(), size) != 0;
    errno = reason;
    fail(path, "cannot be written");
  }
  if (!named) {
    syncDirectory(path.parent_path());
    named = true;
  }
  torn = false;
  size += static_cast<std::int64_t>(text.size());
}

AlarmStore::AlarmStore(Hooks hooks, const AlarmLimits& limits)
    : m_core(std::make_shared<Core>()), m_side(std::make_shared<SideThread>(kMostJobs)) {
  m_core->hooks = std::move(hooks);
  m_core->limits = limits;
  retry();
}

void AlarmStore::append(const AlarmEntry& entry) {
  {
    const std::scoped_lock lock(m_core->mutex);
    m_core->queue.push_back({entry.number, lineOf(entry)});
    if (!m_core->failure.empty()) return;  // its next try takes it along
  }
  retry();
}

void AlarmStore::rewrite(const std::deque<AlarmEntry>& entries) {
  const std::uint64_t last = entries.empty() ? 0 : entries.back().number;
  const std::scoped_lock lock(m_core->mutex);
  m_core->whole = Core::Line{last, allLines(entries)};
}

void AlarmStore::storeCalls(const CallSettings& settings, const std::function<void(const std::string&)>& done) {
  const bool is_posted = m_side->post([settings, done] {
    std::string failure;
    try {
      storeCallSettings(stateDirectory(), settings);
    } catch (const std::exception& error) {
      failure = error.what();
    }
    done(failure);
  });
  if (!is_posted) done("the disk does not answer");
}

void AlarmStore::retry() {
  const std::scoped_lock lock(m_core->mutex);
  const bool has_work = !m_core->is_loaded || m_core->whole || !m_core->queue.empty();
  if (m_core->is_posted || !has_work) return;
  m_core->is_posted = m_side->post([core = m_core] { core->work(); });
}

AlarmStore::Trouble AlarmStore::trouble() const {
  const std::scoped_lock lock(m_core->mutex);
  const std::size_t waiting = m_core->queue.size() + (m_core->whole ? 1 : 0);
  if (!m_core->failure.empty()) return {m_core->failure, waiting};
  const bool hangs = m_core->asked && Steady::now() - *m_core->asked > kLongestAnswer;
  return {hangs ? "the disk does not answer" : "", waiting};
}

bool AlarmStore::drain(std::chrono::milliseconds patience) {
  retry();
  const bool settled = m_side->drain(patience);
  const std::scoped_lock lock(m_core->mutex);
  return settled && m_core->is_loaded && !m_core->whole && m_core->queue.empty();
}

}  // namespace workstation
