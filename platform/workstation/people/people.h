// Who may come in, while the program runs. From any thread.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/workstation/people/register.h"

namespace workstation {

/// A change that cannot be made: one line that says why.
struct PeopleRefusal : std::runtime_error {
  enum class Kind { kMistake, kUnknown, kConflict };
  PeopleRefusal(Kind why, const std::string& line) : std::runtime_error(line), kind(why) {}
  Kind kind;
};

/// Each change is on disk on return and counts from then on; without room on the disk it does not count. Changes wait
/// for the disk and for slow hashes, so never on a thread that others wait for. They throw PeopleRefusal, and
/// std::runtime_error with one line for a disk's fault.
class People {
 public:
  explicit People(std::filesystem::path state);

  /// Whether somebody has to sign in. While the file is damaged that is everybody, and nobody can.
  [[nodiscard]] bool areThere() const;
  /// A line that says what is wrong with the file, otherwise empty.
  [[nodiscard]] const std::string& trouble() const { return m_trouble; }
  /// Never null; what is known at the moment.
  [[nodiscard]] std::shared_ptr<const Register> all() const;
  /// Whose token this is.
  [[nodiscard]] std::optional<Token> tokenOf(const std::string& token) const;

  /// The first must be an installer. Returns the password.
  std::string add(const std::string& name, Role role);
  void setRole(const std::string& name, Role role);
  /// Returns the new password.
  std::string reset(const std::string& name);
  /// `before`: the hash of the password that whoever asks has shown; another by now is a conflict.
  void setPassword(const std::string& name, const std::string& before, const std::string& password);
  void remove(const std::string& name);
  /// Returns the token, which nobody can learn afterwards.
  std::string addToken(const std::string& name, Role role);
  void revoke(const std::string& id);

  /// Who starts the program says so: the person is an installer with this password, newly or again. False when that was
  /// so already.
  bool makeInstaller(const std::string& name, const std::string& password);

 private:
  void change(const std::function<void(Register&)>& edit);

  const std::filesystem::path m_state;
  std::string m_trouble;
  std::mutex m_changing;       ///< one change at a time, with its wait for the disk
  mutable std::mutex m_mutex;  ///< of m_all, never held for long
  std::shared_ptr<const Register> m_all;
};

}  // namespace workstation
