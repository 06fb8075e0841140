// A thread for what may stop answering - a disk, a terminal, a pager - so that whoever has something to say goes on.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

namespace workstation {

/// Runs jobs one after another, in order of the calls. A job that never ends keeps no caller, and not the process,
/// from ending; what jobs use must therefore outlive the object: hand them shared pointers. From any thread.
class SideThread {
 public:
  /// `limit`: jobs that may wait at once.
  explicit SideThread(std::size_t limit);
  /// What waits is still run, if the process lasts.
  ~SideThread();
  SideThread(const SideThread&) = delete;
  SideThread& operator=(const SideThread&) = delete;

  /// False when too many wait already; the job then never runs.
  bool post(std::function<void()> job);
  /// Waits until everything posted is done, but no longer than that. Who was kept waiting in vain once is not kept
  /// again before the thread is through: false at once.
  bool settle(std::chrono::milliseconds patience);
  /// The same for whoever ends the process: it always waits.
  bool drain(std::chrono::milliseconds patience);

 private:
  struct State;
  State& current();

  std::size_t m_limit;
  std::shared_ptr<State> m_state;
};

}  // namespace workstation
