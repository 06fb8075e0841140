#include "platform/workstation/web/alarms/pending_replies.h"

#include <memory>
#include <utility>

namespace workstation {

void answerJson(SoupServerMessage* message, unsigned int status, const std::string& document) {
  soup_server_message_set_status(message, status, nullptr);
  soup_server_message_set_response(message, "application/json", SOUP_MEMORY_COPY, document.data(), document.size());
}

PendingReplies::~PendingReplies() {
  while (!m_pending.empty()) release(m_pending.begin()->first);
}

std::uint64_t PendingReplies::add(SoupServerMessage* message, std::chrono::milliseconds patience, Reply late) {
  const std::uint64_t id = ++m_last;
  constexpr auto gone = +[](SoupServerMessage* ended, gpointer data) {
    auto* const self = static_cast<PendingReplies*>(data);
    for (const auto& [number, pending] : self->m_pending) {
      if (pending.message.get() == ended) return self->release(number);
    }
  };
  soup_server_message_pause(message);
  g_signal_connect(message, "finished", G_CALLBACK(gone), this);
  g_signal_connect(message, "disconnected", G_CALLBACK(gone), this);
  GLibPtr<GSource> limit(g_timeout_source_new(static_cast<guint>(patience.count())));
  using Place = std::pair<PendingReplies*, std::uint64_t>;
  constexpr auto expired = +[](gpointer data) -> gboolean {
    const auto [self, number] = *static_cast<Place*>(data);
    const auto found = self->m_pending.find(number);
    if (found != self->m_pending.end()) self->finish(number, Reply(found->second.late));
    return G_SOURCE_REMOVE;
  };
  g_source_set_callback(limit.get(), expired, std::make_unique<Place>(this, id).release(),
                        [](gpointer data) { const std::unique_ptr<Place> owned(static_cast<Place*>(data)); });
  g_source_attach(limit.get(), m_context);
  m_pending[id] = {share(message), std::move(limit), std::move(late)};
  return id;
}

void PendingReplies::finish(std::uint64_t id, const Reply& reply) {
  const auto found = m_pending.find(id);
  if (found == m_pending.end()) return;
  const GLibPtr<SoupServerMessage> message = share(found->second.message.get());
  release(id);
  reply(message.get());
  soup_server_message_unpause(message.get());
}

void PendingReplies::release(std::uint64_t id) {
  const auto node = m_pending.extract(id);
  g_signal_handlers_disconnect_by_data(node.mapped().message.get(), this);
}

}  // namespace workstation
