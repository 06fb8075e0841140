// Calls the receivers outside: each gets what is for it, in order, one after the other, until it has taken it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/workstation/alarms/alarm_desk.h"
#include "platform/workstation/outside/cursors.h"
#include "platform/workstation/outside/sender.h"

namespace workstation {

/// How well a receiver is reached.
struct ReceiverStatus {
  enum class State { kUnknown, kReached, kNotReached };
  /// What has come of the last call to try the way.
  struct Test {
    std::uint64_t number;
    bool is_taken;
    std::string words;
  };

  std::string name;
  std::string kind;
  int level = 1;
  State state = State::kUnknown;   ///< unknown before the first try
  bool waits = false;              ///< there is something that it has not taken yet
  std::string words;               ///< of the last try: "200 OK"
  std::optional<TimeStamp> time;   ///< of the last try
  std::optional<TimeStamp> since;  ///< it is not reached
  std::optional<Test> test;
};

struct PostOfficeSettings {
  std::chrono::milliseconds patience{10000};    ///< for one try
  std::chrono::milliseconds first_pause{1000};  ///< after a try that has failed; twice as long after each further one
  std::chrono::milliseconds longest_pause{60000};  ///< a new call does not wait for its end
  /// Makes the sender for a receiver, on the post office's thread; nothing for a kind that it does not know. Without:
  /// webhooks.
  std::function<std::unique_ptr<Sender>(const Receiver&)> makeSender = {};
};

class PostOffice {
 public:
  /// For cursors that the desk's floor has loaded.
  PostOffice(std::shared_ptr<AlarmDesk> desk, std::shared_ptr<Cursors> cursors, PostOfficeSettings settings = {});
  /// What is not taken by then goes out after the next start.
  ~PostOffice();
  PostOffice(const PostOffice&) = delete;
  PostOffice& operator=(const PostOffice&) = delete;

  /// In the order of the levels. From any thread.
  [[nodiscard]] std::vector<ReceiverStatus> receivers() const;

  class Implementation;

 private:
  std::unique_ptr<Implementation> m_implementation;
};

}  // namespace workstation
