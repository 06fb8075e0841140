// A command's answer, or none in time.
#pragma once

#include <chrono>
#include <string>

/// Runs a command of the shell and returns what it writes to standard output, up to the end of that. Then, or when the
/// patience is over, it is ended with all that it has started. Throws std::runtime_error when it cannot be run or takes
/// longer.
std::string outputOf(const char* command, std::chrono::milliseconds patience);
