#include "platform/workstation/events/event_journal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/workstation/events/run_marks.h"
#include "platform/workstation/system/utc_text.h"

namespace workstation {
namespace {

using nlohmann::json;

constexpr size_t kMaxLineBytes = 4096;
/// Changes and times of watching that are remembered.
constexpr size_t kMostKept = 2000;

std::string lineOf(const EventRecord& record) {
  nlohmann::ordered_json line = {{"seq", record.number}};
  if (!record.run.empty()) line["run"] = record.run;
  line["time"] = utcText(record.time);
  line["t"] = secondsOf(record.time);
  line["kind"] = record.kind;
  if (record.kind == "missing") {
    line["from"] = record.from;
    line["to"] = record.number;
  } else {
    if (record.kind != "watching") {
      line["event"] = record.event;
      line["topic"] = record.topic;
    }
    line["active"] = record.active;
  }
  if (!record.why.empty()) line["why"] = record.why;
  if (record.closed_at_start) line["closed_at_start"] = true;
  return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

/// The fields of one line, each of the type asked for or none.
class Fields {
 public:
  explicit Fields(std::string_view text) : m_line(json::parse(text, nullptr, false)) {}

  [[nodiscard]] std::optional<std::string> text(const char* key) const {
    return has(key) && m_line[key].is_string() ? std::optional(m_line[key].get<std::string>()) : std::nullopt;
  }
  [[nodiscard]] std::optional<bool> truth(const char* key) const {
    return has(key) && m_line[key].is_boolean() ? std::optional(m_line[key].get<bool>()) : std::nullopt;
  }
  [[nodiscard]] std::optional<std::uint64_t> number(const char* key) const {
    if (!has(key) || !m_line[key].is_number_unsigned()) return std::nullopt;
    const std::uint64_t number = m_line[key];
    return number == 0 || number > kMostEventNumber ? std::nullopt : std::optional(number);
  }
  [[nodiscard]] TimeStamp time(const char* key) const {
    const double seconds = has(key) && m_line[key].is_number() ? m_line[key].get<double>() : 0;
    if (!(seconds >= 0 && seconds < kMaxSeconds)) return TimeStamp();
    return TimeStamp(std::chrono::milliseconds(std::llround(seconds * 1000)));
  }

 private:
  [[nodiscard]] bool has(const char* key) const { return m_line.is_object() && m_line.contains(key); }

  static constexpr double kMaxSeconds = 9e9;  ///< a TimeStamp takes no more
  json m_line;
};

std::optional<EventRecord> parseLine(std::string_view text) {
  const Fields line(text);
  const auto number = line.number("seq");
  EventRecord record{line.time("t"), line.text("kind").value_or("")};
  if (!number) return std::nullopt;
  record.number = *number;
  record.run = line.text("run").value_or("");
  record.closed_at_start = line.truth("closed_at_start").value_or(false);
  if (record.kind == "missing") {
    record.from = line.number("from").value_or(0);
    return record.from == 0 || record.from > *number ? std::nullopt : std::optional(std::move(record));
  }
  const auto active = line.truth("active");
  const auto event = line.text("event");
  const auto topic = line.text("topic");
  if (!active || (record.kind != "watching" && (!event || !topic))) return std::nullopt;
  record.active = *active;
  record.event = event.value_or("");
  record.topic = topic.value_or("");
  record.why = line.text("why").value_or("");
  return record;
}

/// Follows journal files from their first line to their last, in memory that does not grow with them.
class JournalReader {
 public:
  /// Reads a file; what it says is added to what the files before it said. Throws std::runtime_error.
  void read(const std::filesystem::path& path) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::string pending;
    char block[65536];
    m_lines = 0;
    m_whole_bytes = 0;
    m_pending_bytes = 0;
    for (ssize_t got = 0; (got = ::read(file.get(), block, sizeof block)) != 0;) {
      if (got < 0) {
        throw std::runtime_error(path.string() + ": cannot be read: " + std::strerror(errno));
      }
      split({block, static_cast<size_t>(got)}, pending);
    }
  }

  std::int64_t wholeBytes() const { return m_whole_bytes; }
  bool isTorn() const { return m_pending_bytes > 0; }
  /// The first line of the last file that cannot be right, counted from 1; 0 for none.
  std::uint64_t damagedLine() const { return m_damaged_line; }
  const JournalPast& past() const { return m_past; }

 private:
  /// Hands on whole lines; the rest waits in `pending`, at most as much of it as shows that the line is too long.
  void split(std::string_view block, std::string& pending) {
    for (size_t end = 0; (end = block.find('\n')) != std::string_view::npos; block.remove_prefix(end + 1)) {
      m_pending_bytes += static_cast<std::int64_t>(end) + 1;
      pending.append(block.substr(0, std::min(end, kMaxLineBytes + 1)));
      take(pending);
      m_whole_bytes += std::exchange(m_pending_bytes, 0);
      pending.clear();
    }
    m_pending_bytes += static_cast<std::int64_t>(block.size());
    pending.append(block.substr(0, kMaxLineBytes + 1));
    pending.resize(std::min(pending.size(), kMaxLineBytes + 1));
  }

  void take(std::string_view text) {
    ++m_lines;
    const auto line = text.size() > kMaxLineBytes ? std::nullopt : parseLine(text);
    if ((!line || (m_lines > 1 && !follows(*line))) && m_damaged_line == 0) {
      m_damaged_line = m_lines;
    }
    if (!line) {
      return;
    }
    m_past.last = std::max(m_past.last, line->number);
    m_past.last_time = line->time;
    m_run = line->run;
    if (line->kind == "watching") {
      keep(m_past.watching, *line);
    } else if (line->kind != "missing") {
      if (line->kind == "changed") keep(m_past.changes, *line);
      if (line->active) {
        m_past.active[line->topic] = line->event;
      } else {
        m_past.active.erase(line->topic);
      }
    }
  }

  bool follows(const EventRecord& line) const {
    const std::uint64_t first = line.kind == "missing" ? line.from : line.number;
    return first == m_past.last + 1 || (first > m_past.last && line.run != m_run);
  }

  static void keep(std::deque<EventRecord>& newest, const EventRecord& line) {
    newest.push_back(line);
    if (newest.size() > kMostKept) newest.pop_front();
  }

  JournalPast m_past;
  std::string m_run;  ///< of the last line
  std::uint64_t m_lines = 0;
  std::uint64_t m_damaged_line = 0;
  std::int64_t m_whole_bytes = 0;
  std::int64_t m_pending_bytes = 0;
};

/// The journals that were put aside, by their N.
std::map<int, std::filesystem::path> journalsAside(const std::filesystem::path& journal) {
  std::map<int, std::filesystem::path> found;
  const std::string prefix = journal.filename().string() + ".damaged-";
  for (const auto& entry : std::filesystem::directory_iterator(journal.parent_path())) {
    const std::string name = entry.path().filename();
    int number = 0;
    if (name.starts_with(prefix) && entry.is_regular_file() &&
        std::from_chars(name.data() + prefix.size(), name.data() + name.size(), number).ec == std::errc()) {
      found.emplace(number, entry.path());
    }
  }
  return found;
}

}  // namespace

bool fitsIntoJournal(const EventRecord& record) {
  EventRecord longest = record;
  longest.kind = "undeclared";
  longest.closed_at_start = true;
  longest.number = kMostEventNumber;
  longest.run = std::string(32, 'f');
  return lineOf(longest).size() <= kMaxLineBytes;
}

EventJournal::EventJournal(const std::filesystem::path& directory) : m_path(directory / "events.jsonl") {
  open();
  JournalReader reader;
  reader.read(m_path);
  if (reader.damagedLine() != 0) {
    putAside("line " + std::to_string(reader.damagedLine()) + " is damaged");
  } else {
    m_size = reader.wholeBytes();
    m_torn = reader.isTorn();
  }
  m_past = reader.past();
  if (m_size == 0) {
    reader = JournalReader();
    for (const auto& [number, path] : journalsAside(m_path)) {
      reader.read(path);
    }
    m_past = reader.past();
    m_past.changes.clear();
  }
}

void EventJournal::open() {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK;
  FileDescriptor file(::open(m_path.c_str(), kFlags, S_IRUSR | S_IWUSR));
  struct stat status {};
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0) {
    throw std::runtime_error(m_path.string() + ": cannot be opened: " + std::strerror(errno));
  }
  if (!S_ISREG(status.st_mode)) {
    throw std::runtime_error(m_path.string() + ": is not a file");
  }
  if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    throw std::runtime_error(m_path.string() + ": is in use by another program");
  }
  m_file = std::move(file);
}

