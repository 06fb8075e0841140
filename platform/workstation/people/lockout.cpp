#include "platform/workstation/people/lockout.h"

#include <arpa/inet.h>

#include <algorithm>

namespace workstation {
namespace {

constexpr unsigned int kFree = 5;  // a typing error is no attack
constexpr std::chrono::seconds kFirstWait{1}, kLongestWait{60};
constexpr std::chrono::minutes kRemembered{15};
constexpr size_t kMostRemembered = 10000;

/// A house has a whole network of IPv6 addresses.
std::string networkOf(const std::string& address) {
  in6_addr six{};
  if (::inet_pton(AF_INET6, address.c_str(), &six) != 1 || IN6_IS_ADDR_V4MAPPED(&six)) return address;
  return "6:" + std::string(reinterpret_cast<const char*>(&six), sizeof six / 2);
}

}  // namespace

Lockout::Key Lockout::keyOf(const std::string& address, const std::string& name) { return {networkOf(address), name}; }

std::chrono::seconds Lockout::wait(const std::string& address, const std::string& name) {
  forgetOld();
  const auto found = m_attempts.find(keyOf(address, name));
  if (found == m_attempts.end() || found->second.wrong < kFree) return {};
  constexpr unsigned int kDoublings = 6;
  const auto whole = std::min(kLongestWait, kFirstWait * (1U << std::min(found->second.wrong - kFree, kDoublings)));
  return std::max(std::chrono::ceil<std::chrono::seconds>(found->second.last + whole - m_now()),
                  std::chrono::seconds::zero());
}

unsigned int Lockout::noteWrong(const std::string& address, const std::string& name) {
  Attempts& attempts = m_attempts[keyOf(address, name)];
  attempts.last = m_now();
  return ++attempts.wrong;
}

void Lockout::noteRight(const std::string& address, const std::string& name) { m_attempts.erase(keyOf(address, name)); }

void Lockout::forgetOld() {
  const auto now = m_now();
  std::erase_if(m_attempts, [now](const auto& entry) { return now - entry.second.last > kRemembered; });
  while (m_attempts.size() > kMostRemembered) {
    m_attempts.erase(std::min_element(m_attempts.begin(), m_attempts.end(),
                                      [](const auto& a, const auto& b) { return a.second.last < b.second.last; }));
  }
}

}  // namespace workstation
