#include "platform/support/package_path.h"

#include <cstdlib>

std::string packagePath(const std::string& absolute) {
  const char* root = std::getenv("VELMOR_ROOT");
  return root == nullptr ? absolute : root + absolute;
}
