// How a camera is reached: its address, who signs in there, and which certificate is believed.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace workstation {

struct Login {
  std::string user;  ///< empty: nobody signs in
  std::string password;
};

/// What VideoPipeline, LiveCamera and openCamera open. User and password go to GStreamer as properties of its source;
/// they are in no URI, and in nothing that is told or written.
struct CameraSource {
  std::string uri = {};          ///< absolute path, or a URI ("rtsp://host/path")
  std::string login_file = {};   ///< absolute path; read anew at each opening, so that a new password counts at once
  Login login = {};              ///< counts where there is no file
  std::string certificate = {};  ///< fingerprintFrom(): of the one certificate that is believed; empty: the system's
};

/// Larger login files are refused unread.
inline constexpr std::size_t kLoginLimitBytes = 4096;

/// A login file: the user's name is its first line, the password its second, and there is no third. Nobody but its
/// owner may read it. Throws std::runtime_error with one line that names the file and holds nothing of it.
Login readLogin(const std::string& file);

/// Who signs in when the source is opened now: whom the file names, else `login`, else whom the URI names. Throws like
/// readLogin().
Login loginOf(const CameraSource& source);

/// The user and password that stand in a URI itself, unescaped; an empty user where there is none.
Login loginIn(const std::string& uri);

/// Whether a user and a password, or a certificate, mean anything to what answers there.
bool takesLogin(const std::string& uri);
bool takesCertificate(const std::string& uri);

/// 64 lower-case hexadecimal digits of a certificate's SHA-256, which may be written with colons and in upper case;
/// nothing when the text is none.
std::optional<std::string> fingerprintFrom(std::string_view text);

}  // namespace workstation
