#include "platform/workstation/decoding/source/camera_source.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <stdexcept>

#include "platform/support/owners.h"
#include "platform/workstation/decoding/video_source.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

constexpr std::size_t kFingerprintDigits = 64;
constexpr const char* kForm = "; it has two lines, the user's name and the password";

/// What an escape doesn't mend is meant as it stands.
std::string unescaped(const std::string& text) {
  const GLibPtr<gchar> plain(g_uri_unescape_string(text.c_str(), nullptr));
  return plain ? plain.get() : text;
}

/// Throws unless nobody but its owner may read the file.
void checkPrivate(const std::string& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0) {
    throw std::runtime_error(file + ": " + (errno == ENOENT ? "there is no such file" : std::strerror(errno)));
  }
  if (S_ISREG(status.st_mode) && (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    throw std::runtime_error(file + ": others than its owner may use it, and it holds a password: chmod 600 it");
  }
}

bool beginsWithAny(const std::string& uri, std::initializer_list<const char*> schemes) {
  return std::any_of(schemes.begin(), schemes.end(), [&uri](const char* scheme) {
    return g_ascii_strncasecmp(uri.c_str(), scheme, std::strlen(scheme)) == 0;
  });
}

}  // namespace

Login readLogin(const std::string& file) {
  checkPrivate(file);
  std::string text = readFile(file, kLoginLimitBytes).value_or("");
  if (text.ends_with('\n')) text.pop_back();
  std::erase(text, '\r');
  const std::size_t end = text.find('\n');
  if (end == std::string::npos) throw std::runtime_error(file + ": is no login" + kForm);
  Login login{text.substr(0, end), text.substr(end + 1)};
  const bool is_text = g_utf8_validate(text.c_str(), static_cast<gssize>(text.size()), nullptr) != FALSE;
  if (login.user.empty() || login.password.find('\n') != std::string::npos || !is_text) {
    throw std::runtime_error(file + ": is no login" + kForm);
  }
  return login;
}

Login loginOf(const CameraSource& source) {
  if (!source.login_file.empty()) return readLogin(source.login_file);
  return source.login.user.empty() ? loginIn(source.uri) : source.login;
}

Login loginIn(const std::string& uri) {
  const std::string bare = withoutUser(uri);
  if (bare.size() == uri.size()) return {};
  const std::size_t begin = uri.find("://") + 3;
  const std::string both = uri.substr(begin, uri.size() - bare.size() - 1);
  const std::size_t colon = std::min(both.find(':'), both.size());
  return {unescaped(both.substr(0, colon)), unescaped(both.substr(std::min(colon + 1, both.size())))};
}

bool takesLogin(const std::string& uri) { return beginsWithAny(uri, {"rtsp", "http"}); }

bool takesCertificate(const std::string& uri) { return beginsWithAny(uri, {"rtsps", "https"}); }

std::optional<std::string> fingerprintFrom(std::string_view text) {
  std::string digits;
  for (const char c : text) {
    if (c == ':') continue;
    if (!g_ascii_isxdigit(c)) return std::nullopt;
    digits += g_ascii_tolower(c);
  }
  if (digits.size() != kFingerprintDigits) return std::nullopt;
  return digits;
}

}  // namespace workstation
