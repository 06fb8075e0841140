// A web client that sends bytes as they are, and the reply taken apart. No call waits longer than ten seconds.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

struct HttpReply {
  int status = 0;                              ///< 0: the server closed the connection without a reply
  std::map<std::string, std::string> headers;  ///< names in lower case
  std::string body;
};

/// One connection to a port of 127.0.0.1. While it waits, the default main loop turns.
class HttpClient {
 public:
  /// Comes from the address of this machine that is given, and sends the text.
  explicit HttpClient(std::uint16_t port, const std::string& text = "", const char* from = "127.0.0.1");
  ~HttpClient();
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  /// As much as the server takes.
  void send(const std::string& bytes);
  /// One reply with a known length, or without a body.
  HttpReply receive(bool with_body = true);
  /// Reads until the text has come; what was read up to its end, or all when the connection ends before.
  std::string receiveUntil(const std::string& text);
  /// Whether the connection is still open after this time.
  bool isOpen(std::chrono::milliseconds time);
  /// True once the server has closed the connection; false when it goes on for ten seconds.
  bool seesEnd();
  /// Says that nothing will be sent or awaited any more; true once the server has let go. The main loop stands still.
  bool leave();

 private:
  bool read();

  int m_socket;
  std::string m_pending;
};

/// "GET PATH HTTP/1.1", the port's Host unless the headers have one, further header lines (each ended by CR LF), a
/// body.
std::string requestText(std::uint16_t port, const std::string& method, const std::string& path,
                        const std::string& headers = "", const std::string& body = "");

/// The reply to that, over a connection of its own.
HttpReply request(std::uint16_t port, const std::string& method, const std::string& path,
                  const std::string& headers = "", const std::string& body = "");
