#include "platform/workstation/launcher/launch_web.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <stdexcept>

#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/web/http_server.h"
#include "platform/workstation/web/http_text.h"

namespace workstation {
namespace {

constexpr const char* kUsualPlace = "127.0.0.1:8080-8099";
/// Fits a pipe's buffer, through which it goes to the program.
constexpr size_t kLongestPassword = 1024;

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
    for (char c = 0; typed.size() <= kLongestPassword;) {
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
  const auto content = readFile(file, 2 * kLongestPassword);
  if (!content) throw std::runtime_error(file + ": there is no such file");
  return content->substr(0, content->find_first_of("\r\n"));
}

std::string passwordFor(const LaunchRequest& request) {
  const char* given = std::getenv("VELMOR_PASSWORD");
  std::string password = request.password_file ? passwordIn(*request.password_file)
                         : given != nullptr    ? given
                                               : typedPassword(*request.user);
  if (!isLongEnough(password) || password.size() > kLongestPassword ||
      std::any_of(password.begin(), password.end(), isControl)) {
    throw std::runtime_error("the password of " + *request.user + " must have at least " +
                             std::to_string(kShortestPassword) + " characters, at most " +
                             std::to_string(kLongestPassword) + " bytes, and no control characters");
  }
  return password;
}

void checkUser(const std::string& user) {
  const auto isForbidden = [](char c) { return isControl(c) || c == ':' || c == '"' || c == '\\'; };
  if (std::any_of(user.begin(), user.end(), isForbidden)) {
    throw std::runtime_error("--user: the name may have no colon, quote, backslash or control character");
  }
}

}  // namespace

WebAccess webAccess(const LaunchRequest& request) {
  if (request.replay) return {};
  const ListenAddress where = parseListenAddress(request.listen.value_or(kUsualPlace));
  if (!request.user && !isLoopback(where.address)) {
    throw std::runtime_error(where.address + ": other machines reach this address; give --user NAME and a password");
  }
  checkFree(where);
  WebAccess access{{{"VELMOR_LISTEN", toString(where)}}, ""};
  if (request.user) {
    checkUser(*request.user);
    access.environment["VELMOR_USER"] = *request.user;
    access.password = passwordFor(request);
  }
  return access;
}

}  // namespace workstation
