#include "platform/workstation/launcher/child_processes.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

namespace workstation {
namespace {

std::string contentOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

/// Of a folder below /proc; 0 for one that is no process any more.
pid_t parentOf(const std::filesystem::path& process) {
  // "12 (name of any kind) S 34 ...": the parent's id stands after the state.
  const std::string status = contentOf(process / "stat");
  const size_t name_end = status.rfind(')');
  if (name_end == std::string::npos) return 0;
  std::istringstream rest(status.substr(name_end + 1));
  std::string state;
  pid_t parent = 0;
  rest >> state >> parent;
  return parent;
}

}  // namespace

std::vector<ChildProcess> childrenOf(pid_t parent) {
  std::vector<ChildProcess> children;
  std::error_code error;
  std::filesystem::directory_iterator end;
  for (std::filesystem::directory_iterator entry("/proc", error); !error && entry != end; entry.increment(error)) {
    const pid_t id = std::atoi(entry->path().filename().c_str());
    if (id <= 0 || parentOf(entry->path()) != parent) continue;
    std::string command = contentOf(entry->path() / "cmdline");
    std::replace(command.begin(), command.end(), '\0', ' ');
    children.push_back({id, command});
  }
  return children;
}

}  // namespace workstation
