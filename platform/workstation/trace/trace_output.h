// What becomes of a trace's lines: the file of a replay, or the directory of a live run.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "platform/support/file_descriptor.h"
#include "platform/trace/trace_sink.h"
#include "platform/workstation/system/side_thread.h"
#include "platform/workstation/trace/trace_folder.h"

namespace workstation {

/// One file, made anew, for a replay: every line is there at the end, so who has one waits for the disk. A disk that
/// fails is said once; the trace then ends with its last whole line, and the replay goes on. Lines come one by one.
class ReplayTrace final : public TraceSink {
 public:
  explicit ReplayTrace(std::filesystem::path file);

  void take(const std::string& lines) override;
  /// Nothing is taken afterwards. Whether all of it is on the disk, to the end line: where that never came, who writes
  /// the trace has said why.
  bool finish();

 private:
  void fail(int reason);

  const std::filesystem::path m_path;
  std::mutex m_mutex;
  FileDescriptor m_file;
  std::int64_t m_size = 0;  ///< bytes of whole lines
  bool m_failed = false;
  bool m_has_end = false;
};

/// A directory's traces, written on a thread of their own: a disk that hangs delays nobody and is told of, and what no
/// longer fits into the queue is counted.
class LiveTrace final : public TraceSink {
 public:
  /// Five minutes of cycles.
  static constexpr std::size_t kMostWaiting = 600;

  explicit LiveTrace(const std::filesystem::path& directory, const TraceLimits& limits = {},
                     std::size_t most_waiting = kMostWaiting);

  void take(const std::string& lines) override;
  /// Waits no longer than that for what is not yet written.
  void finish(std::chrono::milliseconds patience);

 private:
  void takeLine(std::string line);
  /// Says so when the disk has not answered for long, and again when it does; from line to line.
  void watchDisk();
  void say(int priority, const std::string& what);

  const std::filesystem::path m_directory;
  const std::chrono::milliseconds m_hang;
  const std::shared_ptr<TraceFolder> m_folder;
  std::mutex m_mutex;
  SideThread m_writer;
  SideThread m_voice{10};  ///< the system log may wait for the same disk
  std::shared_ptr<const std::string> m_header;
  std::shared_ptr<const std::string> m_settings;
  std::uint64_t m_missed = 0;  ///< lines that no longer found a place in the queue
  std::uint64_t m_posted = 0;  ///< lines for the writer
  std::uint64_t m_done = 0;    ///< of those, when the writer was last seen to go on
  std::chrono::steady_clock::time_point m_went_on;
  bool m_told = false;  ///< that it does not
};

}  // namespace workstation
