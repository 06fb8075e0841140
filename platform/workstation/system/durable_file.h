// Files that survive a power cut: read with a limit, replaced or appended to as a whole.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/support/file_descriptor.h"

namespace workstation {

/// From here on a limit on the size of files (ulimit -f) is a full disk to whoever reaches it, and does not end the
/// process.
void takeFileLimitsAsFullDisks();

/// Writes all bytes at the descriptor's position; false with errno set when that is impossible.
bool writeAll(int fd, const void* bytes, size_t size);

/// The content of a regular file of at most `limit` bytes, none when there is no such file. Throws std::runtime_error
/// with one line that names the file for any other reason why it cannot be had.
std::optional<std::string> readFile(const std::filesystem::path& path, size_t limit);

/// Replaces `path` by `content`: whatever happens, the old or the new content stands there. With `previous`, the old
/// file stays under that name. On disk on return. Throws std::runtime_error with one line.
void replaceFile(const std::filesystem::path& path, std::string_view content,
                 const std::filesystem::path& previous = {});

/// Returns whether there was such a file; it is gone for good then. Throws std::runtime_error with one line.
bool removeFile(const std::filesystem::path& path);

/// Whether nothing, or another file than the open one, stands at the path: nobody would find what is written into it.
/// False where that cannot be known.
bool isElsewhere(const FileDescriptor& file, const std::filesystem::path& path);

/// Makes created and renamed names in the directory durable. Throws std::runtime_error with one line.
void syncDirectory(const std::filesystem::path& directory);

}  // namespace workstation
