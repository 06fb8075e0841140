#include "platform/support/package_path.h"

#include <cstdlib>
#include <string_view>

std::string packagePath(const std::string& absolute) {
  const char* root = std::getenv("VELMOR_ROOT");
  return root == nullptr ? absolute : root + absolute;
}

std::string temporaryPath(const std::string& absolute) {
  constexpr std::string_view kTemporary = "/tmp/";
  const char* folder = std::getenv("VELMOR_TMP");
  if (folder == nullptr || *folder == '\0' || !absolute.starts_with(kTemporary)) return absolute;
  return std::string(folder) + "/" + absolute.substr(kTemporary.size());
}
