// The files of the web page: what lies below one folder, and nothing else.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace workstation {

struct PageFile {
  std::string content;
  std::string type;      ///< for Content-Type
  std::string version;   ///< changes with the file; for ETag, with its quotes
  bool is_text = false;  ///< of a type that gzip makes a good deal smaller
};

/// The file at a decoded path like "lib/app.js" below the folder. None for whatever is not a plain file of at most
/// 4 MiB there: no hidden name, no way up, and no link but the folder itself is followed.
std::optional<PageFile> readPageFile(const std::filesystem::path& folder, std::string_view path);

/// The same in fewer bytes, as gzip; none when that fails.
std::optional<std::string> gzipped(const std::string& content);

}  // namespace workstation
