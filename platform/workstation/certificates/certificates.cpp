#include "platform/workstation/certificates/certificates.h"

#include <arpa/inet.h>
#include <glib.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "platform/workstation/certificates/x509.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using std::chrono::hours;

constexpr hours kDay{24};
constexpr hours kAuthority = 3650 * kDay;
constexpr hours kServer = 820 * kDay;  // telephones believe none that is good for longer
constexpr hours kRenewed = 30 * kDay;
constexpr hours kClocksDiffer = kDay;
constexpr size_t kLimitBytes = 64 << 10;

constexpr const char* kAuthorityFile = "authority.pem";  // certificate and key, so that no crash parts them
constexpr const char* kServerFile = "server.pem";
constexpr const char* kNamesFile = "names";

/// None where the file is missing. Throws with the file's name.
std::optional<Certificate> read(const fs::path& file) {
  const auto pem = readFile(file, kLimitBytes);
  if (!pem) return std::nullopt;
  try {
    return Certificate::parse(*pem);
  } catch (const std::exception& error) {
    throw std::runtime_error(file.string() + ": is damaged: " + error.what());
  }
}

std::string hostName() { return std::string(g_get_host_name()); }

Certificate authorityIn(const fs::path& folder, CertificateTime now, bool& is_new) {
  constexpr const char* kAdvice =
      "; remove it and ./run tls makes a new one, which every telephone and browser then has to be given";
  std::optional<Certificate> known;
  try {
    known = read(folder / kAuthorityFile);
  } catch (const std::exception& error) {
    throw std::runtime_error(error.what() + std::string(kAdvice));
  }
  is_new = !known;
  if (!known) {
    Certificate made =
        Certificate::makeAuthority("velmor_care on " + hostName(), now - kClocksDiffer, now + kAuthority);
    replaceFile(folder / kAuthorityFile, made.pemWithKey());
    known.emplace(std::move(made));
  }
  if (!known->isAuthority() || known->expires() < now + kRenewed) {
    throw std::runtime_error((folder / kAuthorityFile).string() +
                             (known->isAuthority() ? ": has come to its end" : ": is no authority") + kAdvice);
  }
  // What others get of it, again where it has been lost.
  const std::string shown = known->pem();
  if (readFile(authorityFile(folder), kLimitBytes) != shown) replaceFile(authorityFile(folder), shown);
  return std::move(*known);
}

bool isGood(const fs::path& folder, const Certificate& authority, const std::vector<std::string>& names,
            CertificateTime now) {
  try {
    const auto known = read(folder / kServerFile);
    if (!known || !known->isSignedBy(authority) || known->expires() < now + kRenewed || known->begins() > now) {
      return false;
    }
    const std::vector<std::string> covered = known->names();
    return std::all_of(names.begin(), names.end(), [&covered](const std::string& name) {
      return std::find(covered.begin(), covered.end(), name) != covered.end();
    });
  } catch (const std::exception&) {
    return false;
  }
}

void addOnce(std::vector<std::string>& names, const std::string& name) {
  if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
}

/// An address that stays for a while: IPv6 networks of the internet change theirs each day.
std::string lastingAddress(const sockaddr* address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (address->sa_family == AF_INET) {
    const auto* four = reinterpret_cast<const sockaddr_in*>(address);
    return ::inet_ntop(AF_INET, &four->sin_addr, text.data(), text.size()) == nullptr ? "" : text.data();
  }
  if (address->sa_family != AF_INET6) return "";
  const auto* six = reinterpret_cast<const sockaddr_in6*>(address);
  const bool is_of_house = (six->sin6_addr.s6_addr[0] & 0xfeU) == 0xfcU;
  const bool is_written = ::inet_ntop(AF_INET6, &six->sin6_addr, text.data(), text.size()) != nullptr;
  return is_of_house && is_written ? text.data() : "";
}

}  // namespace

std::optional<ServerCertificate> readServerCertificate(const fs::path& folder) {
  const auto known = read(folder / kServerFile);
  if (!known) return std::nullopt;
  return ServerCertificate{known->pemWithKey(), known->names(), known->expires()};
}

fs::path authorityFile(const fs::path& folder) { return folder / "authority.crt"; }

Prepared prepareCertificates(const fs::path& folder, const std::vector<std::string>& names, CertificateTime now) {
  std::error_code error;
  if (fs::create_directories(folder, error)) ::chmod(folder.c_str(), S_IRWXU);
  if (error) throw std::runtime_error(folder.string() + ": cannot be made: " + error.message());
  bool is_new = false;
  const Certificate authority = authorityIn(folder, now, is_new);
  Prepared prepared{is_new ? Prepared::Step::kMade : Prepared::Step::kKept, names, authority.fingerprint()};
  if (isGood(folder, authority, names, now)) return prepared;
  const auto until = std::min<CertificateTime>(now + kServer, authority.expires());
  const Certificate server = Certificate::makeServer(authority, names, now - kClocksDiffer, until);
  replaceFile(folder / kServerFile, server.pemWithKey());
  if (!is_new) prepared.step = Prepared::Step::kRenewed;
  return prepared;
}

std::vector<std::string> givenNames(const fs::path& folder) {
  std::vector<std::string> names;
  std::istringstream lines(readFile(folder / kNamesFile, kLimitBytes).value_or(""));
  for (std::string line; std::getline(lines, line);) addOnce(names, line);
  return names;
}

void keepGivenNames(const fs::path& folder, const std::vector<std::string>& names) {
  std::string lines;
  for (const std::string& name : names) lines.append(name).append("\n");
  replaceFile(folder / kNamesFile, lines);
}

std::vector<std::string> namesOfThisMachine() {
  const std::string host = hostName();
  std::vector<std::string> names{host};
  if (host.find('.') == std::string::npos && host != "localhost") addOnce(names, host + ".local");
  ifaddrs* all = nullptr;
  if (::getifaddrs(&all) == 0) {
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owned(all, &::freeifaddrs);
    for (const ifaddrs* one = all; one != nullptr; one = one->ifa_next) {
      const bool is_seen =
          one->ifa_addr != nullptr && (one->ifa_flags & IFF_UP) != 0 && (one->ifa_flags & IFF_LOOPBACK) == 0;
      if (is_seen) addOnce(names, lastingAddress(one->ifa_addr));
    }
  }
  for (const char* own : {"localhost", "127.0.0.1", "::1"}) addOnce(names, own);
  return names;
}

}  // namespace workstation
