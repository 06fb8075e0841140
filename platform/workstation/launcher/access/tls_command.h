// ./run tls
#pragma once

#include <string>
#include <vector>

namespace workstation {

/// Makes or renews authority and certificate and prints what to do with them; `words` are what follows "tls". Returns
/// the exit status. Throws UsageError, and std::runtime_error with one line.
int setUpTls(const std::vector<std::string>& words);

}  // namespace workstation
