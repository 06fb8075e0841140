#include "platform/workstation/certificates/certificates.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>

#include "platform/workstation/certificates/x509.h"
#include "platform/workstation/launcher/access/first_installer.h"
#include "platform/workstation/launcher/access/tls_command.h"
#include "platform/workstation/people/people.h"
#include "platform/workstation/people/secrets.h"
#include "tests/platform/state_folder.h"

namespace {

using namespace workstation;
using namespace std::chrono_literals;
using Step = Prepared::Step;

const std::vector<std::string> kNames = {"ward3", "ward3.local", "192.0.2.7", "fd00::7"};

std::string messageOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "(none)";
}

TEST(Certificates, AreRenewedInTimeAndTheAuthorityNever) {
  const StateFolder folder;
  const auto place = folder / "tls";
  const auto now = std::chrono::system_clock::now();
  EXPECT_FALSE(readServerCertificate(place));
  const Prepared made = prepareCertificates(place, kNames, now);
  EXPECT_EQ(made.step, Step::kMade);
  const auto first = readServerCertificate(place);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->names, kNames);
  EXPECT_LT(first->expires, now + 825 * 24h) << "telephones believe none that is good for longer";
  const std::string authority = folder.read("tls/authority.crt");
  EXPECT_EQ(authority.find("PRIVATE"), std::string::npos);
  const auto step = [&](const std::vector<std::string>& names, auto when) {
    const Prepared prepared = prepareCertificates(place, names, when);
    EXPECT_EQ(prepared.fingerprint, made.fingerprint);
    EXPECT_EQ(folder.read("tls/authority.crt"), authority);
    return prepared.step;
  };
  EXPECT_EQ(step({"ward3"}, now), Step::kKept) << "a name that is gone does no harm";
  EXPECT_EQ(step(kNames, first->expires - 31 * 24h), Step::kKept);
  EXPECT_EQ(step(kNames, first->expires - 29 * 24h), Step::kRenewed);
  EXPECT_GT(readServerCertificate(place)->expires, first->expires + 700 * 24h);
  EXPECT_EQ(step(kNames, now), Step::kRenewed) << "one that begins later";
  EXPECT_EQ(step({"ward3", "192.0.2.8"}, now), Step::kRenewed);
  EXPECT_EQ(readServerCertificate(place)->names, (std::vector<std::string>{"ward3", "192.0.2.8"}));
  for (const std::string& damage : {std::string(), std::string("x"), folder.read("tls/authority.pem"), authority}) {
    folder.write("tls/server.pem", damage);
    EXPECT_EQ(step(kNames, now), Step::kRenewed);
  }
  std::filesystem::remove(place / "authority.crt");
  EXPECT_EQ(step(kNames, now), Step::kKept) << "and what telephones take is there again";
  struct stat status {};
  for (const char* file : {"tls", "tls/authority.pem", "tls/server.pem"}) {
    ASSERT_EQ(::stat((folder / file).c_str(), &status), 0) << file;
    EXPECT_EQ(status.st_mode & 077U, 0U) << file;
  }
}

TEST(Certificates, OfAnotherAuthorityOrAnotherKeyAreNotUsed) {
  const StateFolder folder;
  prepareCertificates(folder / "one", kNames);
  prepareCertificates(folder / "other", kNames);
  folder.write("one/server.pem", folder.read("other/server.pem"));
  EXPECT_EQ(prepareCertificates(folder / "one", kNames).step, Step::kRenewed);
  const std::string one = folder.read("one/server.pem"), other = folder.read("other/server.pem");
  folder.write("one/server.pem",
               one.substr(0, one.find("-----BEGIN PRIVATE")) + other.substr(other.find("-----BEGIN PRIVATE")));
  EXPECT_NE(messageOf([&] { readServerCertificate(folder / "one"); }).find("the key is not the certificate's"),
            std::string::npos);
  for (const std::string& damage : {std::string("x"), folder.read("other/server.pem")}) {
    folder.write("one/authority.pem", damage);
    EXPECT_NE(messageOf([&] { prepareCertificates(folder / "one", kNames); }).find("remove it and ./run tls"),
              std::string::npos);
    EXPECT_EQ(folder.read("one/authority.pem"), damage) << "it lies on telephones";
  }
  prepareCertificates(folder / "old", kNames, std::chrono::system_clock::now() - 3640 * 24h);
  EXPECT_NE(messageOf([&] { prepareCertificates(folder / "old", kNames); }).find("has come to its end"),
            std::string::npos);
}

std::vector<std::string> words(const std::string& line) {
  std::istringstream stream(line);
  return {std::istream_iterator<std::string>(stream), {}};
}

