#include "platform/workstation/web/feed_viewers.h"

#include <algorithm>
#include <utility>

namespace workstation {

std::string feedMessage(const std::string& event, const std::string& data, std::uint64_t id) {
  return (id == 0 ? "" : "id: " + std::to_string(id) + "\n") + "event: " + event + "\ndata: " + data + "\n\n";
}

FeedViewers::~FeedViewers() {
  while (!m_viewers.empty()) release(m_viewers.begin());
}

void FeedViewers::welcome(SoupServerMessage* message, const First& first) {
  if (m_viewers.size() >= m_limits.viewers) {
    answerLine(message, SOUP_STATUS_SERVICE_UNAVAILABLE, "Too many viewers of the events; close a page.");
    return;
  }
  soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
  SoupMessageHeaders* headers = soup_server_message_get_response_headers(message);
  soup_message_headers_set_content_type(headers, "text/event-stream", nullptr);
  soup_message_headers_set_encoding(headers, SOUP_ENCODING_CHUNKED);
  if (soup_server_message_get_method(message) == SOUP_METHOD_HEAD) return;
  soup_message_body_set_accumulate(soup_server_message_get_response_body(message), FALSE);
  constexpr auto wrote = +[](SoupServerMessage* viewed, guint bytes, gpointer self) {
    for (Viewer& viewer : static_cast<FeedViewers*>(self)->m_viewers) {
      if (viewer.message.get() == viewed) viewer.unsent -= std::min<std::size_t>(viewer.unsent, bytes);
    }
  };
  constexpr auto gone =
      +[](SoupServerMessage* ended, gpointer self) { static_cast<FeedViewers*>(self)->forget(ended); };
  g_signal_connect(message, "wrote-body-data", G_CALLBACK(wrote), this);
  g_signal_connect(message, "finished", G_CALLBACK(gone), this);
  g_signal_connect(message, "disconnected", G_CALLBACK(gone), this);
  m_viewers.push_back({share(message), 0});
  const std::string text = first(m_viewers.back().last);
  send(m_viewers.back(), text);
}

void FeedViewers::send(Viewer& viewer, const std::string& text) const {
  viewer.unsent += text.size();
  if (viewer.unsent > m_limits.unsent_bytes) {
    dropConnection(viewer.message.get());
    return;
  }
  soup_message_body_append(soup_server_message_get_response_body(viewer.message.get()), SOUP_MEMORY_COPY, text.data(),
                           text.size());
  soup_server_message_unpause(viewer.message.get());
}

void FeedViewers::sendToAll(const std::string& text) {
  for (auto viewer = m_viewers.begin(); viewer != m_viewers.end();) {
    send(*viewer++, text);
  }
}

void FeedViewers::sendNewer(const std::string& text, std::uint64_t number) {
  for (auto viewer = m_viewers.begin(); viewer != m_viewers.end();) {
    Viewer& next = *viewer++;
    if (next.last < number) {
      next.last = number;
      send(next, text);
    }
  }
}

void FeedViewers::sendFirst(const First& first) {
  for (auto viewer = m_viewers.begin(); viewer != m_viewers.end();) {
    Viewer& next = *viewer++;
    const std::string text = first(next.last);
    send(next, text);
  }
}

void FeedViewers::forget(SoupServerMessage* message) {
  const auto found = std::find_if(m_viewers.begin(), m_viewers.end(),
                                  [message](const Viewer& viewer) { return viewer.message.get() == message; });
  if (found != m_viewers.end()) release(found);
}

void FeedViewers::release(std::list<Viewer>::iterator viewer) {
  const GLibPtr<SoupServerMessage> message = std::move(viewer->message);
  m_viewers.erase(viewer);
  g_signal_handlers_disconnect_by_data(message.get(), this);
}

}  // namespace workstation
