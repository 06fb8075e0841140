#include "platform/workstation/web/page_files.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>

#include "platform/support/owners.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

constexpr off_t kLimitBytes = 4 << 20;

std::string typeOf(const std::filesystem::path& path) {
  static const std::map<std::string, std::string> kTypes = {{".css", "text/css; charset=utf-8"},
                                                            {".html", "text/html; charset=utf-8"},
                                                            {".ico", "image/x-icon"},
                                                            {".jpg", "image/jpeg"},
                                                            {".js", "text/javascript; charset=utf-8"},
                                                            {".json", "application/json"},
                                                            {".mjs", "text/javascript; charset=utf-8"},
                                                            {".png", "image/png"},
                                                            {".svg", "image/svg+xml"},
                                                            {".txt", "text/plain; charset=utf-8"},
                                                            {".webmanifest", "application/manifest+json"},
                                                            {".woff2", "font/woff2"}};
  const auto found = kTypes.find(path.extension().string());
  return found == kTypes.end() ? "application/octet-stream" : found->second;
}

/// Walks down name by name, so that no name can be a link or lead elsewhere.
FileDescriptor openBelow(const std::filesystem::path& folder, std::string_view path) {
  constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
  FileDescriptor place(::open(folder.c_str(), kFlags | O_DIRECTORY));
  while (place.get() >= 0) {
    const size_t slash = path.find('/');
    const std::string name(path.substr(0, slash));
    if (name.empty() || name[0] == '.' || name.find('\0') != std::string::npos) return FileDescriptor();
    const int kind = slash == std::string_view::npos ? 0 : O_DIRECTORY;
    place = FileDescriptor(::openat(place.get(), name.c_str(), kFlags | O_NOFOLLOW | kind));
    if (slash == std::string_view::npos) break;
    path.remove_prefix(slash + 1);
  }
  return place;
}

bool readWhole(int fd, std::string& content) {
  for (size_t filled = 0; filled < content.size();) {
    const ssize_t got = ::read(fd, content.data() + filled, content.size() - filled);
    if (got == 0 || (got < 0 && errno != EINTR)) return false;
    filled += got > 0 ? static_cast<size_t>(got) : 0;
  }
  return true;
}

bool isText(const std::string& type) {
  return type.starts_with("text/") || type.ends_with("json") || type.ends_with("+xml");
}

}  // namespace

std::optional<PageFile> readPageFile(const std::filesystem::path& folder, std::string_view path) {
  const FileDescriptor file = openBelow(folder, path);
  struct stat status {};
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > kLimitBytes) {
    return std::nullopt;
  }
  PageFile page;
  page.content.resize(static_cast<size_t>(status.st_size));
  if (!readWhole(file.get(), page.content)) return std::nullopt;
  page.type = typeOf(path);
  page.is_text = isText(page.type);
  const GLibPtr<gchar> digest(g_compute_checksum_for_data(
      G_CHECKSUM_SHA1, reinterpret_cast<const guchar*>(page.content.data()), page.content.size()));
  page.version = std::string("\"") + digest.get() + "\"";
  return page;
}

std::optional<std::string> gzipped(const std::string& content) {
  constexpr int kUsualLevel = -1;
  constexpr size_t kMostOverhead = 256;
  const GLibPtr<GZlibCompressor> packer(g_zlib_compressor_new(G_ZLIB_COMPRESSOR_FORMAT_GZIP, kUsualLevel));
  std::string packed(content.size() + kMostOverhead, '\0');
  size_t read = 0;
  size_t written = 0;
  const GConverterResult result =
      g_converter_convert(G_CONVERTER(packer.get()), content.data(), content.size(), packed.data(), packed.size(),
                          G_CONVERTER_INPUT_AT_END, &read, &written, nullptr);
  if (result != G_CONVERTER_FINISHED) return std::nullopt;
  packed.resize(written);
  return packed;
}

}  // namespace workstation
