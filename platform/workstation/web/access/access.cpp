#include "platform/workstation/web/access/access.h"

#include <syslog.h>

#include <algorithm>
#include <string_view>

#include "platform/support/owners.h"
#include "platform/workstation/web/http_server.h"

namespace workstation {
namespace {

constexpr const char* kBrowser = "Mozilla/";  // so all of them have begun their names for decades

std::string headerOf(SoupServerMessage* message, const char* name) {
  const char* text = soup_message_headers_get_list(soup_server_message_get_request_headers(message), name);
  return text == nullptr ? "" : text;
}

/// The password of "Basic dXNlcjpwYXNzd29yZA==", whoever the user is.
std::string basicPassword(const std::string& encoded) {
  gsize size = 0;
  const GLibMemory<guchar> bytes(g_base64_decode(encoded.c_str(), &size));
  const std::string decoded(reinterpret_cast<const char*>(bytes.get()), size);
  const size_t colon = decoded.find(':');
  return colon == decoded.npos ? "" : decoded.substr(colon + 1);
}

std::string tokenIn(const std::string& authorization) {
  const size_t blank = authorization.find(' ');
  if (blank == authorization.npos) return "";
  const std::string scheme = authorization.substr(0, blank);
  const size_t begin = authorization.find_first_not_of(' ', blank);
  std::string rest = begin == authorization.npos ? "" : authorization.substr(begin);
  if (g_ascii_strcasecmp(scheme.c_str(), "Bearer") == 0) return rest;
  return g_ascii_strcasecmp(scheme.c_str(), "Basic") == 0 ? basicPassword(rest) : "";
}

std::string cookieIn(std::string_view cookies, const std::string& name) {
  while (!cookies.empty()) {
    const size_t end = std::min(cookies.find_first_of(";,"), cookies.size());
    std::string_view cookie = cookies.substr(0, end);
    cookies.remove_prefix(std::min(end + 1, cookies.size()));
    cookie.remove_prefix(std::min(cookie.find_first_not_of(' '), cookie.size()));
    if (cookie.starts_with(name + "=")) return std::string(cookie.substr(name.size() + 1));
  }
  return "";
}

}  // namespace

Access::Access(const std::filesystem::path& state) : m_people(std::make_shared<People>(state)), m_sessions(state) {
  if (!m_people->trouble().empty()) syslog(LOG_ERR, "%s", m_people->trouble().c_str());
}

std::optional<Visitor> Access::ownerOf(const std::string& session) {
  if (session.empty()) return std::nullopt;
  const auto all = m_people->all();
  const Person* const person = m_sessions.find(session, *all);
  return person == nullptr ? holderOf(session) : std::optional(Visitor{person->name, person->role});
}

std::optional<Visitor> Access::holderOf(const std::string& token) const {
  const auto held = m_people->tokenOf(token);
  return held ? std::optional(Visitor{held->name, held->role, true}) : std::nullopt;
}

std::optional<Visitor> Access::identify(SoupServerMessage* message) {
  if (asksNobody()) return Visitor{"", Role::kInstaller};
  const std::string authorization = headerOf(message, "Authorization");
  if (authorization.empty()) return ownerOf(cookieIn(headerOf(message, "Cookie"), cookieName()));
  return holderOf(tokenIn(authorization));
}

std::string Access::sessionOf(SoupServerMessage* message) {
  const std::string session = cookieIn(headerOf(message, "Cookie"), cookieName());
  return headerOf(message, "Authorization").empty() && ownerOf(session) ? session : "";
}

void Access::setCookie(SoupServerMessage* message, const std::string& secret) const {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Sessions::kUnused).count();
  const std::string cookie = cookieName() + "=" + secret + "; Path=/; HttpOnly; SameSite=Strict; Max-Age=" +
                             (secret.empty() ? "0" : std::to_string(seconds)) + (m_place.is_secure ? "; Secure" : "");
  soup_message_headers_append(soup_server_message_get_response_headers(message), "Set-Cookie", cookie.c_str());
}

void refuseStranger(SoupServerMessage* message) {
  if (!headerOf(message, "User-Agent").starts_with(kBrowser)) {
    soup_message_headers_replace(soup_server_message_get_response_headers(message), "WWW-Authenticate",
                                 "Basic realm=\"velmor_care\", charset=\"UTF-8\"");
  }
  answerLine(message, SOUP_STATUS_UNAUTHORIZED, "Sign in, or send a token.");
}

void refuseRole(SoupServerMessage* message, Role least) {
  answerLine(message, SOUP_STATUS_FORBIDDEN, "This is for a role of at least " + std::string(nameOf(least)) + ".");
}

}  // namespace workstation
