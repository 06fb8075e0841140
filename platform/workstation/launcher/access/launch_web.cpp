#include "platform/workstation/launcher/access/launch_web.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <stdexcept>

#include "platform/workstation/certificates/certificates.h"
#include "platform/workstation/launcher/launch_plan.h"
#include "platform/workstation/people/register.h"
#include "platform/workstation/people/secrets.h"
#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/state_directory.h"
#include "platform/workstation/web/http_server.h"
#include "platform/workstation/web/http_text.h"

namespace workstation {
namespace {

constexpr const char* kUsualPlace = "127.0.0.1:8080-8099";
constexpr size_t kLongestLine = 1024;

bool isControl(char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }

/// The terminal, not echoing for as long as the object lives. Ctrl-C is a character like any other meanwhile, so that
/// nothing leaves the terminal silent.
class SilentTerminal {
 public:
  SilentTerminal() : m_terminal(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
    if (m_terminal.get() < 0 || ::tcgetattr(m_terminal.get(), &m_before) != 0) {
      throw std::runtime_error(
          "there is no terminal to type the password on; give --password-file FILE, or put it into the environment as "
          "VELMOR_PASSWORD");
    }
    termios silent = m_before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
    ::tcsetattr(m_terminal.get(), TCSAFLUSH, &silent);
  }
  ~SilentTerminal() { ::tcsetattr(m_terminal.get(), TCSAFLUSH, &m_before); }
  SilentTerminal(const SilentTerminal&) = delete;
  SilentTerminal& operator=(const SilentTerminal&) = delete;

  void show(const std::string& text) const { writeAll(m_terminal.get(), text.data(), text.size()); }

  std::string line() const {
    std::string typed;
    for (char c = 0; typed.size() <= kLongestLine;) {
      const ssize_t got = ::read(m_terminal.get(), &c, 1);
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0 || c == '\n') break;
      typed += c;
    }
    return typed;
  }

 private:
  FileDescriptor m_terminal;
  termios m_before{};
};

std::string typedPassword(const std::string& user) {
  const SilentTerminal terminal;
  terminal.show("Password of " + user + " for the page: ");
  std::string typed = terminal.line();
  terminal.show("\n");
  if (std::any_of(typed.begin(), typed.end(), isControl)) throw std::runtime_error("no password was given");
  return typed;
}

std::string passwordIn(const std::string& file) {
  const auto content = readFile(file, 2 * kLongestLine);
  if (!content) throw std::runtime_error(file + ": there is no such file");
  return content->substr(0, content->find_first_of("\r\n"));
}

std::string passwordFor(const LaunchRequest& request) {
  const char* given = std::getenv("VELMOR_PASSWORD");
  std::string password = request.password_file ? passwordIn(*request.password_file)
                         : given != nullptr    ? given
                                               : typedPassword(*request.user);
  const std::string mistake = mistakeInPassword(password);
  if (!mistake.empty()) throw std::runtime_error(*request.user + ": " + mistake);
  return password;
}

bool isThere(const std::filesystem::path& folder) {
  std::error_code error;
  return std::filesystem::is_directory(folder, error);
}

/// The folder's certificate, good for a while longer; what is wrong with it keeps no patient from being watched.
void takeCertificate(const std::filesystem::path& folder, WebAccess& access) {
  access.environment["VELMOR_TLS"] = std::filesystem::absolute(folder).string();
  try {
    std::vector<std::string> names = namesOfThisMachine();
    const auto given = givenNames(folder);
    names.insert(names.end(), given.begin(), given.end());
    if (prepareCertificates(folder, names).step != Prepared::Step::kKept) {
      access.notes += "The page's certificate was renewed.\n";
    }
  } catch (const std::exception& error) {
    access.notes += std::string(error.what()) + "\n";
  }
}

void chooseTransport(const LaunchRequest& request, WebAccess& access) {
  if (!request.tls && !access.is_reached_by_others) return;
  const std::filesystem::path own = lastingPlace(request) / "tls";
  const std::filesystem::path folder = isThere(own) ? own : tlsFolder(std::nullopt);
  if (isThere(folder)) return takeCertificate(folder, access);
  if (request.tls) throw std::runtime_error("--tls: there is no certificate yet; make one with ./run tls");
  access.notes +=
      "The page is plain http: whoever listens on the network learns passwords and sees the pictures. ./run tls makes "
      "it "
      "https.\n";
}

}  // namespace

WebAccess webAccess(const LaunchRequest& request) {
  if (request.replay) return {};
  const ListenAddress where = parseListenAddress(request.listen.value_or(kUsualPlace));
  if (request.user && !nameFrom(*request.user)) {
    throw std::runtime_error("--user: a name has 1 to 64 characters, none of them a control character");
  }
  checkFree(where);
  WebAccess access;
  access.environment["VELMOR_LISTEN"] = toString(where);
  access.is_reached_by_others = !isLoopback(where.address);
  chooseTransport(request, access);
  if (request.user) {
    access.user = request.user;
    access.password = passwordFor(request);
  }
  return access;
}

std::filesystem::path tlsFolder(const std::optional<std::string>& state) {
  return (state ? std::filesystem::absolute(*state) : stateHome()) / "tls";
}

}  // namespace workstation
