// The camera's web server, on a thread of its own: pages and streams go on while the program is busy with a cycle.
#pragma once

#include <gio/gio.h>
#include <libsoup/soup.h>

#include <functional>
#include <map>
#include <string>

namespace workstation {

/// Key to value, decoded; the last of a repeated key.
using HttpQuery = std::map<std::string, std::string, std::less<>>;

class HttpServer {
 public:
  /// Answers a request that has passed all guards, on the server's thread: sets a status and a body, or pauses the
  /// message (soup_server_message_pause) and goes on with it later on the same thread. The message is borrowed; it may
  /// end at any time after the call, told by its signals "finished" and "disconnected".
  using Endpoint = std::function<void(SoupServerMessage* message, const HttpQuery& query)>;

  /// Adds the answer to GET and HEAD for one path ("/axis-cgi/mjpg/video.cgi"); before the server listens.
  void addEndpoint(const std::string& path, Endpoint endpoint);

  /// Runs a function on the server's thread, in order of the calls; from any thread.
  void invoke(std::function<void()> function);

  /// The server's thread's context, for timers.
  GMainContext* context() const;
};

/// Answers with a status and one line of plain text.
void answerLine(SoupServerMessage* message, unsigned int status, const std::string& line);

}  // namespace workstation
