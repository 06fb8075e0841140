// What the name of a camera's source tells, and how it is spoken of.
#pragma once

#include <string>

namespace workstation {

enum class SourceKind {
  kFile,    ///< a recording: it is there, and it has an end
  kPipe,    ///< a FIFO: whoever writes into it comes and goes
  kDevice,  ///< of this machine: /dev/...
  kStream,  ///< any URI but file://
};

bool isUri(const std::string& source);

/// The path of a source that is none of other machines; empty for kStream.
std::string localPath(const std::string& source);

/// Without opening it. A path where nothing is counts as a file, below /dev as a device.
SourceKind kindOf(const std::string& source);

/// Why a path holds no video, as far as that shows without opening it; else empty.
std::string fileProblem(const std::string& path);

/// A source without the user name and the password that its URI may hold.
std::string withoutUser(const std::string& source);

/// The text without the user names, passwords and queries of the URIs in it: fit for logs and for everybody's eyes.
std::string withoutSecrets(std::string text);

}  // namespace workstation
