// What takes a message to somebody outside: one kind of receiver, one sender.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace workstation {

/// Ready to go out: the bytes stay the same however often it is sent.
struct OutgoingMessage {
  std::uint64_t number = 0;
  std::string body;  ///< JSON
};

/// What has come of one try.
struct Delivery {
  bool is_taken = false;  ///< the receiver has said so
  std::string words;      ///< "200 OK", "no answer within 10 s"
};

/// Everything happens on the thread that has made it.
class Sender {
 public:
  Sender() = default;
  /// A try under way is given up; its `done` is not called any more.
  virtual ~Sender() = default;
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

  /// Tries once, and comes to an end in bounded time. One at a time. `done` is called later, once.
  virtual void send(const OutgoingMessage& message, std::function<void(const Delivery&)> done) = 0;
};

}  // namespace workstation
