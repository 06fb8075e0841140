// Messages to an address: POST with a signature.
#pragma once

#include <libsoup/soup.h>

#include <chrono>
#include <memory>
#include <string>

#include "platform/support/owners.h"
#include "platform/workstation/outside/sender.h"

namespace workstation {

/// A session of its own for each receiver, so that none waits for another one's connections. Redirects are not
/// followed, and of https the certificate is checked.
class WebhookSender : public Sender {
 public:
  /// In the thread's own context.
  WebhookSender(std::string url, std::string secret, std::chrono::milliseconds patience);
  ~WebhookSender() override;

  void send(const OutgoingMessage& message, std::function<void(const Delivery&)> done) override;

 private:
  struct Try;
  static void finish(const std::shared_ptr<Try>& one, const Delivery& delivery);
  static void onAnswer(SoupSession* session, GAsyncResult* result, const std::shared_ptr<Try>& one);
  void bound(const std::shared_ptr<Try>& one) const;

  const std::string m_url;
  const std::string m_secret;
  const std::chrono::milliseconds m_patience;
  GLibPtr<SoupSession> m_session;
  std::shared_ptr<Try> m_try;
};

}  // namespace workstation
