// Who has signed in. A restart ends no session, so that a screen on the wall goes on hearing alarms after a power cut.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/clock/clock.h"
#include "platform/workstation/people/register.h"
#include "platform/workstation/system/side_thread.h"

namespace workstation {

/// Of one thread. What is kept on disk, for its owner alone, is a hash of each session; it is written without waiting,
/// and lost, a person signs in again.
class Sessions {
 public:
  /// A session that has not been used for so long is none.
  static constexpr std::chrono::hours kUnused{30 * 24};

  explicit Sessions(const std::filesystem::path& state, std::function<TimeStamp()> now = ticker_clock::now);

  struct Session {
    std::string name;      ///< the person's
    std::string password;  ///< a hash of its hash: with another password the session is over, whatever a crash leaves
    TimeStamp used;
    bool is_spared = false;
  };

  /// Returns the session's secret.
  std::string begin(const Person& person);
  /// The person it is of, if that is so still.
  const Person* find(const std::string& secret, const Register& all);
  void end(const std::string& secret);
  /// While its person's password changes a session goes on, whatever that is just now. A restart knows nothing of it.
  void spare(const std::string& secret, bool is_spared);

  /// Waits for the disk, no longer than that.
  bool settle(std::chrono::milliseconds patience) { return m_disk.settle(patience); }

 private:
  void load();
  void save();
  void makeRoom();

  const std::filesystem::path m_file;
  const std::function<TimeStamp()> m_now;
  std::map<std::string, Session> m_sessions;  ///< by hash
  SideThread m_disk;
};

}  // namespace workstation
