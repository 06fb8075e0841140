#include "platform/workstation/web/http_text.h"

#include <gio/gio.h>
#include <glib.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace workstation {
namespace {

struct Unref {
  void operator()(gpointer object) const { g_object_unref(object); }
};
using InetAddress = std::unique_ptr<GInetAddress, Unref>;

constexpr std::uint16_t kHttpPort = 80;

/// Headers that belong to the connection, hence to the server alone.
constexpr std::string_view kServersHeaders[] = {"connection", "content-length", "date", "transfer-encoding", "upgrade"};

InetAddress inetAddress(const std::string& text) { return InetAddress(g_inet_address_new_from_string(text.c_str())); }

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && g_ascii_strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::optional<std::string> decode(std::string_view text) {
  std::string decoded;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i] == '+' ? ' ' : text[i];
      continue;
    }
    const int high = i + 2 < text.size() ? g_ascii_xdigit_value(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? g_ascii_xdigit_value(text[i + 2]) : -1;
    if (high < 0 || low < 0) return std::nullopt;
    decoded += static_cast<char>(high * 16 + low);
    i += 2;
  }
  // The length-bound check also refuses a NUL.
  if (g_utf8_validate_len(decoded.data(), decoded.size(), nullptr) == FALSE) return std::nullopt;
  return decoded;
}

std::optional<std::uint16_t> parsePort(std::string_view text) {
  std::uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(port) : std::nullopt;
}

/// "host", "host:80", "[::1]:80" -> host without brackets, and the text after the colon (none without one).
std::pair<std::string, std::optional<std::string_view>> splitHost(std::string_view text) {
  const size_t bracket = text.starts_with('[') ? text.find(']') : std::string_view::npos;
  const size_t colon = text.find(':', bracket == std::string_view::npos ? 0 : bracket);
  std::string host(text.substr(0, colon));
  if (bracket != std::string_view::npos && bracket + 1 == host.size()) host = host.substr(1, bracket - 1);
  return {host, colon == std::string_view::npos ? std::nullopt : std::optional(text.substr(colon + 1))};
}

std::string bracketed(const std::string& address) {
  return address.find(':') == std::string::npos ? address : "[" + address + "]";
}

bool isHeaderName(std::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) { return g_ascii_isalnum(c) || c == '-'; });
}

bool isHeaderValue(std::string_view value) {
  return std::none_of(value.begin(), value.end(), [](char c) { return g_ascii_iscntrl(c) && c != '\t'; });
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && g_ascii_isspace(text.front())) text.remove_prefix(1);
  while (!text.empty() && g_ascii_isspace(text.back())) text.remove_suffix(1);
  return text;
}

/// "406\tNot Acceptable": a number of three digits, then perhaps a reason.
bool takeStatus(std::string_view value, CgiReply& reply) {
  constexpr size_t kDigits = 3;
  const std::string_view digits = value.substr(0, kDigits);
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), reply.status);
  const bool whole = error == std::errc() && end == value.data() + kDigits;
  reply.reason = trimmed(value.substr(digits.size()));
  return whole && reply.status >= 200 && (value.size() == kDigits || g_ascii_isspace(value[kDigits]));
}

bool takeHeader(std::string_view line, CgiReply& reply) {
  const size_t colon = line.find(':');
  const std::string_view name = line.substr(0, colon);
  const std::string_view value = colon == std::string_view::npos ? "" : trimmed(line.substr(colon + 1));
  if (colon == std::string_view::npos || !isHeaderName(name) || !isHeaderValue(value)) return false;
  if (equalIgnoringCase(name, "status")) return takeStatus(value, reply);
  const auto isName = [name](std::string_view other) { return equalIgnoringCase(name, other); };
  if (std::none_of(std::begin(kServersHeaders), std::end(kServersHeaders), isName))
    reply.headers.emplace_back(name, value);
  return true;
}

}  // namespace

std::optional<HttpQuery> decodeForm(std::string_view form) {
  HttpQuery query;
  while (!form.empty()) {
    const std::string_view pair = form.substr(0, form.find('&'));
    form.remove_prefix(std::min(form.size(), pair.size() + 1));
    const size_t equals = pair.find('=');
    const auto key = decode(pair.substr(0, equals));
    const auto value = decode(equals == std::string_view::npos ? "" : pair.substr(equals + 1));
    if (!key || !value) return std::nullopt;
    if (!pair.empty()) query.insert_or_assign(*key, *value);
  }
  return query;
}

ListenAddress parseListenAddress(const std::string& text) {
  auto [host, ports] = splitHost(text);
  const InetAddress address = inetAddress(host == "localhost" ? "127.0.0.1" : host);
  const size_t dash = ports ? ports->find('-') : std::string_view::npos;
  const auto first = ports ? parsePort(ports->substr(0, dash)) : std::nullopt;
  const auto last = dash == std::string_view::npos ? first : parsePort(ports->substr(dash + 1));
  if (!address || !first || !last || *last < *first) {
    throw std::runtime_error("\"" + text +
                             "\": is not an address to listen on; give ADDRESS:PORT, for example 127.0.0.1:8080, "
                             "[::1]:8080 or 0.0.0.0:8080");
  }
  const std::unique_ptr<gchar, decltype(&g_free)> plain(g_inet_address_to_string(address.get()), &g_free);
  return {plain.get(), *first, *last};
}

std::string toString(const ListenAddress& listen) {
  std::string text = bracketed(listen.address) + ":" + std::to_string(listen.first_port);
  return listen.last_port == listen.first_port ? text : text + "-" + std::to_string(listen.last_port);
}

bool isLoopback(const std::string& address) {
  const InetAddress parsed = inetAddress(address);
  return parsed != nullptr && g_inet_address_get_is_loopback(parsed.get()) != FALSE;
}

std::string pageAddress(const std::string& address, std::uint16_t port) {
  const InetAddress parsed = inetAddress(address);
  const bool any = parsed != nullptr && g_inet_address_get_is_any(parsed.get()) != FALSE;
  std::string page = "http://";
  page += any ? g_get_host_name() : bracketed(address);
  if (port != kHttpPort) page.append(":").append(std::to_string(port));
  return page + "/";
}

bool isOwnHost(std::string_view host, const std::string& local_address, std::uint16_t local_port) {
  const auto [name, port] = splitHost(host);
  if ((port ? parsePort(*port) : std::optional(kHttpPort)) != local_port) return false;
  if (equalIgnoringCase(name, g_get_host_name())) return true;
  if (equalIgnoringCase(name, "localhost")) return isLoopback(local_address);
  const InetAddress asked = inetAddress(name);
  const InetAddress local = inetAddress(local_address);
  return asked != nullptr && local != nullptr && g_inet_address_equal(asked.get(), local.get()) != FALSE;
}

bool isLongEnough(const std::string& password) {
  const bool is_text = g_utf8_validate(password.data(), static_cast<gssize>(password.size()), nullptr) != FALSE;
  const size_t characters = is_text ? static_cast<size_t>(g_utf8_strlen(password.c_str(), -1)) : password.size();
  return characters >= kShortestPassword;
}

std::optional<CgiReply> parseCgiReply(std::string_view reply) {
  CgiReply parsed;
  if (reply.empty()) return parsed;
  for (;;) {
    const size_t end = reply.find('\n');
    if (end == std::string_view::npos) return std::nullopt;
    std::string_view line = reply.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    reply.remove_prefix(end + 1);
    if (line.empty()) break;
    if (!takeHeader(line, parsed)) return std::nullopt;
  }
  parsed.body = reply;
  return parsed;
}

}  // namespace workstation
