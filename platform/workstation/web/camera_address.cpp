#include "platform/workstation/web/camera_address.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "platform/support/owners.h"
#include "platform/workstation/decoding/video_source.h"

namespace workstation {
namespace {

constexpr std::size_t kMostAddress = 2048, kMostUser = 256, kMostPassword = 1024;  // bytes

/// Throws for what no line of a file can hold.
void checkText(const std::string& text, const std::string& what, std::size_t most) {
  if (text.size() > most) throw std::runtime_error("The " + what + " is too long.");
  const auto is_control = [](char c) { return (c >= '\0' && c < ' ') || c == '\x7f'; };
  const bool is_text = g_utf8_validate(text.c_str(), static_cast<gssize>(text.size()), nullptr) != FALSE;
  if (!is_text || std::any_of(text.begin(), text.end(), is_control)) {
    throw std::runtime_error("The " + what + " holds what is no text.");
  }
}

std::string field(const HttpQuery& form, const char* key, std::size_t most) {
  const auto found = form.find(key);
  if (found == form.end()) return "";
  checkText(found->second, key, most);
  return found->second;
}

std::string trimmed(std::string text) {
  const std::size_t begin = std::min(text.find_first_not_of(' '), text.size());
  text.erase(0, begin);
  while (text.ends_with(' ')) text.pop_back();
  return text;
}

bool isOfNetwork(const std::string& uri) {
  constexpr std::array kSchemes{"rtsp://", "rtsps://", "http://", "https://"};
  return std::any_of(kSchemes.begin(), kSchemes.end(), [&uri](const std::string& scheme) {
    return g_ascii_strncasecmp(uri.c_str(), scheme.c_str(), scheme.size()) == 0;
  });
}

/// Whether it names a host, and everything in it stands where it belongs.
bool isWhole(const std::string& uri) {
  const GLibPtr<gchar> host([&uri] {
    gchar* text = nullptr;
    g_uri_split(uri.c_str(), G_URI_FLAGS_PARSE_RELAXED, nullptr, nullptr, &text, nullptr, nullptr, nullptr, nullptr,
                nullptr);
    return text;
  }());
  return host && *host.get() != '\0';
}

}  // namespace

CameraSource cameraFrom(const HttpQuery& form) {
  const std::string address = trimmed(field(form, "address", kMostAddress));
  if (address.empty()) throw std::runtime_error("The camera's address is missing.");
  if (!isOfNetwork(address)) {
    throw std::runtime_error("An address begins with rtsp://, rtsps://, http:// or https://.");
  }
  CameraSource source;
  source.uri = withoutUser(address);
  if (!isWhole(source.uri)) throw std::runtime_error("The address names no machine, or is not well-formed.");
  source.login = {field(form, "user", kMostUser), field(form, "password", kMostPassword)};
  if (const Login in_address = loginIn(address); !in_address.user.empty()) {
    if (!source.login.user.empty()) throw std::runtime_error("The address names a user as well; give one of them.");
    source.login = in_address;
    checkText(source.login.user, "user", kMostUser);
    checkText(source.login.password, "password", kMostPassword);
  }
  if (source.login.user.empty() && !source.login.password.empty()) {
    throw std::runtime_error("There is a password without a user name.");
  }
  if (const std::string text = field(form, "certificate", kMostUser); !text.empty()) {
    const auto fingerprint = takesCertificate(source.uri) ? fingerprintFrom(text) : std::nullopt;
    if (!fingerprint) throw std::runtime_error("A certificate is 64 hexadecimal digits, for rtsps and https only.");
    source.certificate = *fingerprint;
  }
  return source;
}

}  // namespace workstation
