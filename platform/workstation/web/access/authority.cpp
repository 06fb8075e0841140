#include "platform/workstation/web/access/authority.h"

#include <gio/gio.h>
#include <syslog.h>

#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>

#include "platform/support/owners.h"
#include "platform/workstation/certificates/certificates.h"
#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/health.h"
#include "platform/workstation/system/side_thread.h"
#include "platform/workstation/system/utc_text.h"

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

/// Shared with the thread that asks the disk, which may outlive the keeper.
struct CertificateKeeper::State {
  using Time = std::chrono::system_clock::time_point;

  Settings settings;
  SideThread side{1};
  GLibPtr<GSource> timer;
  std::mutex mutex;
  HttpServer* server = nullptr;  ///< null once the keeper has gone
  std::string served;            ///< the certificate that the server was given here
  Time expires = Time::max();    ///< of the one that the server has

  /// Off the server's thread: the disk may hang.
  void look() {
    try {
      const auto known = readServerCertificate(settings.folder);
      if (!known) return;
      if (served.empty()) expires = known->expires;
      prepareCertificates(settings.folder, known->names, settings.now());
      take();
      endTrouble(Trouble::kCertificateEnds);
    } catch (const std::exception& error) {
      warn(error.what());
    }
  }

  /// What lies in the folder, whoever has put it there: what is good there and not with the server helps nobody.
  void take() {
    const auto good = readServerCertificate(settings.folder);
    if (!good || good->pem == served) return;
    const std::scoped_lock lock(mutex);
    if (server == nullptr) return;
    server->setCertificate(good->pem);
    if (good->expires != expires) {
      syslog(LOG_NOTICE, "the page has another certificate, good until %s", utcText(good->expires).c_str());
    }
    served = good->pem;
    expires = good->expires;
  }

  void warn(const std::string& reason) const {
    constexpr std::chrono::hours kNear{20 * 24};
    if (expires - settings.now() > kNear) return;
    const std::string text = "The page's certificate ends on " + utcText(expires).substr(0, 10) +
                             " and cannot be renewed; then browsers and telephones refuse the page.";
    reportTrouble(Trouble::kCertificateEnds, text);
    syslog(LOG_ERR, "%s %s", text.c_str(), reason.c_str());
  }
};

CertificateKeeper::CertificateKeeper(HttpServer& server, Settings settings) : m_state(std::make_shared<State>()) {
  m_state->settings = std::move(settings);
  m_state->server = &server;
  m_state->timer.reset(g_timeout_source_new(static_cast<guint>(m_state->settings.period.count())));
  using Shared = std::weak_ptr<State>;
  constexpr auto look = +[](gpointer data) -> gboolean {
    const std::shared_ptr<State> state = static_cast<Shared*>(data)->lock();
    if (state) state->side.post([state] { state->look(); });
    return G_SOURCE_CONTINUE;
  };
  g_source_set_callback(m_state->timer.get(), look, std::make_unique<Shared>(m_state).release(),
                        [](gpointer data) { const std::unique_ptr<Shared> owned(static_cast<Shared*>(data)); });
  g_source_attach(m_state->timer.get(), server.context());
}

CertificateKeeper::~CertificateKeeper() {
  m_state->timer.reset();
  const std::scoped_lock lock(m_state->mutex);
  m_state->server = nullptr;
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
