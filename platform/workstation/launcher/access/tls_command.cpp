#include "platform/workstation/launcher/access/tls_command.h"

#include <algorithm>
#include <cstdio>
#include <optional>

#include "platform/workstation/certificates/certificates.h"
#include "platform/workstation/launcher/access/launch_web.h"
#include "platform/workstation/launcher/launch_request.h"
#include "platform/workstation/system/shown_text.h"

namespace workstation {
namespace {

constexpr const char* kUsage =
    R"(./run tls                   makes a private authority and a certificate for the page, or renews the certificate
  --name HOST               a further name or address by which the page is opened; again for each, and kept
  --state DIR               for the runs with this --state only
)";

constexpr const char* kSteps = R"(
Start ./run again with --listen ADDRESS:PORT (or with --tls): the page is https then.

Each telephone and browser has to be given the authority once. It gets the file from
  https://THIS-MACHINE:PORT/platform/authority.crt (go on past the warning, this one time), or by any other way.
Compare the fingerprint before you trust it.

Android    Settings > Security > More > Encryption & credentials > Install a certificate > CA certificate, choose the file
iPhone     open the address in Safari and allow the download; Settings > General > VPN & Device Management: install it;
           then Settings > General > About > Certificate Trust Settings: switch it on
Firefox    Settings > Privacy & Security > View Certificates > Authorities > Import, "Trust this CA to identify websites"
Chromium   Settings > Privacy and security > Security > Manage certificates > Authorities > Import (newer: Local
           certificates > Custom > Installed by you > Trusted Certificates > Import)

Whoever has the authority's key, authority.pem, can pretend to be any web site to these telephones: leave it where it is.
)";

struct TlsRequest {
  bool help = false;
  std::optional<std::string> state;
  std::vector<std::string> names;
};

std::string checkedName(const std::string& name) {
  constexpr size_t kLongest = 253;
  const bool is_name = !name.empty() && name.size() <= kLongest && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
           c == ':';
  });
  if (!is_name) throw UsageError("--name " + shown(name) + ": is no name or address of a machine, as ward3.local");
  return name;
}

TlsRequest parse(const std::vector<std::string>& words) {
  TlsRequest request;
  for (auto word = words.begin(); word != words.end(); ++word) {
    const size_t equals = word->starts_with("--") ? word->find('=') : std::string::npos;
    const std::string option = word->substr(0, equals);
    if (option == "--help" && equals == std::string::npos) {
      request.help = true;
      continue;
    }
    if (option != "--name" && option != "--state") {
      throw UsageError("\"" + shown(*word) + "\" is not understood here; see tls --help");
    }
    const bool is_joined = equals != std::string::npos;
    if (!is_joined && word + 1 == words.end()) throw UsageError(option + " needs a value");
    const std::string value = is_joined ? word->substr(equals + 1) : *++word;
    if (value.empty()) throw UsageError(option + " needs a value");
    if (option == "--name") {
      request.names.push_back(checkedName(value));
    } else {
      request.state = value;
    }
  }
  return request;
}

void addNew(std::vector<std::string>& names, const std::vector<std::string>& more) {
  for (const std::string& name : more) {
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  }
}

}  // namespace

int setUpTls(const std::vector<std::string>& words) {
  const TlsRequest request = parse(words);
  if (request.help) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  const auto folder = tlsFolder(request.state);
  std::vector<std::string> given = givenNames(folder);
  const size_t before = given.size();
  addNew(given, request.names);
  std::vector<std::string> names = namesOfThisMachine();
  addNew(names, given);
  const Prepared prepared = prepareCertificates(folder, names);
  if (given.size() > before) keepGivenNames(folder, given);
  constexpr const char* kDone[] = {"The certificate is good", "The certificate was renewed",
                                   "An authority and a certificate were made"};
  std::printf("%s, for", kDone[static_cast<size_t>(prepared.step)]);
  for (const std::string& name : prepared.names) std::printf(" %s", name.c_str());
  std::printf("\nAuthority: %s\n  SHA-256 fingerprint %s\n", authorityFile(folder).c_str(),
              prepared.fingerprint.c_str());
  std::fputs(kSteps, stdout);
  return 0;
}

}  // namespace workstation
