// Requests whose answer waits for something, a disk above all. On the server's thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "platform/support/owners.h"
#include "platform/workstation/web/http_server.h"

namespace workstation {

/// A JSON document as the answer.
void answerJson(SoupServerMessage* message, unsigned int status, const std::string& document);

class PendingReplies {
 public:
  using Reply = std::function<void(SoupServerMessage*)>;

  explicit PendingReplies(GMainContext* context) : m_context(context) {}
  ~PendingReplies();
  PendingReplies(const PendingReplies&) = delete;
  PendingReplies& operator=(const PendingReplies&) = delete;

  /// The message waits, and is answered by `late` when its time is up. The id by which it is finished.
  std::uint64_t add(SoupServerMessage* message, std::chrono::milliseconds patience, Reply late);
  /// Nothing for one that was late or whose client has gone.
  void finish(std::uint64_t id, const Reply& reply);

 private:
  struct Pending {
    GLibPtr<SoupServerMessage> message;
    GLibPtr<GSource> limit;
    Reply late;
  };

  void release(std::uint64_t id);

  GMainContext* m_context;
  std::map<std::uint64_t, Pending> m_pending;
  std::uint64_t m_last = 0;
};

}  // namespace workstation
