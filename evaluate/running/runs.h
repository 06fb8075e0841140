// Programs as children, several at once; what they make is kept for the next time.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace evaluate {

/// A SHA-256 over texts and files, each counted with its length. Throws std::runtime_error with one line for a file
/// that cannot be read.
std::string fingerprintOf(const std::vector<std::string>& texts, const std::vector<std::filesystem::path>& files);

/// Where what an evaluation has made lies for the next one.
class Store {
 public:
  /// Makes the folder, for its owner only, and removes what nobody has used for 30 days, or what a run that was killed
  /// has left half-written. What is kept, a file or a folder, has a name with this ending. Throws std::runtime_error
  /// with one line.
  Store(std::filesystem::path folder, std::string ending);

  /// `velmor_care/NAME` in the user's folder for what can be made again.
  static std::filesystem::path usualFolder(const std::string& name);

  /// The place of what has this fingerprint; whatever lies there is whole.
  [[nodiscard]] std::filesystem::path placeOf(const std::string& fingerprint) const;
  /// Where it is made: this process's own, and of this number, as two recordings may be the same.
  [[nodiscard]] std::filesystem::path draftOf(const std::string& fingerprint, std::size_t number) const;

 private:
  std::filesystem::path m_folder;
  std::string m_ending;
};

struct Run {
  std::vector<std::string> words;  ///< of the command line
  double work_s = 0;               ///< seconds of video
};

/// What became of a run: nothing, or why it failed, in the last line that it said.
using RunEnd = std::function<void(std::size_t run, const std::string& problem)>;

/// Starts `program` for each run, at most `jobs` at once, and tells as each ends. They end with this process. What they
/// print is not shown. Throws std::runtime_error when none can be started.
void runAll(const std::filesystem::path& program, const std::vector<Run>& runs, int jobs, const RunEnd& ended);

}  // namespace evaluate
