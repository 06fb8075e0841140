#include "platform/workstation/parameters/changes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/support/file_descriptor.h"
#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/side_thread.h"
#include "platform/workstation/system/utc_text.h"

namespace workstation {
namespace {

using nlohmann::ordered_json;

constexpr off_t kMostBytes = 1 << 20;  // of the file; then it is put aside, and the one before goes
constexpr std::size_t kMostAtOnce = 1 << 18;
constexpr std::size_t kMostKept = 1000;      // in memory
constexpr std::size_t kMostWaiting = 20000;  // for the disk
constexpr std::chrono::milliseconds kRetry{1000};
constexpr std::chrono::milliseconds kPatienceAtEnd{500};

std::string dump(const ordered_json& value) {
  return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

/// A line of the file; null for one that is none, such as the torn last one of a run that was killed.
ordered_json changeFrom(std::string_view line) {
  ordered_json change = ordered_json::parse(line, nullptr, false);
  if (!change.is_object()) return nullptr;
  for (const char* key : {"time", "by", "key", "from", "to"}) {
    if (!change.contains(key) || !change[key].is_string()) return nullptr;
  }
  return change;
}

[[noreturn]] void fail(const std::filesystem::path& path, const char* what) {
  throw std::runtime_error(path.string() + ": " + what + ": " + std::strerror(errno));
}

std::filesystem::path before(const std::filesystem::path& path) { return path.string() + ".1"; }

FileDescriptor openToAppend(const std::filesystem::path& path, off_t& size) {
  FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, S_IRUSR | S_IWUSR));
  struct stat status {};
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0) fail(path, "cannot be opened");
  if (!S_ISREG(status.st_mode)) throw std::runtime_error(path.string() + ": is not a file");
  size = status.st_size;
  return file;
}

/// All of it is on disk on return; none of it after an exception.
void append(const std::filesystem::path& path, std::string text) {
  off_t size = 0;
  FileDescriptor file = openToAppend(path, size);
  if (size > kMostBytes) {
    std::filesystem::rename(path, before(path));
    file = openToAppend(path, size);
  }
  char last = '\n';
  if (size > 0 && ::pread(file.get(), &last, 1, size - 1) == 1 && last != '\n') text.insert(0, "\n");
  if (writeAll(file.get(), text.data(), text.size()) && ::fdatasync(file.get()) == 0) return;
  const int reason = errno;
  static_cast<void>(::ftruncate(file.get(), size) == 0);
  errno = reason;
  fail(path, "cannot be written");
}

}  // namespace

/// The side thread and the object own it together.
struct ChangeJournal::State {
  explicit State(std::filesystem::path file) : path(std::move(file)) {}

  void load();
  void write();
  bool writeOnce();

  const std::filesystem::path path;
  SideThread thread{kMostKept};
  mutable std::mutex mutex;
  std::deque<ordered_json> newest;  ///< oldest first; the last `waiting.size()` are not on disk
  std::deque<std::string> waiting;  ///< their lines
  std::uint64_t first = 0;          ///< the number of the first that waits
  std::size_t lost = 0;             ///< that nobody will find in the file
  std::string trouble;
  std::atomic<bool> is_over = false;
  bool is_writing = false;
};

/// What was noted meanwhile comes after it.
void ChangeJournal::State::load() try {
  std::deque<ordered_json> past;
  for (const auto& file : {before(path), path}) {
    const std::string text = readFile(file, 4 * kMostBytes).value_or("");
    for (std::size_t from = 0, end = 0; (end = text.find('\n', from)) != std::string::npos; from = end + 1) {
      if (ordered_json change = changeFrom(std::string_view(text).substr(from, end - from)); !change.is_null()) {
        past.push_back(std::move(change));
      }
      if (past.size() > kMostKept) past.pop_front();
    }
  }
  const std::scoped_lock lock(mutex);
  newest.insert(newest.begin(), past.begin(), past.end());
  while (newest.size() > kMostKept) newest.pop_front();
} catch (const std::exception& error) {
  syslog(LOG_ERR, "earlier changes of settings are not known: %s", error.what());
}

/// On the side thread, until nothing waits any more.
void ChangeJournal::State::write() {
  while (!writeOnce() && !is_over) std::this_thread::sleep_for(kRetry);
}

