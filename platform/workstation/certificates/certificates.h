// A machine's own authority, and the certificate that it has given to the machine's web server: a folder with both.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace workstation {

struct ServerCertificate {
  std::string pem;  ///< with its key
  std::vector<std::string> names;
  std::chrono::system_clock::time_point expires;
};

/// None where no certificate was made. Throws std::runtime_error with one line for one that cannot be used.
std::optional<ServerCertificate> readServerCertificate(const std::filesystem::path& folder);

/// The authority's certificate, for whoever is to believe the server's.
std::filesystem::path authorityFile(const std::filesystem::path& folder);

struct Prepared {
  enum class Step { kKept, kRenewed, kMade };
  Step step = Step::kKept;
  std::vector<std::string> names;  ///< for which it is good
  std::string fingerprint;         ///< of the authority
};

/// Makes the authority where there is none, and a certificate for these names where there is none, where it is damaged,
/// ends within 30 days, or lacks one of them. The folder and all keys are for their owner alone. Throws
/// std::runtime_error with one line, also for an authority that cannot be used: it lies on telephones, so nothing takes
/// its place unasked.
Prepared prepareCertificates(const std::filesystem::path& folder, const std::vector<std::string>& names,
                             std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

/// Names that were given once are kept with the folder.
std::vector<std::string> givenNames(const std::filesystem::path& folder);
void keepGivenNames(const std::filesystem::path& folder, const std::vector<std::string>& names);

/// By which others reach this machine, the most usual first: its name, that name in a local network, its addresses.
std::vector<std::string> namesOfThisMachine();

}  // namespace workstation
