#include "platform/workstation/people/secrets.h"

#include <crypt.h>
#include <glib.h>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "platform/support/owners.h"

namespace workstation {
namespace {

constexpr const char* kMethod = "$y$";    // yescrypt
constexpr size_t kShortestPassword = 8;   // characters
constexpr size_t kLongestPassword = 500;  // bytes; libcrypt takes no more than 511

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};

template <size_t kSize>
std::array<unsigned char, kSize> randomBytes() {
  std::array<unsigned char, kSize> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error("the system has no random numbers");
  }
  return bytes;
}

/// Empty where libcrypt fails.
std::string crypted(const std::string& password, const std::string& setting) {
  void* data = nullptr;
  int size = 0;
  const char* hash = ::crypt_ra(password.c_str(), setting.c_str(), &data, &size);
  std::string text = hash == nullptr || *hash == '*' ? "" : hash;
  if (data != nullptr) ::explicit_bzero(data, static_cast<size_t>(size));
  const std::unique_ptr<void, FreeMemory> owned(data);
  return text;
}

/// As long as for equal ones, wherever they differ.
bool isEqual(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  unsigned int difference = 0;
  for (size_t n = 0; n < a.size(); ++n) difference |= static_cast<unsigned char>(a[n] ^ b[n]);
  return difference == 0;
}

}  // namespace

std::string randomPassword() {
  constexpr std::string_view kLetters = "23456789abcdefghjkmnpqrstuvwxyz";
  constexpr size_t kGroup = 4, kGroups = 4;
  constexpr size_t kFair = 256 / kLetters.size() * kLetters.size();  // above it some letters would come more often
  std::string password;
  for (size_t letters = 0; letters < kGroup * kGroups;) {
    const size_t random = randomBytes<1>()[0];
    if (random >= kFair) continue;
    if (letters > 0 && letters % kGroup == 0) password += '-';
    password += kLetters[random % kLetters.size()];
    ++letters;
  }
  return password;
}

std::string randomToken() {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : randomBytes<32>()) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::string hashPassword(const std::string& password) {
  const std::unique_ptr<char, FreeMemory> setting(::crypt_gensalt_ra(kMethod, 0, nullptr, 0));
  std::string hash = setting ? crypted(password, setting.get()) : "";
  if (!hash.starts_with(kMethod)) throw std::runtime_error("the password cannot be hashed: libcrypt has no yescrypt");
  return hash;
}

bool isPassword(const std::string& password, const std::string& hash) {
  return hash.starts_with(kMethod) && password.find('\0') == std::string::npos &&
         isEqual(crypted(password, hash), hash);
}

const std::string& nobodysHash() {
  static const std::string kHash = hashPassword(randomToken());
  return kHash;
}

std::string hashToken(std::string_view token) {
  const GLibPtr<gchar> hash(
      g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(token.data()), token.size()));
  return hash.get();
}

std::string mistakeInPassword(const std::string& password) {
  const bool is_text = g_utf8_validate(password.data(), static_cast<gssize>(password.size()), nullptr) != FALSE;
  const bool has_control = std::any_of(password.begin(), password.end(),
                                       [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; });
  if (is_text && !has_control && password.size() <= kLongestPassword &&
      static_cast<size_t>(g_utf8_strlen(password.c_str(), -1)) >= kShortestPassword) {
    return "";
  }
  return "a password must have at least " + std::to_string(kShortestPassword) + " characters, at most " +
         std::to_string(kLongestPassword) + " bytes, and no control characters";
}

}  // namespace workstation