/// False when the disk has refused: once more later.
bool ChangeJournal::State::writeOnce() {
  std::string text;
  std::uint64_t end = 0;
  {
    const std::scoped_lock lock(mutex);
    is_writing = !waiting.empty();
    if (!is_writing) return true;
    end = first;
    for (auto line = waiting.begin(); line != waiting.end() && text.size() < kMostAtOnce; ++line, ++end) text += *line;
  }
  std::string problem;
  try {
    append(path, std::move(text));
  } catch (const std::exception& error) {
    problem = error.what();
  }
  const std::scoped_lock lock(mutex);
  if (problem.empty()) {
    for (; first < end; ++first) waiting.pop_front();
    if (!trouble.empty()) syslog(LOG_NOTICE, "changes of settings are written down again; %zu are missing", lost);
  } else if (trouble.empty()) {
    syslog(LOG_ERR, "changes of settings are not written down: %s", problem.c_str());
  }
  trouble = problem;
  is_writing = !waiting.empty();
  return !is_writing;
}

ChangeJournal::ChangeJournal(const std::filesystem::path& directory)
    : m_state(std::make_shared<State>(directory / "changes.jsonl")) {
  m_state->thread.post([state = m_state] { state->load(); });
}

ChangeJournal::~ChangeJournal() { m_state->is_over = true; }

void ChangeJournal::note(const std::string& by, const std::string& key, const std::string& from,
                         const std::string& to) {
  ordered_json change = {{"time", utcText(ticker_clock::now())}, {"by", by}, {"key", key}, {"from", from}, {"to", to}};
  std::string line = dump(change) + "\n";
  const std::scoped_lock lock(m_state->mutex);
  m_state->newest.push_back(std::move(change));
  if (m_state->newest.size() > kMostKept) m_state->newest.pop_front();
  m_state->waiting.push_back(std::move(line));
  if (m_state->waiting.size() > kMostWaiting) {
    m_state->waiting.pop_front();
    ++m_state->first;
    ++m_state->lost;
  }
  if (!std::exchange(m_state->is_writing, true)) m_state->thread.post([state = m_state] { state->write(); });
}

std::string ChangeJournal::document(std::size_t limit) const {
  ordered_json changes = ordered_json::array();
  const std::scoped_lock lock(m_state->mutex);
  std::size_t waiting = m_state->waiting.size();
  for (auto change = m_state->newest.rbegin(); change != m_state->newest.rend() && changes.size() < limit; ++change) {
    changes.push_back(*change);
    changes.back()["stored"] = waiting == 0;
    waiting -= std::min<std::size_t>(waiting, 1);
  }
  ordered_json trouble;
  if (!m_state->trouble.empty()) trouble = m_state->trouble;
  return dump({{"changes", std::move(changes)}, {"trouble", std::move(trouble)}});
}

bool ChangeJournal::settle(std::chrono::milliseconds patience) { return m_state->thread.drain(patience); }

namespace {

struct Process {
  std::mutex mutex;
  std::filesystem::path directory;
  std::shared_ptr<ChangeJournal> journal;
  std::deque<std::array<std::string, 4>> early;  ///< noted before there was a journal
};

Process& process() {
  static auto& the_process = *new Process;  // never destroyed: the side thread may outlive main
  return the_process;
}

}  // namespace

void openChanges(const std::filesystem::path& directory) {
  const std::scoped_lock lock(process().mutex);
  if (process().journal && process().directory == directory) return;
  static const int registered = std::atexit([] {
    if (const auto journal = process().journal) journal->settle(kPatienceAtEnd);
  });
  static_cast<void>(registered);
  process().directory = directory;
  process().journal = std::make_shared<ChangeJournal>(directory);
  for (const auto& [by, key, from, to] : std::exchange(process().early, {})) {
    process().journal->note(by, key, from, to);
  }
}

void noteChange(const std::string& by, const std::string& key, const std::string& from, const std::string& to) {
  const std::scoped_lock lock(process().mutex);
  if (process().journal) {
    process().journal->note(by, key, from, to);
  } else if (process().early.size() < kMostKept) {
    process().early.push_back({by, key, from, to});
  }
}

std::string changesDocument(std::size_t limit) {
  std::shared_ptr<ChangeJournal> journal;
  {
    const std::scoped_lock lock(process().mutex);
    journal = process().journal;
  }
  return journal ? journal->document(limit) : dump({{"changes", ordered_json::array()}, {"trouble", nullptr}});
}

}  // namespace workstation
