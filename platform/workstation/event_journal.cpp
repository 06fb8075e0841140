#include "platform/workstation/event_journal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace workstation {
namespace {

using nlohmann::json;

constexpr size_t kMaxLineBytes = 4096;
/// Larger numbers are damage: no journal gets there, and JSON readers lose their last digits.
constexpr std::uint64_t kMaxNumber = std::uint64_t{1} << 53;

std::int64_t millisecondsOf(TimeStamp time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

std::string lineOf(const EventRecord& record, std::uint64_t number) {
  nlohmann::ordered_json line = {
      {"seq", number},         {"time", utcText(record.time)}, {"t", secondsOf(record.time)}, {"kind", record.kind},
      {"event", record.event}, {"topic", record.topic},        {"active", record.active}};
  if (record.closed_at_start) {
    line["closed_at_start"] = true;
  }
  return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

/// What a journal needs of a line that it wrote before.
struct ReadLine {
  std::uint64_t number;
  std::string event, topic;
  bool active;
};

std::optional<ReadLine> parseLine(std::string_view text) {
  const json line = json::parse(text, nullptr, false);
  const auto has = [&line](const char* key, json::value_t type) {
    return line.contains(key) && line[key].type() == type;
  };
  if (!line.is_object() || !has("seq", json::value_t::number_unsigned) || !has("event", json::value_t::string) ||
      !has("topic", json::value_t::string) || !has("active", json::value_t::boolean)) {
    return std::nullopt;
  }
  ReadLine read{line["seq"], line["event"], line["topic"], line["active"]};
  return read.number == 0 || read.number > kMaxNumber ? std::nullopt : std::optional(std::move(read));
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
    for (ssize_t got = 0; (got = ::read(file.get(), block, sizeof block)) != 0;) {
      if (got < 0) {
        throw std::runtime_error(path.string() + ": cannot be read: " + std::strerror(errno));
      }
      split({block, static_cast<size_t>(got)}, pending);
    }
  }

  std::uint64_t highest() const { return m_highest; }
  std::int64_t wholeBytes() const { return m_whole_bytes; }
  /// The first line of the last file that cannot be right, counted from 1; 0 for none.
  std::uint64_t damagedLine() const { return m_damaged_line; }
  /// Topic -> event of every state that has begun and not ended.
  const std::map<std::string, std::string>& active() const { return m_active; }

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
    const bool follows = line && (m_lines == 1 || line->number == m_highest + 1);
    if (!follows && m_damaged_line == 0) {
      m_damaged_line = m_lines;
    }
    if (!line) {
      return;
    }
    m_highest = std::max(m_highest, line->number);
    if (line->active) {
      m_active[line->topic] = line->event;
    } else {
      m_active.erase(line->topic);
    }
  }

  std::uint64_t m_highest = 0;
  std::uint64_t m_lines = 0;
  std::uint64_t m_damaged_line = 0;
  std::int64_t m_whole_bytes = 0;
  std::int64_t m_pending_bytes = 0;
  std::map<std::string, std::string> m_active;
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

double secondsOf(TimeStamp time) { return static_cast<double>(millisecondsOf(time)) / 1000.0; }

std::string utcText(TimeStamp time) {
  const std::int64_t milliseconds = millisecondsOf(time);
  const std::time_t seconds = milliseconds / 1000;
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char date[32];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
  char text[48];
  std::snprintf(text, sizeof text, "%s.%03dZ", date, static_cast<int>(milliseconds % 1000));
  return text;
}

EventJournal::EventJournal(const std::filesystem::path& directory, TimeStamp now) : m_path(directory / "events.jsonl") {
  open();
  JournalReader reader;
  reader.read(m_path);
  if (reader.damagedLine() != 0) {
    putAside("line " + std::to_string(reader.damagedLine()) + " is damaged");
  } else {
    m_size = reader.wholeBytes();
  }
  if (m_size == 0) {
    reader = JournalReader();
    for (const auto& [number, path] : journalsAside(m_path)) {
      reader.read(path);
    }
  }
  m_last = reader.highest();
  if (::ftruncate(m_file.get(), m_size) != 0 || ::fdatasync(m_file.get()) != 0) {
    throw std::runtime_error(m_path.string() + ": a torn last line cannot be cut off: " + std::strerror(errno));
  }
  syncDirectory(directory);
  for (const auto& [topic, event] : reader.active()) {
    m_closed.push_back({now, "changed", event, topic, false, true});
    append(m_closed.back());
  }
}

void EventJournal::open() {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK;
  m_file = FileDescriptor(::open(m_path.c_str(), kFlags, S_IRUSR | S_IWUSR));
  struct stat status {};
  if (m_file.get() < 0 || ::fstat(m_file.get(), &status) != 0) {
    throw std::runtime_error(m_path.string() + ": cannot be opened: " + std::strerror(errno));
  }
  if (!S_ISREG(status.st_mode)) {
    throw std::runtime_error(m_path.string() + ": is not a file");
  }
  if (::flock(m_file.get(), LOCK_EX | LOCK_NB) != 0) {
    throw std::runtime_error(m_path.string() + ": is in use by another program");
  }
}

void EventJournal::putAside(const std::string& reason) {
  const auto aside = journalsAside(m_path);
  const int number = aside.empty() ? 1 : aside.rbegin()->first + 1;
  const std::filesystem::path kept = m_path.string() + ".damaged-" + std::to_string(number);
  if (::rename(m_path.c_str(), kept.c_str()) != 0) {
    throw std::runtime_error(m_path.string() + ": " + reason + " and it cannot be put aside: " + std::strerror(errno));
  }
  m_damage = m_path.string() + ": " + reason + "; kept as " + kept.filename().string() + ", a new journal goes on";
  open();
}

void EventJournal::append(const EventRecord& record) {
  const std::string line = lineOf(record, m_last + 1);
  if (line.size() > kMaxLineBytes) {
    throw std::runtime_error(m_path.string() + ": the event's names are too long");
  }
  // What a failed write left goes first, or this line would be glued to it.
  if (m_torn && ::ftruncate(m_file.get(), m_size) != 0) {
    throw std::runtime_error(m_path.string() + ": a torn line cannot be cut off: " + std::strerror(errno));
  }
  m_torn = !writeAll(m_file.get(), line.data(), line.size()) || ::fdatasync(m_file.get()) != 0;
  if (m_torn) {
    const int reason = errno;
    m_torn = ::ftruncate(m_file.get(), m_size) != 0;
    throw std::runtime_error(m_path.string() + ": cannot be written: " + std::strerror(reason));
  }
  m_size += static_cast<std::int64_t>(line.size());
  ++m_last;
}

}  // namespace workstation
