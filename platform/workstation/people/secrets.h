// Random secrets, and what is kept of a secret so that whoever reads the file does not know it.
#pragma once

#include <string>
#include <string_view>

namespace workstation {

/// Letters and digits that are told apart on paper, in groups: nearly 80 random bits. Throws std::runtime_error.
std::string randomPassword();

/// 256 random bits in hexadecimal: a token, a session. Throws std::runtime_error.
std::string randomToken();

/// A slow, salted hash (yescrypt), of another salt each time. It takes a good part of a second and 16 MiB, so never on
/// a thread that others wait for. Throws std::runtime_error.
std::string hashPassword(const std::string& password);

/// Whether the hash is this password's; as slow. False for a text that is no hash.
bool isPassword(const std::string& password, const std::string& hash);

/// A hash of a password that nobody has: to be slow about people who do not exist, too.
const std::string& nobodysHash();

/// SHA-256 in hexadecimal, for secrets that nobody can guess.
std::string hashToken(std::string_view token);

/// Empty for a password that may be chosen, otherwise a line that says what is wrong with it.
std::string mistakeInPassword(const std::string& password);

}  // namespace workstation