void EventJournal::putAside(const std::string& reason) {
  const auto aside = journalsAside(m_path);
  const int number = aside.empty() ? 1 : aside.rbegin()->first + 1;
  const std::filesystem::path kept = m_path.string() + ".damaged-" + std::to_string(number);
  if (::rename(m_path.c_str(), kept.c_str()) != 0) {
    throw std::runtime_error(m_path.string() + ": " + reason + " and it cannot be put aside: " + std::strerror(errno));
  }
  m_damage = m_path.string() + ": " + reason + "; kept as " + kept.filename().string() + ", a new journal goes on";
  m_size = 0;
  m_torn = false;
  open();
}

/// Unless it succeeds there is no file, and the next time begins here again.
void EventJournal::beginAnew() {
  m_file = FileDescriptor();
  m_size = 0;
  m_torn = m_named = false;
  try {
    open();
    if (std::filesystem::file_size(m_path) > 0) return putAside("is another file than before");
  } catch (...) {
    m_file = FileDescriptor();
    throw;
  }
  m_damage = m_path.string() + ": has been removed; a new journal goes on";
}

void EventJournal::append(const std::vector<EventRecord>& records) {
  std::string lines;
  for (const EventRecord& record : records) lines += lineOf(record);
  m_damage.clear();
  if (m_file.get() < 0 || isElsewhere(m_file, m_path)) beginAnew();
  // What a failed write left goes first, or this would be glued to it.
  if (m_torn && ::ftruncate(m_file.get(), m_size) != 0) {
    throw std::runtime_error(m_path.string() + ": a torn line cannot be cut off: " + std::strerror(errno));
  }
  m_torn = true;
  if (!writeAll(m_file.get(), lines.data(), lines.size()) || ::fdatasync(m_file.get()) != 0) {
    const int reason = errno;
    m_torn = ::ftruncate(m_file.get(), m_size) != 0;
    throw std::runtime_error(m_path.string() + ": cannot be written: " + std::strerror(reason));
  }
  if (!m_named) {
    syncDirectory(m_path.parent_path());
    m_named = true;
  }
  m_torn = false;
  m_size += static_cast<std::int64_t>(lines.size());
}

}  // namespace workstation