TEST(TlsCommand, KeepsTheNamesThatWereGivenAndTellsTheFingerprint) {
  const StateFolder folder;
  const std::string state = " --state " + folder.path().string();
  const auto told = [&](const std::string& line) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(setUpTls(words(line + state)), 0);
    return testing::internal::GetCapturedStdout();
  };
  const std::string first = told("--name bed7.example --name=192.0.2.99");
  EXPECT_EQ(first.rfind("An authority and a certificate were made, for ", 0), 0U) << first;
  const std::string print = Certificate::parse(folder.read("tls/authority.pem")).fingerprint();
  EXPECT_EQ(print.size(), 95U);
  EXPECT_NE(first.find("SHA-256 fingerprint " + print), std::string::npos) << first;
  EXPECT_EQ(told("").rfind("The certificate is good, for ", 0), 0U);
  EXPECT_EQ(told("--name bed8.example").rfind("The certificate was renewed, for ", 0), 0U);
  const auto names = readServerCertificate(folder / "tls")->names;
  for (const char* name : {"bed7.example", "bed8.example", "192.0.2.99", "localhost", "127.0.0.1", "::1"}) {
    EXPECT_EQ(std::count(names.begin(), names.end(), name), 1) << name;
  }
  for (const char* line : {"--name", "--name=", "--name a/b", "--name a --names b", "x", "--state"}) {
    EXPECT_THROW(setUpTls(words(line)), UsageError) << line;
  }
}

/// What becomes of a command line, as listen address, user and password, or the refusal.
std::string accessOf(const std::string& line) {
  try {
    const WebAccess access = webAccess(parseCommandLine(words(line)));
    const auto listen = access.environment.find("VELMOR_LISTEN");
    return (listen == access.environment.end() ? "-" : listen->second) + " " + access.user.value_or("-") + " " +
           access.password + (access.environment.contains("VELMOR_TLS") ? " tls" : "");
  } catch (const std::exception& error) {
    return error.what();
  }
}

TEST(PageAccess, StaysOnThisMachineUnlessItIsAskedFor) {
  const StateFolder folder;
  ::setenv("XDG_STATE_HOME", folder.path().c_str(), 1);
  folder.write("password", "from file\r\nsecond line\n");
  folder.write("short", "ääääää7\n");
  const std::string file = " --password-file " + folder.path().string() + "/";
  EXPECT_EQ(accessOf(""), "127.0.0.1:8080-8099 - ");
  EXPECT_EQ(accessOf("replay demo"), "- - ");
  EXPECT_EQ(accessOf("--listen localhost:0"), "127.0.0.1:0 - ");
  EXPECT_EQ(accessOf("--listen 0.0.0.0:0"), "0.0.0.0:0 - ");
  ::setenv("VELMOR_PASSWORD", "from environment", 1);
  EXPECT_EQ(accessOf("--listen [::]:0 --user ward"), "[::]:0 ward from environment");
  EXPECT_EQ(accessOf("--user ward" + file + "password"), "127.0.0.1:8080-8099 ward from file");
  const std::pair<std::string, const char*> refusals[] = {
      {"--user ward" + file + "short", "must have at least 8 characters"},
      {"--user ward" + file + "none", "there is no such file"},
      {"--listen nowhere:80", "is not an address"},
      {"--tls", "make one with ./run tls"},
      {"--listen 192.0.2.1:0 --user ward", "cannot be listened on"}};
  for (const auto& [line, why] : refusals) EXPECT_NE(accessOf(line).find(why), std::string::npos) << accessOf(line);
  prepareCertificates(folder / "velmor_care/tls", {"ward3"});
  EXPECT_EQ(accessOf("--listen 0.0.0.0:0"), "0.0.0.0:0 -  tls");
  EXPECT_EQ(accessOf("--listen 127.0.0.1:0 --tls"), "127.0.0.1:0 -  tls");
  EXPECT_EQ(accessOf("--listen 127.0.0.1:0"), "127.0.0.1:0 - ");
  EXPECT_GT(readServerCertificate(folder / "velmor_care/tls")->names.size(), 3U) << "renewed for the names of now";
  folder.write("velmor_care/tls/authority.pem", "x");
  EXPECT_EQ(accessOf("--listen 0.0.0.0:0"), "0.0.0.0:0 -  tls") << "what is wrong keeps no start from going on";
  ::unsetenv("VELMOR_PASSWORD");
  ::unsetenv("XDG_STATE_HOME");
}

TEST(FirstInstaller, IsWhoWasAskedForAndNobodyUnasked) {
  const StateFolder folder;
  WebAccess access;
  prepareInstaller(access, folder.path());
  EXPECT_FALSE(People(folder.path()).areThere()) << "on this machine nobody signs in";
  access.user = "Ida";
  access.password = "the password";
  testing::internal::CaptureStdout();
  prepareInstaller(access, folder.path());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Ida is an installer with this password.\n");
  access = {};
  access.is_reached_by_others = true;
  prepareInstaller(access, folder.path());
  EXPECT_EQ(People(folder.path()).all()->people.size(), 1U) << "somebody can sign in already";
  folder.write("people.json", "x");
  testing::internal::CaptureStderr();
  prepareInstaller(access, folder.path());
  EXPECT_NE(testing::internal::GetCapturedStderr().find("is damaged"), std::string::npos);
  EXPECT_EQ(folder.read("people.json"), "x");
}

}  // namespace
