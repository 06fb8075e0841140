// The camera's web server, on a thread of its own: pages and streams go on while the program is busy with a cycle.
#pragma once

#include <gio/gio.h>
#include <libsoup/soup.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/workstation/web/http_text.h"

namespace workstation {

class Access;

/// A ward's screens and telephones, at once; each follows two feeds and a picture, and asks for something now and then.
inline constexpr size_t kMostPages = 32;

struct HttpServerSettings {
  std::string application = "velmor_care";     ///< the page lies below /local/NAME/
  std::filesystem::path page;                  ///< the folder of the page's files; may be a link
  std::shared_ptr<Access> access;              ///< who may come in; none: whoever reaches it, from this machine only
  std::string certificate;                     ///< with its key, in PEM: the page is https; empty: http
  std::vector<std::string> names;              ///< by which others know this machine, besides its own
  size_t connections = 5 * kMostPages;         ///< at once; more are turned away
  size_t connections_of_one = 4 * kMostPages;  ///< at once from one address, so that nobody takes them all
  std::chrono::milliseconds patience{30000};   ///< for an answer
  size_t strangers = 24;                       ///< at once, besides: connections without a request that was let in
  size_t strangers_of_one = 8;                 ///< at once from one address; one more ends the oldest
  std::chrono::milliseconds first_patience{5000};  ///< for a request, and for the answer to one that was not let in
  size_t body_bytes = 64 << 10;                    ///< of a request's body
};

/// A request that may change something, past all guards: to the program behind the server, or a form.
struct ProgramRequest {
  std::string path, method;             ///< GET or POST
  std::optional<std::string> query;     ///< as it was sent
  std::optional<HttpQuery> parameters;  ///< of the form-encoded body, else of the query
};

class HttpServer {
 public:
  explicit HttpServer(HttpServerSettings settings);
  /// Stops the server.
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  /// Answers a request that has passed all guards, on the server's thread: sets a status and a body, or pauses the
  /// message (soup_server_message_pause) and goes on with it later on the same thread. The message is borrowed; it may
  /// end at any time after the call, told by its signals "finished" and "disconnected".
  using Endpoint = std::function<void(SoupServerMessage* message, const HttpQuery& query)>;
  /// The same for the addresses /local/NAME/*.cgi.
  using Program = std::function<void(SoupServerMessage* message, const ProgramRequest& request)>;

  /// Adds the answer to GET and HEAD for one path ("/axis-cgi/mjpg/video.cgi"); before the server listens. A message
  /// whose answer has no known length (SOUP_ENCODING_CHUNKED, SOUP_ENCODING_EOF) may go on as long as it is read.
  void addEndpoint(const std::string& path, Endpoint endpoint);
  /// Adds the answer to POST for one path; before the server listens. Only what the page itself sends gets there.
  void addForm(const std::string& path, Program form);
  /// Before the server listens.
  void setProgram(Program program);

  /// Starts the thread; returns the port. Throws std::runtime_error with one line when the address or the certificate
  /// cannot be had, and for an address that other machines reach when it is not said who may come in.
  std::uint16_t listen(const ListenAddress& where);
  /// Ends all connections and the thread. No endpoint is called any more once this returns; nothing for a server that
  /// does not listen.
  void stop();

  /// Connections from now on get this one, of a server that is https; from any thread. Throws std::runtime_error with
  /// one line for one that cannot be used.
  void setCertificate(const std::string& pem);

  /// Who is there may not be any more: ends streams and feeds of whoever would not get them now. On the server's
  /// thread.
  void recheck();

  /// Runs a function on the server's thread, in order of the calls; from any thread. After stop() it never runs.
  void invoke(std::function<void()> function);

  /// The server's thread's context, for timers.
  GMainContext* context() const;

 private:
  class Implementation;
  std::unique_ptr<Implementation> m_implementation;
};

/// Throws std::runtime_error with one line when an address cannot be listened on at the moment.
void checkFree(const ListenAddress& where);

/// Answers with a status and one line of plain text.
void answerLine(SoupServerMessage* message, unsigned int status, const std::string& line);

/// The connection of a message, borrowed; on the server's thread.
GSocket* socketOf(SoupServerMessage* message);

/// Ends the connection of a message that an endpoint has not finished, paused or not; on the server's thread.
void dropConnection(SoupServerMessage* message);

}  // namespace workstation
