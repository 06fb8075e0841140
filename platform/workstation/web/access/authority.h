// The page's certificate while the program runs, and the authority that it comes from, for telephones to take.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>

#include "platform/workstation/web/http_server.h"

namespace workstation {

/// The server's certificate of the folder goes to the settings, with its names. Throws std::runtime_error with one line
/// for one that cannot be used.
void takeCertificate(const std::filesystem::path& folder, HttpServerSettings& settings);

/// Adds the address /platform/authority.crt; before the server listens. An empty folder has none.
void addAuthority(HttpServer& server, const std::filesystem::path& folder);

/// Renews a certificate that comes to its end while the program runs, and gives it to the server. Where that fails, and
/// the end is near, staff is told.
class CertificateKeeper {
 public:
  struct Settings {
    std::filesystem::path folder;
    std::function<std::chrono::system_clock::time_point()> now = std::chrono::system_clock::now;
    std::chrono::milliseconds period = std::chrono::hours(6);  ///< between two looks
  };

  CertificateKeeper(HttpServer& server, Settings settings);
  /// Before the server goes.
  ~CertificateKeeper();
  CertificateKeeper(const CertificateKeeper&) = delete;
  CertificateKeeper& operator=(const CertificateKeeper&) = delete;

 private:
  struct State;
  std::shared_ptr<State> m_state;
};

}  // namespace workstation
