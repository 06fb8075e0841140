#include "platform/workstation/decoding/video_source.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "platform/support/owners.h"

namespace workstation {
namespace {

constexpr const char* kScheme = "://";
constexpr std::size_t kSchemeLength = 3;

/// Where the host begins in the rest of a URI, which ends with it. A password may hold any sign, also a slash that
/// nobody has escaped; then what stands before it is no port.
std::size_t hostBegin(const std::string& rest) {
  const std::size_t slash = rest.find_first_of("/?#");
  const std::string authority = rest.substr(0, slash);
  std::size_t at = authority.rfind('@');
  const std::size_t colon = authority.rfind(':');
  const bool has_port = colon == std::string::npos || authority.find(']', colon) != std::string::npos ||
                        authority.find_first_not_of("0123456789", colon + 1) == std::string::npos;
  if (at == std::string::npos && !has_port) at = rest.rfind('@');
  return at == std::string::npos ? 0 : at + 1;
}

}  // namespace

bool isUri(const std::string& source) { return source.find(kScheme) != std::string::npos; }

std::string localPath(const std::string& source) {
  if (!isUri(source)) return source;
  const GLibPtr<gchar> path(g_filename_from_uri(source.c_str(), nullptr, nullptr));
  return path ? path.get() : "";
}

SourceKind kindOf(const std::string& source) {
  const std::string path = localPath(source);
  if (path.empty()) return SourceKind::kStream;
  std::error_code error;
  const auto type = std::filesystem::status(path, error).type();
  if (type == std::filesystem::file_type::fifo) return SourceKind::kPipe;
  const bool is_awaited = type == std::filesystem::file_type::not_found && path.starts_with("/dev/");
  return is_awaited || type == std::filesystem::file_type::character ? SourceKind::kDevice : SourceKind::kFile;
}

std::string fileProblem(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (status.type() == fs::file_type::not_found) return "there is no such file";
  if (error) return error.message();
  if (fs::is_directory(status)) return "is a directory, not a video";
  return fs::is_regular_file(status) && fs::file_size(path, error) == 0 ? "is empty" : "";
}

std::string withoutUser(const std::string& source) {
  const std::size_t scheme = source.find(kScheme);
  if (scheme == std::string::npos) return source;
  const std::string rest = source.substr(scheme + kSchemeLength);
  return source.substr(0, scheme + kSchemeLength) + rest.substr(hostBegin(rest));
}

std::string withoutSecrets(std::string text) {
  for (std::size_t begin = 0; (begin = text.find(kScheme, begin)) != std::string::npos;) {
    const std::size_t end = std::min(text.find_first_of(" \t\r\n\"'<>", begin), text.size());
    std::string uri = withoutUser(text.substr(begin, end - begin));
    if (const std::size_t query = uri.find('?'); query != std::string::npos) uri.replace(query, uri.size(), "?...");
    text.replace(begin, end - begin, uri);
    begin += kSchemeLength;
  }
  return text;
}

}  // namespace workstation
