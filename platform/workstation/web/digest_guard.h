// Who may come in: Digest authentication with challenges of our own, each good for one use of each count and for a
// while, so that a recorded request is of no use. Who tries passwords gets slower and slower answers.
#pragma once

#include <libsoup/soup.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "platform/support/owners.h"

namespace workstation {

class DigestGuard {
 public:
  using Clock = std::chrono::steady_clock;

  /// Guards every path of the server for one user. `now` tells the time.
  DigestGuard(SoupServer* server, const std::string& user, const std::string& password,
              std::function<Clock::time_point()> now = Clock::now);
  ~DigestGuard();
  DigestGuard(const DigestGuard&) = delete;
  DigestGuard& operator=(const DigestGuard&) = delete;

  /// Puts a challenge of ours in the place of the library's; for a message from `address` that was refused with 401.
  /// Returns how long the answer must wait: longer with each wrong password that has come from there lately, 0 when
  /// none was tried. Wrong ones are in the system log.
  std::chrono::milliseconds challenge(SoupServerMessage* message, const std::string& address);

 private:
  struct Challenge {
    Clock::time_point since;
    unsigned long highest = 0;  ///< count that came with it
    std::uint64_t seen = 0;     ///< bit n: the count n below the highest came

    /// True for a count that has not come before; those long past count as come.
    bool take(unsigned long count);
  };

  struct Attempts {
    unsigned int wrong = 0;   ///< passwords
    unsigned int untold = 0;  ///< of these, since the last line in the system log
    Clock::time_point last;
    Clock::time_point told;
  };

  static char* encodedPassword(SoupAuthDomain* domain, SoupServerMessage* message, const char* user, gpointer guard);
  bool useUp(SoupServerMessage* message);
  void forgetOld();
  /// Returns how many wrong passwords have come from there.
  unsigned int noteAttempt(const std::string& address);

  std::function<Clock::time_point()> m_now;
  std::string m_user, m_encoded_password;
  std::map<std::string, Challenge> m_challenges;
  std::map<std::string, Attempts> m_attempts;  ///< by address
  bool m_stale = false;                        ///< the message at hand answers a challenge that is not good any more
  GLibPtr<SoupAuthDomain> m_domain;
};

}  // namespace workstation
