// What somebody may do, from little to much. A plain header that everything above may include.
#pragma once

#include <optional>
#include <string_view>

namespace workstation {

/// Each may do what the one before may.
enum class Role {
  kCarer,      ///< sees anonymised pictures, answers alarms, pauses calls
  kNurse,      ///< sees the room as well
  kInstaller,  ///< settings, people, receivers
};

/// The words of requests, files and pages.
constexpr std::string_view nameOf(Role role) {
  return role == Role::kCarer ? "carer" : role == Role::kNurse ? "nurse" : "installer";
}

/// None for any other word.
constexpr std::optional<Role> roleFrom(std::string_view name) {
  for (const Role role : {Role::kCarer, Role::kNurse, Role::kInstaller}) {
    if (name == nameOf(role)) return role;
  }
  return std::nullopt;
}

}  // namespace workstation
