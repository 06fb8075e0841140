// How far an evaluation is, on standard error.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace evaluate {

/// A bar on a terminal, else a line for each that is finished.
class Progress {
 public:
  /// `what`: in the plural, "recordings".
  Progress(bool on_terminal, std::size_t count, std::string what);
  /// Takes the bar away.
  ~Progress() { hide(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Runs that take so long, in seconds of video, are still to come, or have ended.
  void expect(double work_s) { m_work_s += work_s; }
  void did(double work_s);
  void finished(const std::string& name);
  /// A line above the bar.
  void tell(const std::string& line);
  void hide() const;

 private:
  void show() const;
  [[nodiscard]] std::string leftText(double share) const;

  const bool m_on_terminal;
  const std::size_t m_count;
  const std::string m_what;
  const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
  std::size_t m_finished = 0;
  double m_work_s = 0;
  double m_done_s = 0;
};

}  // namespace evaluate
