// Who has changed which setting, from what to what: changes.jsonl in the state directory, and changes.jsonl.1 before
// it.
#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

namespace workstation {

/// The changes in a directory's changes.jsonl, a line each, and the newest of them in memory. A disk that is full,
/// hangs or fails keeps nobody waiting: changes wait for it, and it is tried again. From any thread.
class ChangeJournal {
 public:
  /// The past is read on the side.
  explicit ChangeJournal(const std::filesystem::path& directory);
  /// What waits is tried once more.
  ~ChangeJournal();
  ChangeJournal(const ChangeJournal&) = delete;
  ChangeJournal& operator=(const ChangeJournal&) = delete;

  /// Takes a change down, as of now.
  void note(const std::string& by, const std::string& key, const std::string& from, const std::string& to);

  /// A JSON object: `changes`, the newest first, each with `time`, `by`, `key`, `from`, `to` and whether it is
  /// `stored`; `trouble`, why not, else null.
  [[nodiscard]] std::string document(std::size_t limit) const;

  /// Whether everything is on disk, after this long at the most.
  bool settle(std::chrono::milliseconds patience);

 private:
  struct State;
  std::shared_ptr<State> m_state;
};

/// From here on the process's changes are kept in this directory; those that were noted before as well.
void openChanges(const std::filesystem::path& directory);

/// Somebody has changed something, of which nobody need know a secret: a setting, a person's role. `by` is the name of
/// who has signed in, empty for somebody on this machine. From any thread, at once.
void noteChange(const std::string& by, const std::string& key, const std::string& from, const std::string& to);

/// The process's changes, as ChangeJournal::document tells them.
std::string changesDocument(std::size_t limit);

}  // namespace workstation
