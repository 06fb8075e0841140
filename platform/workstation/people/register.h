// The people and the tokens that may come in, as a file of the state directory has them.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/workstation/people/role.h"

namespace workstation {

struct Person {
  std::string name;
  std::string hash;  ///< of the password
  Role role = Role::kCarer;
  bool must_change = false;  ///< somebody else knows the password
};

struct Token {
  std::string id;    ///< by which it is revoked
  std::string name;  ///< of what uses it
  std::string hash;
  std::string made;  ///< when
  Role role = Role::kCarer;
};

/// Nobody's name is another's in other letters: telephones begin words with a capital.
struct Register {
  std::vector<Person> people;  ///< in the order of coming
  std::vector<Token> tokens;

  /// Null for nobody.
  [[nodiscard]] const Person* person(std::string_view name) const;
  Person* person(std::string_view name);
  [[nodiscard]] bool isLastInstaller(const Person& person) const;
};

/// A person's or a token's name as it is kept: without blanks around it. None for one that cannot be a name.
std::optional<std::string> nameFrom(std::string_view text);

/// None where the file is missing. Throws std::runtime_error with one line for one that cannot be had or is damaged in
/// any way: what was left out could be a door.
std::optional<Register> loadRegister(const std::filesystem::path& state);

/// On disk on return, for its owner alone; the one before stays beside it. Throws std::runtime_error with one line.
void saveRegister(const std::filesystem::path& state, const Register& all);

}  // namespace workstation
