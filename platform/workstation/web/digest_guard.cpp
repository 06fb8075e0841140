#include "platform/workstation/web/digest_guard.h"

#include <sys/random.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "platform/support/owners.h"

namespace workstation {
namespace {

constexpr const char* kRealm = "velmor_care";
constexpr std::chrono::minutes kLifetime{10};
constexpr size_t kMostChallenges = 512;

/// The answer to a wrong password waits, twice as long each time.
constexpr std::chrono::milliseconds kFirstWait{500}, kLongestWait{8000};
constexpr std::chrono::minutes kAttemptsRemembered{10}, kBetweenLines{1};
constexpr size_t kMostAddresses = 256;

/// 128 random bits that nobody can guess, in hexadecimal.
std::string freshNonce() {
  std::array<unsigned char, 16> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error("the system has no random numbers");
  }
  std::string text;
  for (const unsigned char byte : bytes) {
    constexpr const char* kDigits = "0123456789abcdef";
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

struct Proof {
  std::string nonce;
  unsigned long count;
};

/// What a request says about the challenge that it answers.
std::optional<Proof> proofOf(SoupServerMessage* message) {
  constexpr std::string_view kScheme = "Digest ";
  const char* header = soup_message_headers_get_one(soup_server_message_get_request_headers(message), "Authorization");
  if (header == nullptr || !std::string_view(header).starts_with(kScheme)) return std::nullopt;
  const std::unique_ptr<GHashTable, decltype(&soup_header_free_param_list)> fields(
      soup_header_parse_param_list(header + kScheme.size()), &soup_header_free_param_list);
  if (!fields) return std::nullopt;
  const auto* nonce = static_cast<const char*>(g_hash_table_lookup(fields.get(), "nonce"));
  const auto* count = static_cast<const char*>(g_hash_table_lookup(fields.get(), "nc"));
  if (nonce == nullptr || count == nullptr) return std::nullopt;
  return Proof{nonce, std::strtoul(count, nullptr, 16)};
}

}  // namespace

DigestGuard::DigestGuard(SoupServer* server, const std::string& user, const std::string& password,
                         std::function<Clock::time_point()> now)
    : m_now(std::move(now)), m_user(user), m_domain(soup_auth_domain_digest_new("realm", kRealm, nullptr)) {
  const GLibPtr<gchar> encoded(soup_auth_domain_digest_encode_password(user.c_str(), kRealm, password.c_str()));
  m_encoded_password = encoded.get();
  soup_auth_domain_add_path(m_domain.get(), "/");
  soup_auth_domain_digest_set_auth_callback(m_domain.get(), &DigestGuard::encodedPassword, this, nullptr);
  soup_server_add_auth_domain(server, m_domain.get());
}

DigestGuard::~DigestGuard() = default;

char* DigestGuard::encodedPassword(SoupAuthDomain* /*domain*/, SoupServerMessage* message, const char* user,
                                   gpointer guard) {
  auto* self = static_cast<DigestGuard*>(guard);
  return self->m_user == user && self->useUp(message) ? g_strdup(self->m_encoded_password.c_str()) : nullptr;
}

/// A window, as of IP security's sequence numbers (RFC 4303, section 3.4.3): parallel requests may overtake each other,
/// and the memory stays the same whatever counts a stranger sends.
bool DigestGuard::Challenge::take(unsigned long count) {
  constexpr unsigned long kWindow = 64;
  if (count > highest) {
    const unsigned long ahead = count - std::exchange(highest, count);
    seen = ahead < kWindow ? seen << ahead | 1U : 1U;
    return true;
  }
  const unsigned long behind = highest - count;
  if (behind >= kWindow || (seen >> behind & 1U) != 0) return false;
  seen |= std::uint64_t{1} << behind;
  return true;
}

bool DigestGuard::useUp(SoupServerMessage* message) {
  forgetOld();
  const auto proof = proofOf(message);
  const auto found = proof ? m_challenges.find(proof->nonce) : m_challenges.end();
  const bool fresh = found != m_challenges.end() && found->second.take(proof->count);
  m_stale = proof && !fresh;
  return fresh;
}

void DigestGuard::forgetOld() {
  const auto now = m_now();
  std::erase_if(m_challenges, [now](const auto& entry) { return now - entry.second.since > kLifetime; });
  if (m_challenges.size() > kMostChallenges) {
    m_challenges.erase(std::min_element(m_challenges.begin(), m_challenges.end(),
                                        [](const auto& a, const auto& b) { return a.second.since < b.second.since; }));
  }
}

unsigned int DigestGuard::noteAttempt(const std::string& address) {
  const auto now = m_now();
  std::erase_if(m_attempts, [now](const auto& entry) { return now - entry.second.last > kAttemptsRemembered; });
  if (m_attempts.size() >= kMostAddresses && !m_attempts.contains(address)) {
    m_attempts.erase(std::min_element(m_attempts.begin(), m_attempts.end(),
                                      [](const auto& a, const auto& b) { return a.second.last < b.second.last; }));
  }
  Attempts& attempts = m_attempts[address];
  attempts.last = now;
  ++attempts.wrong;
  ++attempts.untold;
  if (attempts.wrong == 1 || now - attempts.told > kBetweenLines) {
    syslog(LOG_WARNING, "a wrong password for the page came from %s (%u times since the last such line)",
           address.c_str(), std::exchange(attempts.untold, 0U));
    attempts.told = now;
  }
  return attempts.wrong;
}

std::chrono::milliseconds DigestGuard::challenge(SoupServerMessage* message, const std::string& address) {
  // A browser whose challenge has grown old tries the next one without asking its user again.
  const bool stale = std::exchange(m_stale, false);
  const std::string nonce = freshNonce();
  m_challenges[nonce].since = m_now();
  forgetOld();
  const std::string text = std::string("Digest realm=\"") + kRealm + "\", nonce=\"" + nonce +
                           "\", qop=\"auth\", algorithm=MD5" + (stale ? ", stale=true" : "");
  soup_message_headers_replace(soup_server_message_get_response_headers(message), "WWW-Authenticate", text.c_str());
  if (stale || !proofOf(message)) return {};
  constexpr unsigned int kDoublings = 4;
  return std::min(kLongestWait, kFirstWait * (1U << std::min(noteAttempt(address) - 1, kDoublings)));
}

}  // namespace workstation
