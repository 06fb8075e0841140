// What must be known about a run that ended without warning, in a small file beside the journal: which numbers it has
// given, and when it was last alive. The file gets its blocks when it is created and is then only written over, so that
// a full disk does not matter. A line for each run that the journal has not caught up with.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {

/// Larger numbers are damage: no journal gets there, and JSON readers lose their last digits.
inline constexpr std::uint64_t kMostEventNumber = std::uint64_t{1} << 53;

struct RunMark {
  std::string run;          ///< its id
  std::uint64_t first = 0;  ///< the lowest number of the run
  std::uint64_t last = 0;   ///< the last number given; below `first` for none
  TimeStamp alive;
};

/// Failures are no errors: what cannot be read is unknown, and what cannot be written is tried with the next call.
class RunMarks {
 public:
  /// events.state in the directory, created when it is missing. The journal must be held.
  explicit RunMarks(const std::filesystem::path& directory);

  /// Of the runs before, in the order of their numbers. What is damaged is left out.
  std::vector<RunMark> earlier() const;
  /// This run's mark; survives a kill, and with `durable` a power cut.
  void store(const RunMark& mark, bool durable);
  /// The journal says all about the runs before.
  void forgetEarlier();

 private:
  static constexpr std::size_t kLines = 32;

  bool open();
  bool write(std::size_t line, const std::string& text) const;

  std::filesystem::path m_path;
  FileDescriptor m_file;
  std::array<RunMark, kLines> m_earlier;  ///< an empty id: none
  std::size_t m_own = 0;                  ///< the line of this run
};

}  // namespace workstation
