// Who follows a feed of server-sent events. On the server's thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <string>

#include "platform/support/owners.h"
#include "platform/workstation/web/http_server.h"

namespace workstation {

struct FeedLimits {
  std::size_t viewers = kMostPages;    ///< at once
  std::size_t unsent_bytes = 1 << 20;  ///< for one viewer; who leaves more unread is dropped
};

/// A message of a feed, in one line of data; without an id where that is 0.
std::string feedMessage(const std::string& event, const std::string& data, std::uint64_t id = 0);

class FeedViewers {
 public:
  explicit FeedViewers(const FeedLimits& limits) : m_limits(limits) {}
  ~FeedViewers();
  FeedViewers(const FeedViewers&) = delete;
  FeedViewers& operator=(const FeedViewers&) = delete;

  /// What a viewer is told first; sets the number that it knows then.
  using First = std::function<std::string(std::uint64_t& last)>;

  /// A request becomes a viewer, or is told that there are too many.
  void welcome(SoupServerMessage* message, const First& first);
  void sendToAll(const std::string& text);
  /// To those who do not know this number yet.
  void sendNewer(const std::string& text, std::uint64_t number);
  /// Everybody is told all anew.
  void sendFirst(const First& first);

 private:
  struct Viewer {
    GLibPtr<SoupServerMessage> message;
    std::uint64_t last;      ///< the number it knows
    std::size_t unsent = 0;  ///< bytes
  };

  void send(Viewer& viewer, const std::string& text) const;
  void forget(SoupServerMessage* message);
  void release(std::list<Viewer>::iterator viewer);

  const FeedLimits m_limits;
  std::list<Viewer> m_viewers;
};

}  // namespace workstation
