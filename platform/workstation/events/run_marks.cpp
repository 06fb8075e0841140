#include "platform/workstation/events/run_marks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <sstream>
#include <stdexcept>

namespace workstation {
namespace {

constexpr std::size_t kLineBytes = 128;

/// FNV-1a: tells a mark from what a failing disk makes of it.
std::uint64_t checksum(const std::string& text) {
  std::uint64_t sum = 14695981039346656037ULL;
  for (const char c : text) sum = (sum ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
  return sum;
}

std::string padded(std::string text) {
  text.resize(kLineBytes - 1, ' ');
  return text + "\n";
}

std::string lineOf(const RunMark& mark) {
  const std::string text = mark.run + " " + std::to_string(mark.first) + " " + std::to_string(mark.last) + " " +
                           std::to_string(mark.alive.time_since_epoch().count()) + " ";
  return padded(text + std::to_string(checksum(text)));
}

std::optional<RunMark> parse(const std::string& line) {
  std::istringstream words(line);
  RunMark mark;
  TimeStamp::rep alive = 0;
  if (!(words >> mark.run >> mark.first >> mark.last >> alive)) return std::nullopt;
  mark.alive = TimeStamp(TimeStamp::duration(alive));
  return lineOf(mark) == line && mark.last <= kMostEventNumber ? std::optional(mark) : std::nullopt;
}

}  // namespace

RunMarks::RunMarks(const std::filesystem::path& directory) : m_path(directory / "events.state") {
  std::string content;
  try {
    content = readFile(m_path, kLines * kLineBytes).value_or("");
  } catch (const std::runtime_error&) {
    content = "";
  }
  for (std::size_t line = 0; line < kLines && (line + 1) * kLineBytes <= content.size(); ++line) {
    m_earlier.at(line) = parse(content.substr(line * kLineBytes, kLineBytes)).value_or(RunMark());
  }
  // An empty line, else the oldest run's.
  const auto own = std::min_element(m_earlier.begin(), m_earlier.end(),
                                    [](const RunMark& a, const RunMark& b) { return a.first < b.first; });
  m_own = static_cast<std::size_t>(own - m_earlier.begin());
  open();
}

std::vector<RunMark> RunMarks::earlier() const {
  std::vector<RunMark> marks;
  std::copy_if(m_earlier.begin(), m_earlier.end(), std::back_inserter(marks),
               [](const RunMark& mark) { return !mark.run.empty(); });
  std::sort(marks.begin(), marks.end(), [](const RunMark& a, const RunMark& b) { return a.first < b.first; });
  return marks;
}

/// With blocks for all lines, or not at all.
bool RunMarks::open() {
  if (m_file.get() >= 0) return true;
  FileDescriptor file(::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, S_IRUSR | S_IWUSR));
  struct stat status {};
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  std::string blank;
  for (std::size_t line = 0; line < kLines; ++line) blank += padded("");
  if (static_cast<std::size_t>(status.st_size) != blank.size()) {
    if (::ftruncate(file.get(), 0) != 0 || !writeAll(file.get(), blank.data(), blank.size()) ||
        ::fsync(file.get()) != 0) {
      return false;
    }
    try {
      syncDirectory(m_path.parent_path());
    } catch (const std::runtime_error&) {
      return false;
    }
  }
  m_file = std::move(file);
  return true;
}

bool RunMarks::write(std::size_t line, const std::string& text) const {
  return ::pwrite(m_file.get(), text.data(), text.size(), static_cast<off_t>(line * kLineBytes)) ==
         static_cast<ssize_t>(text.size());
}

void RunMarks::store(const RunMark& mark, bool durable) {
  if (!open()) return;
  if (!write(m_own, lineOf(mark))) {
    m_file = FileDescriptor();
  } else if (durable) {
    ::fdatasync(m_file.get());
  }
}

void RunMarks::forgetEarlier() {
  if (m_file.get() < 0) return;
  for (std::size_t line = 0; line < kLines; ++line) {
    if (line != m_own && !m_earlier.at(line).run.empty() && write(line, padded(""))) m_earlier.at(line) = {};
  }
}

}  // namespace workstation
