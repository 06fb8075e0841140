#include "platform/workstation/web/access/authority.h"

#include <gio/gio.h>
#include <syslog.h>

#include <optional>
#include <stdexcept>

#include "platform/workstation/certificates/certificates.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {

void takeCertificate(const std::filesystem::path& folder, HttpServerSettings& settings) {
  constexpr const char* kAdvice = "; make it anew with ./run tls";
  if (g_tls_backend_supports_tls(g_tls_backend_get_default()) == FALSE) {
    throw std::runtime_error("the page cannot be https: the package glib-networking is missing");
  }
  try {
    const auto certificate = readServerCertificate(folder);
    if (!certificate) throw std::runtime_error(folder.string() + ": there is no certificate");
    if (certificate->expires < std::chrono::system_clock::now()) {
      syslog(LOG_ERR, "%s: the page's certificate has come to its end, and browsers refuse it%s", folder.c_str(),
             kAdvice);
    }
    settings.certificate = certificate->pem;
    settings.names = certificate->names;
  } catch (const std::exception& error) {
    throw std::runtime_error("there is no page: " + std::string(error.what()) + kAdvice);
  }
}

void addAuthority(HttpServer& server, const std::filesystem::path& folder) {
  constexpr size_t kLimitBytes = 64 << 10;
  // Read once: on a disk that hangs later, whoever asks for it would keep all feeds waiting.
  std::optional<std::string> file;
  try {
    if (!folder.empty()) file = readFile(authorityFile(folder), kLimitBytes);
  } catch (const std::exception& error) {
    syslog(LOG_WARNING, "%s", error.what());
  }
  server.addEndpoint("/platform/authority.crt", [file](SoupServerMessage* message, const HttpQuery&) {
    if (!file) return answerLine(message, SOUP_STATUS_NOT_FOUND, "There is no authority here.");
    soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
    soup_server_message_set_response(message, "application/x-x509-ca-cert", SOUP_MEMORY_COPY, file->data(),
                                     file->size());
  });
}

}  // namespace workstation
