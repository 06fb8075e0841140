// The web server's texts: addresses, forms and the replies of the program behind it. Pure functions on what strangers
// may have sent.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace workstation {

/// Key to value, decoded; the last of a repeated key.
using HttpQuery = std::map<std::string, std::string, std::less<>>;

/// Keys and values of "a=1&b=x+y%21". None for what is no text: a broken percent sign, a NUL, no UTF-8.
std::optional<HttpQuery> decodeForm(const std::string& form);

/// Where to listen. A range of ports means the first that is free.
struct ListenAddress {
  std::string address;  ///< an IPv4 or IPv6 address
  std::uint16_t first_port = 0;
  std::uint16_t last_port = 0;  ///< 0 with first_port 0: any free port

  bool operator==(const ListenAddress&) const = default;
};

/// "127.0.0.1:8080", "[::1]:0", "localhost:80", "127.0.0.1:8080-8099". Throws std::runtime_error with one line.
ListenAddress parseListenAddress(const std::string& text);

/// The text that parseListenAddress understands.
std::string toString(const ListenAddress& listen);

/// Only this machine reaches such an address.
bool isLoopback(const std::string& address);

/// "http://127.0.0.1:8080/", "http://[::1]/"; the machine's name where the server listens on all addresses.
std::string pageAddress(const std::string& address, std::uint16_t port, bool is_secure = false);

/// Whether a request's Host is this server, as seen through the connection's own end: its address, the machine's name,
/// one of the names that it was given besides, or localhost on a loopback address. A foreign name that resolves to this
/// machine is not.
bool isOwnHost(std::string_view host, const std::string& local_address, std::uint16_t local_port,
               bool is_secure = false, const std::vector<std::string>& names = {});

struct CgiReply {
  unsigned int status = 200;
  std::string reason;                                        ///< empty: the usual one
  std::vector<std::pair<std::string, std::string>> headers;  ///< without Status
  std::string body;
};

/// A reply as programs behind a web server write it: header lines, an empty line, a body; "Status: 406\tNot Acceptable"
/// among the headers, lines ended by CR LF or LF. Nothing at all is an empty reply of status 200. None for anything
/// else.
std::optional<CgiReply> parseCgiReply(std::string_view reply);

}  // namespace workstation
