#include "platform/workstation/launcher/access/first_installer.h"

#include <fcntl.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "platform/workstation/people/people.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

constexpr const char* kFirst = "installer";

/// Past whatever standard output is kept in.
FileDescriptor terminal() {
  FileDescriptor opened(::open("/dev/tty", O_WRONLY | O_CLOEXEC | O_NOCTTY));
  if (opened) return opened;
  throw std::runtime_error(
      "other machines reach this address, so somebody has to sign in, and there is no terminal to show a first "
      "password on; give --user NAME and --password-file FILE");
}

void makeFirst(People& people) {
  const FileDescriptor shown = terminal();
  const std::string text = "Nobody could sign in yet. This is shown once; write it down:\n  name      " +
                           std::string(kFirst) + "\n  password  " + people.add(kFirst, Role::kInstaller) + "\n";
  writeAll(shown.get(), text.data(), text.size());
}

void tellNobody(const char* why) { std::fprintf(stderr, "%s\n", why); }

}  // namespace

void prepareInstaller(const WebAccess& access, const std::filesystem::path& state) {
  People people(state);
  if (!people.trouble().empty()) return tellNobody(people.trouble().c_str());
  const bool wants_first = !access.user && access.is_reached_by_others && !people.areThere();
  if (wants_first) terminal();
  try {
    if (wants_first) makeFirst(people);
    if (access.user && people.makeInstaller(*access.user, access.password)) {
      std::printf("%s is an installer with this password.\n", access.user->c_str());
    }
  } catch (const std::exception& error) {
    tellNobody((std::string("The list of people could not be changed: ") + error.what()).c_str());
  }
}

}  // namespace workstation
