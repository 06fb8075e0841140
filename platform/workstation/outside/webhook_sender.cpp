#include "platform/workstation/outside/webhook_sender.h"

#include <functional>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/workstation/outside/outgoing_message.h"

namespace workstation {
namespace {

std::string secondsText(std::chrono::milliseconds span) {
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(span).count();
  return std::to_string(seconds) + " s";
}

std::string timestampNow() {
  return std::to_string(std::chrono::floor<std::chrono::seconds>(ticker_clock::now()).time_since_epoch().count());
}

/// What the certificate lacks, in words; GLib's say that it is unacceptable.
std::string certificateProblem(GTlsCertificateFlags errors) {
  if ((errors & G_TLS_CERTIFICATE_UNKNOWN_CA) != 0)
    return "nobody whom this machine trusts vouches for its certificate";
  if ((errors & G_TLS_CERTIFICATE_EXPIRED) != 0) return "its certificate has expired";
  if ((errors & G_TLS_CERTIFICATE_NOT_ACTIVATED) != 0) return "its certificate is not valid yet";
  if ((errors & G_TLS_CERTIFICATE_BAD_IDENTITY) != 0) return "its certificate is for another name";
  return "its certificate cannot be believed";
}

/// Every page gets it with each heartbeat: no longer than a line.
std::string statusText(SoupMessage* message) {
  constexpr std::size_t kLongest = 120;
  const char* const reason = soup_message_get_reason_phrase(message);
  std::string text = std::to_string(static_cast<int>(soup_message_get_status(message)));
  if (reason != nullptr && *reason != '\0') text.append(" ").append(reason);
  if (text.size() <= kLongest) return text;
  const GLibPtr<gchar> cut(g_utf8_make_valid(text.data(), kLongest));
  return cut.get();
}

}  // namespace

/// One try; libsoup may come back to it when the sender has gone.
struct WebhookSender::Try {
  GLibPtr<SoupMessage> message;
  GLibPtr<GCancellable> cancellable;
  GLibPtr<GSource> limit;
  std::function<void(const Delivery&)> done;  ///< empty once it was called
  std::chrono::milliseconds patience{};
  bool is_late = false;
};

WebhookSender::WebhookSender(std::string url, std::string secret, std::chrono::milliseconds patience)
    : m_url(std::move(url)), m_secret(std::move(secret)), m_patience(patience), m_session(soup_session_new()) {
  soup_session_set_proxy_resolver(m_session.get(), nullptr);
  soup_session_set_user_agent(m_session.get(), "velmor_care");
}

WebhookSender::~WebhookSender() {
  if (!m_try) return;
  m_try->done = nullptr;
  m_try->limit.reset();
  g_cancellable_cancel(m_try->cancellable.get());
}

void WebhookSender::send(const OutgoingMessage& message, std::function<void(const Delivery&)> done) {
  m_try = std::make_shared<Try>();
  m_try->message.reset(soup_message_new("POST", m_url.c_str()));
  m_try->cancellable.reset(g_cancellable_new());
  m_try->done = std::move(done);
  m_try->patience = m_patience;
  bound(m_try);
  if (!m_try->message) return;  // no address: not reached when the time is up
  soup_message_add_flags(m_try->message.get(), SOUP_MESSAGE_NO_REDIRECT);
  const GLibPtr<GBytes> body(g_bytes_new(message.body.data(), message.body.size()));
  soup_message_set_request_body_from_bytes(m_try->message.get(), "application/json", body.get());
  SoupMessageHeaders* const headers = soup_message_get_request_headers(m_try->message.get());
  const std::string timestamp = timestampNow();
  soup_message_headers_replace(headers, "Connection", "close");
  soup_message_headers_replace(headers, "X-Velmor-Timestamp", timestamp.c_str());
  soup_message_headers_replace(headers, "X-Velmor-Signature",
                               ("sha256=" + signatureOf(m_secret, timestamp, message.body)).c_str());
  auto held = std::make_unique<std::shared_ptr<Try>>(m_try);
  constexpr auto answered = +[](GObject* session, GAsyncResult* result, gpointer data) {
    const std::unique_ptr<std::shared_ptr<Try>> one(static_cast<std::shared_ptr<Try>*>(data));
    onAnswer(SOUP_SESSION(session), result, *one);
  };
  soup_session_send_async(m_session.get(), m_try->message.get(), G_PRIORITY_DEFAULT, m_try->cancellable.get(), answered,
                          held.release());
}

/// The limit is for all of it: name, connection, answer's head. What hangs in a library is left behind.
void WebhookSender::bound(const std::shared_ptr<Try>& one) const {
  one->limit.reset(g_timeout_source_new(static_cast<guint>(m_patience.count())));
  constexpr auto late = +[](gpointer data) -> gboolean {
    const std::shared_ptr<Try> self = *static_cast<std::shared_ptr<Try>*>(data);
    self->is_late = true;
    g_cancellable_cancel(self->cancellable.get());
    finish(self, {false, "no answer within " + secondsText(self->patience)});
    return G_SOURCE_REMOVE;
  };
  g_source_set_callback(one->limit.get(), late, std::make_unique<std::shared_ptr<Try>>(one).release(),
                        [](gpointer data) {
                          const std::unique_ptr<std::shared_ptr<Try>> owned(static_cast<std::shared_ptr<Try>*>(data));
                        });
  g_source_attach(one->limit.get(), g_main_context_get_thread_default());
}

void WebhookSender::finish(const std::shared_ptr<Try>& one, const Delivery& delivery) {
  const GLibPtr<GSource> limit = std::move(one->limit);  // which holds a share of the try
  const auto done = std::exchange(one->done, nullptr);
  if (done) done(delivery);
}

void WebhookSender::onAnswer(SoupSession* session, GAsyncResult* result, const std::shared_ptr<Try>& one) {
  CaughtError error;
  // The answer's body says nothing to us; letting it go ends the connection.
  const GLibPtr<GInputStream> body(soup_session_send_finish(session, result, error.out()));
  if (one->is_late || !one->done) return;
  if (!body) {
    const GTlsCertificateFlags errors = soup_message_get_tls_peer_certificate_errors(one->message.get());
    return finish(one, {false, errors != 0 ? certificateProblem(errors) : error.text()});
  }
  const bool is_taken = SOUP_STATUS_IS_SUCCESSFUL(soup_message_get_status(one->message.get()));
  finish(one, {is_taken, statusText(one->message.get())});
}

}  // namespace workstation
