#include "platform/workstation/web/http_text.h"

#include <libsoup/soup.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "platform/support/owners.h"

namespace workstation {
namespace {

using InetAddress = GLibPtr<GInetAddress>;

constexpr std::uint16_t kHttpPort = 80, kHttpsPort = 443;

/// Headers that belong to the connection, hence to the server alone.
constexpr std::string_view kServersHeaders[] = {"connection", "content-length", "date", "transfer-encoding", "upgrade"};

InetAddress inetAddress(const std::string& text) { return InetAddress(g_inet_address_new_from_string(text.c_str())); }

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && g_ascii_strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/// Whether each part of a form is a text; libsoup leaves out what is not, and a NUL would end it.
bool isTextForm(const std::string& form) {
  const GLibPtr<gchar> text(g_uri_unescape_string(form.c_str(), nullptr));
  return form.find('\0') == std::string::npos && text && g_utf8_validate(text.get(), -1, nullptr) != FALSE;
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

/// "406\tNot Acceptable": a number of three digits, then perhaps a reason.
bool takeStatus(std::string_view value, CgiReply& reply) {
  constexpr size_t kDigits = 3;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), reply.status);
  const std::string_view rest = value.substr(static_cast<size_t>(end - value.data()));
  reply.reason = rest.substr(std::min(rest.find_first_not_of(" \t"), rest.size()));
  return error == std::errc() && end == value.data() + kDigits && reply.status >= 200 &&
         (rest.empty() || g_ascii_isspace(rest.front()));
}

using Headers = std::unique_ptr<SoupMessageHeaders, decltype(&soup_message_headers_unref)>;

/// Takes the lines after the first. False where one is no header: libsoup leaves those out.
bool takeHeaders(const std::string& lines, CgiReply& reply) {
  const Headers headers(soup_message_headers_new(SOUP_MESSAGE_HEADERS_RESPONSE), &soup_message_headers_unref);
  if (soup_headers_parse(lines.data(), static_cast<int>(lines.size()), headers.get()) == FALSE) return false;
  ptrdiff_t left = std::count(lines.begin(), lines.end(), '\n') - 1;
  bool good = true;
  SoupMessageHeadersIter next;
  soup_message_headers_iter_init(&next, headers.get());
  for (const char *name = nullptr, *value = nullptr; soup_message_headers_iter_next(&next, &name, &value) != FALSE;) {
    --left;
    const auto is_name = [name](std::string_view other) { return equalIgnoringCase(name, other); };
    if (is_name("status")) {
      good = takeStatus(value, reply) && good;
    } else if (std::none_of(std::begin(kServersHeaders), std::end(kServersHeaders), is_name)) {
      reply.headers.emplace_back(name, value);
    }
  }
  return good && left == 0;
}

}  // namespace

std::optional<HttpQuery> decodeForm(const std::string& form) {
  if (!isTextForm(form)) return std::nullopt;
  const GLibPtr<GHashTable> table(soup_form_decode(form.c_str()));
  HttpQuery query;
  constexpr auto take = +[](gpointer key, gpointer value, gpointer target) {
    (*static_cast<HttpQuery*>(target))[static_cast<const char*>(key)] = static_cast<const char*>(value);
  };
  g_hash_table_foreach(table.get(), take, &query);
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
  const GLibPtr<gchar> plain(g_inet_address_to_string(address.get()));
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

std::string pageAddress(const std::string& address, std::uint16_t port, bool is_secure) {
  const InetAddress parsed = inetAddress(address);
  const bool any = parsed != nullptr && g_inet_address_get_is_any(parsed.get()) != FALSE;
  std::string page = is_secure ? "https://" : "http://";
  page += any ? g_get_host_name() : bracketed(address);
  if (port != (is_secure ? kHttpsPort : kHttpPort)) page.append(":").append(std::to_string(port));
  return page + "/";
}

bool isOwnHost(std::string_view host, const std::string& local_address, std::uint16_t local_port, bool is_secure,
               const std::vector<std::string>& names) {
  const auto parts = splitHost(host);
  const std::string& name = parts.first;
  const auto usual = std::optional(is_secure ? kHttpsPort : kHttpPort);
  if ((parts.second ? parsePort(*parts.second) : usual) != local_port) return false;
  const auto is_name = [&name](std::string_view other) { return equalIgnoringCase(name, other); };
  if (is_name(g_get_host_name())) return true;
  if (is_name("localhost")) return isLoopback(local_address);
  if (std::any_of(names.begin(), names.end(), is_name)) return true;
  const InetAddress asked = inetAddress(name);
  const InetAddress local = inetAddress(local_address);
  return asked != nullptr && local != nullptr && g_inet_address_equal(asked.get(), local.get()) != FALSE;
}

std::optional<CgiReply> parseCgiReply(std::string_view reply) {
  CgiReply parsed;
  if (reply.empty()) return parsed;
  // A message has a first line before its headers; a program's reply has none.
  const std::string message = "\n" + std::string(reply);
  for (size_t end = 0; end != message.npos; end = message.find('\n', end + 1)) {
    const size_t next = message.find_first_not_of('\r', end + 1);
    if (next == message.npos || message[next] != '\n') continue;
    if (!takeHeaders(message.substr(0, end + 1), parsed)) return std::nullopt;
    parsed.body = message.substr(next + 1);
    return parsed;
  }
  return std::nullopt;
}

}  // namespace workstation
