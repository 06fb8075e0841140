#include "evaluate/running/runs.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <utility>

#include "platform/support/file_descriptor.h"
#include "platform/support/owners.h"

namespace evaluate {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::hours kUnused{30 * 24};
constexpr const char* kDraft = ".draft";

using Checksum = std::unique_ptr<GChecksum, decltype([](GChecksum* checksum) { g_checksum_free(checksum); })>;

void add(const void* bytes, std::size_t size, GChecksum* checksum) {
  g_checksum_update(checksum, static_cast<const guchar*>(bytes), static_cast<gssize>(size));
}

void addFile(const fs::path& path, GChecksum* checksum) {
  std::ifstream file(path, std::ios::binary);
  std::vector<char> block(std::size_t{1} << 20);
  std::uint64_t size = 0;
  while (file.read(block.data(), static_cast<std::streamsize>(block.size())) || file.gcount() > 0) {
    add(block.data(), static_cast<std::size_t>(file.gcount()), checksum);
    size += static_cast<std::uint64_t>(file.gcount());
  }
  if (!file.eof() || file.bad()) throw std::runtime_error(path.string() + ": cannot be read");
  add(&size, sizeof size, checksum);
}

/// "NAME.PROCESS.draft" of a process that has ended.
bool isLeftBehind(const fs::path& path) {
  if (path.extension() != kDraft) return false;
  const std::string process = path.stem().extension().string();
  pid_t id = 0;
  if (process.size() < 2) return false;
  std::from_chars(process.data() + 1, process.data() + process.size(), id);
  return id > 0 && ::kill(id, 0) != 0 && errno == ESRCH;
}

void tidy(const fs::path& folder, const std::string& ending) {
  std::error_code ignored;
  const auto now = fs::file_time_type::clock::now();
  for (fs::directory_iterator entry(folder, ignored), end; entry != end; entry.increment(ignored)) {
    std::error_code error;
    const auto used = fs::last_write_time(entry->path(), error);
    const bool is_old = !error && entry->path().string().ends_with(ending) && now - used > kUnused;
    if (is_old || isLeftBehind(entry->path())) fs::remove_all(entry->path(), error);
  }
}

/// A run that has been started.
struct Child {
  std::size_t run = 0;
  FileDescriptor said;  ///< its standard error
};

[[noreturn]] void become(const std::vector<char*>& words, int said, pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != parent) _exit(1);
  const int nothing = ::open("/dev/null", O_RDWR);
  ::dup2(nothing, STDIN_FILENO);
  ::dup2(nothing, STDOUT_FILENO);
  ::dup2(said, STDERR_FILENO);
  ::execv(words[0], words.data());
  const char* why = ::strerror(errno);
  [[maybe_unused]] const ssize_t told = ::write(STDERR_FILENO, why, std::strlen(why));
  _exit(127);
}

pid_t start(const fs::path& program, const Run& run, int said) {
  std::vector<std::string> words{program.string()};
  words.insert(words.end(), run.words.begin(), run.words.end());
  std::vector<char*> pointers;
  std::transform(words.begin(), words.end(), std::back_inserter(pointers),
                 [](std::string& word) { return word.data(); });
  pointers.push_back(nullptr);
  const pid_t parent = ::getpid();
  const pid_t child = ::fork();
  if (child == 0) become(pointers, said, parent);
  if (child < 0) throw std::runtime_error(program.string() + ": cannot be started: " + std::strerror(errno));
  return child;
}

/// The last line that says something.
std::string lastLine(const FileDescriptor& said) {
  constexpr off_t kMost = 65536;
  const off_t size = ::lseek(said.get(), 0, SEEK_END);
  std::string text(static_cast<std::size_t>(std::min(size, kMost)), '\0');
  const ssize_t got = ::pread(said.get(), text.data(), text.size(), std::max<off_t>(0, size - kMost));
  text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.pop_back();
  return text.substr(text.find_last_of('\n') + 1);
}

/// Why a run failed; empty when it did not.
std::string problemOf(int status, const FileDescriptor& said) {
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return "";
  const std::string end = WIFSIGNALED(status)
                              ? std::string("was ended by a signal (") + ::strsignal(WTERMSIG(status)) + ")"
                              : "failed with status " + std::to_string(WEXITSTATUS(status));
  const std::string line = lastLine(said);
  return "the run " + end + (line.empty() ? "" : ": " + line);
}

}  // namespace

std::string fingerprintOf(const std::vector<std::string>& texts, const std::vector<fs::path>& files) {
  const Checksum checksum(g_checksum_new(G_CHECKSUM_SHA256));
  for (const std::string& text : texts) {
    const std::uint64_t size = text.size();
    add(&size, sizeof size, checksum.get());
    add(text.data(), text.size(), checksum.get());
  }
  for (const fs::path& file : files) addFile(file, checksum.get());
  return g_checksum_get_string(checksum.get());
}

Store::Store(fs::path folder, std::string ending) : m_folder(std::move(folder)), m_ending(std::move(ending)) {
  constexpr int kOwnerOnly = 0700;
  if (g_mkdir_with_parents(m_folder.c_str(), kOwnerOnly) != 0) {
    throw std::runtime_error(m_folder.string() + ": cannot be made: " + std::strerror(errno));
  }
  tidy(m_folder, m_ending);
}

fs::path Store::usualFolder(const std::string& name) { return fs::path(g_get_user_cache_dir()) / "velmor_care" / name; }

fs::path Store::placeOf(const std::string& fingerprint) const { return m_folder / (fingerprint + m_ending); }

fs::path Store::draftOf(const std::string& fingerprint, std::size_t number) const {
  return m_folder / (fingerprint + "-" + std::to_string(number) + "." + std::to_string(::getpid()) + kDraft);
}

void runAll(const fs::path& program, const std::vector<Run>& runs, int jobs, const RunEnd& ended) {
  std::map<pid_t, Child> children;
  for (std::size_t next = 0; next < runs.size() || !children.empty();) {
    if (next < runs.size() && children.size() < static_cast<std::size_t>(jobs)) {
      Child child{next, FileDescriptor(::memfd_create("said", MFD_CLOEXEC))};
      const pid_t id = start(program, runs[next], child.said.get());
      children.emplace(id, std::move(child));
      ++next;
      continue;
    }
    int status = 0;
    const pid_t id = ::waitpid(-1, &status, 0);
    const auto child = children.find(id);
    if (child == children.end()) {
      if (id < 0 && errno != EINTR) throw std::runtime_error(std::string("runs are lost: ") + std::strerror(errno));
      continue;
    }
    ended(child->second.run, problemOf(status, child->second.said));
    children.erase(child);
  }
}

}  // namespace evaluate
