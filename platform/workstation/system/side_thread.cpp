#include "platform/workstation/system/side_thread.h"

#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "platform/workstation/system/signal_mask.h"

namespace workstation {

/// The thread and the object own it together, since either may end first.
struct SideThread::State {
  const pid_t process = ::getpid();
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::function<void()>> jobs;
  bool busy = false;
  bool stuck = false;  ///< somebody has waited in vain since it was idle
  bool ending = false;

  [[nodiscard]] bool isIdle() const { return jobs.empty() && !busy; }

  /// A job that throws is one job less: the process has a patient to watch.
  static void run(const std::function<void()>& job) {
    try {
      job();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "velmor_care: something on the side failed: %s\n", error.what());
    }
  }

  void work() {
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [this] { return ending || !jobs.empty(); });
      if (jobs.empty()) return;
      std::function<void()> job = std::move(jobs.front());
      jobs.pop_front();
      busy = true;
      lock.unlock();
      run(job);
      job = nullptr;
      lock.lock();
      busy = false;
      if (jobs.empty()) stuck = false;
      changed.notify_all();
    }
  }
};

SideThread::SideThread(std::size_t limit) : m_limit(limit) {}

SideThread::~SideThread() {
  if (!m_state) return;
  const std::scoped_lock lock(m_state->mutex);
  m_state->ending = true;
  m_state->changed.notify_all();
}

/// The thread begins with the first call; in a forked child, which has none of its parent's threads, with the child's.
SideThread::State& SideThread::current() {
  static std::mutex starting;
  static auto& abandoned = *new std::vector<std::shared_ptr<State>>;  // never freed: their mutexes may be held for good
  const std::scoped_lock lock(starting);
  if (!m_state || m_state->process != ::getpid()) {
    const auto next = std::make_shared<State>();
    const ScopedSigtermBlock no_sigterm;
    std::thread([next] { next->work(); }).detach();
    abandoned.push_back(std::exchange(m_state, next));
  }
  return *m_state;
}

bool SideThread::post(std::function<void()> job) {
  State& state = current();
  const std::scoped_lock lock(state.mutex);
  if (state.jobs.size() >= m_limit) return false;
  state.jobs.push_back(std::move(job));
  state.changed.notify_all();
  return true;
}

bool SideThread::settle(std::chrono::milliseconds patience) {
  State& state = current();
  std::unique_lock lock(state.mutex);
  if (state.stuck) return false;
  const bool done = state.changed.wait_for(lock, patience, [&state] { return state.isIdle(); });
  state.stuck = !done;
  return done;
}

bool SideThread::drain(std::chrono::milliseconds patience) {
  State& state = current();
  std::unique_lock lock(state.mutex);
  return state.changed.wait_for(lock, patience, [&state] { return state.isIdle(); });
}

}  // namespace workstation
