// The traces of live runs in a directory: "trace-20260301T120000Z.jsonl", by the UTC time of their beginning. Each can
// be read without the others. Together they are bounded; nothing else in the directory is touched.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/clock/clock.h"
#include "platform/support/file_descriptor.h"

namespace workstation {

struct TraceLimits {
  std::int64_t file_bytes = std::int64_t{64} << 20;
  std::chrono::seconds file_age = std::chrono::hours(1);
  std::int64_t all_bytes = std::int64_t{2} << 30;
  std::chrono::seconds age = std::chrono::hours(7 * 24);
  std::int64_t spare_bytes = std::int64_t{256} << 20;  ///< of the disk, which are left to the journal and the log
  std::chrono::milliseconds pause{2000};               ///< between two tries of a disk that has failed
  std::chrono::milliseconds hang{10000};               ///< a disk that does not answer for longer is told of
};

/// A line, and what a file that begins with it needs before it.
struct TracedLine {
  std::shared_ptr<const std::string> header;
  std::shared_ptr<const std::string> settings;  ///< those in force; null before the first
  std::string text;                             ///< with its line feed
  TimeStamp time;
  std::uint64_t missed = 0;  ///< so many lines before this one are lost
};

/// May hang with its disk: for a thread of its own. Failures are no errors: what cannot be written is counted, said
/// once in the system log, and stands as a "missing" line in the trace.
class TraceFolder {
 public:
  /// Nothing is created yet: the directory, with those above it, comes with the first line.
  TraceFolder(std::filesystem::path directory, const TraceLimits& limits);

  /// Whole, or not at all.
  void write(const TracedLine& line);
  /// So many calls of write() have come back. From any thread.
  [[nodiscard]] std::uint64_t linesTaken() const { return m_taken; }

 private:
  bool store(const TracedLine& line);
  void sayWhatIsMissing();
  [[nodiscard]] std::string textFor(const TracedLine& line) const;
  [[nodiscard]] bool hasEnded(TimeStamp time, std::size_t more) const;
  bool begin(TimeStamp time);
  [[nodiscard]] bool makeFolders() const;
  void makeRoom(TimeStamp time) const;
  /// Whether the disk has more than the spare bytes, for which older traces go.
  [[nodiscard]] bool leavesSpare() const;
  bool fail(int reason);

  const std::filesystem::path m_directory;
  const TraceLimits m_limits;
  std::filesystem::path m_path;  ///< of the file that is written to
  FileDescriptor m_file;
  TimeStamp m_began;
  std::int64_t m_size = 0;                        ///< bytes of whole lines
  std::shared_ptr<const std::string> m_settings;  ///< the last in the file
  std::uint64_t m_missing = 0;                    ///< lines since the last that was written
  std::atomic<std::uint64_t> m_taken = 0;
  bool m_failed = false;
  std::chrono::steady_clock::time_point m_tried;
};

}  // namespace workstation
