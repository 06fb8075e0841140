// The program on recordings, as children and several at once; what they write down is kept for the next time.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace evaluate {

/// A SHA-256 over texts and files, each counted with its length. Throws std::runtime_error with one line for a file
/// that cannot be read.
std::string fingerprintOf(const std::vector<std::string>& texts, const std::vector<std::filesystem::path>& files);

/// Where the traces of earlier evaluations lie.
class TraceStore {
 public:
  /// Makes the folder, for its owner only, and removes what nobody has used for 30 days, or what a run that was killed
  /// has left half-written. Throws std::runtime_error with one line.
  explicit TraceStore(std::filesystem::path folder);

  /// `velmor_care/evaluate` in the user's folder for what can be made again. Throws std::runtime_error.
  static std::filesystem::path usualFolder();

  /// The place of a run's trace; whatever lies there is whole.
  [[nodiscard]] std::filesystem::path placeOf(const std::string& fingerprint) const;
  /// Where a run writes it: this process's own, and of this number, as two recordings may be the same.
  [[nodiscard]] std::filesystem::path draftOf(const std::string& fingerprint, std::size_t number) const;

 private:
  std::filesystem::path m_folder;
};

struct Run {
  std::vector<std::string> words;  ///< of the command line; the trace's place is added
  std::filesystem::path draft;     ///< where the trace is written
  double work_s = 0;               ///< seconds of video
};

/// What became of a run: nothing, or why there is no trace, in the last line that it said.
using RunEnd = std::function<void(std::size_t run, const std::string& problem)>;

/// Starts `program` for each run, at most `jobs` at once, and tells as each ends. They end with this process. What they
/// print is not shown. Throws std::runtime_error when none can be started.
void runAll(const std::filesystem::path& program, const std::vector<Run>& runs, int jobs, const RunEnd& ended);

}  // namespace evaluate
