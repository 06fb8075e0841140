// Who guesses a password gets to try less and less often; nobody else notices.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <utility>

namespace workstation {

/// Counts by the address that tries and the name that is tried: the person signs in from anywhere else meanwhile, and
/// others from that address. Of one thread.
class Lockout {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Lockout(std::function<Clock::time_point()> now = Clock::now) : m_now(std::move(now)) {}

  /// How long nothing is tried from there for that name; 0 when it may be. What comes before counts for nothing.
  std::chrono::seconds wait(const std::string& address, const std::string& name);
  /// One more; how many lately.
  unsigned int noteWrong(const std::string& address, const std::string& name);
  void noteRight(const std::string& address, const std::string& name);

 private:
  struct Attempts {
    unsigned int wrong = 0;
    Clock::time_point last;
  };
  using Key = std::pair<std::string, std::string>;

  static Key keyOf(const std::string& address, const std::string& name);
  void forgetOld();

  std::function<Clock::time_point()> m_now;
  std::map<Key, Attempts> m_attempts;
};

}  // namespace workstation
