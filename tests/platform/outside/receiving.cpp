#include "tests/platform/outside/receiving.h"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

namespace {

constexpr guint kSlow_ms = 100;

std::string header(SoupServerMessage* message, const char* name) {
  const char* const value = soup_message_headers_get_one(soup_server_message_get_request_headers(message), name);
  return value == nullptr ? "" : value;
}

}  // namespace

Receiving::Receiving(GTlsCertificate* certificate) : m_certificate(certificate) { comeBack(); }

Receiving::~Receiving() { leave(); }

void Receiving::comeBack() {
  m_context.reset(g_main_context_new());
  m_loop.reset(g_main_loop_new(m_context.get(), FALSE));
  g_main_context_push_thread_default(m_context.get());
  m_server = m_certificate == nullptr ? soup_server_new(nullptr, nullptr)
                                      : soup_server_new("tls-certificate", m_certificate, nullptr);
  constexpr auto called = +[](SoupServer*, SoupServerMessage* message, const char*, GHashTable*, gpointer self) {
    static_cast<Receiving*>(self)->answer(message);
  };
  soup_server_add_handler(m_server, nullptr, called, this, nullptr);
  const auto options = m_certificate == nullptr ? SOUP_SERVER_LISTEN_IPV4_ONLY : SOUP_SERVER_LISTEN_HTTPS;
  soup_server_listen_local(m_server, m_port, options, nullptr);
  GSList* const uris = soup_server_get_uris(m_server);
  if (uris != nullptr) m_port = static_cast<guint>(g_uri_get_port(static_cast<GUri*>(uris->data)));
  g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));
  g_main_context_pop_thread_default(m_context.get());
  m_thread = std::thread([this] { serve(); });
}

void Receiving::serve() {
  g_main_context_push_thread_default(m_context.get());
  g_main_loop_run(m_loop.get());
  soup_server_disconnect(m_server);
  while (g_main_context_iteration(m_context.get(), FALSE) != FALSE) {
  }
  g_main_context_pop_thread_default(m_context.get());
}

void Receiving::leave() {
  if (!m_thread.joinable()) return;
  GSource* const quit = g_idle_source_new();
  constexpr auto end = +[](gpointer loop) -> gboolean {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_REMOVE;
  };
  g_source_set_callback(quit, end, m_loop.get(), nullptr);
  g_source_attach(quit, m_context.get());
  g_source_unref(quit);
  m_thread.join();
  g_clear_object(&m_server);
}

std::string Receiving::url() const {
  return (m_certificate == nullptr ? "http://127.0.0.1:" : "https://127.0.0.1:") + std::to_string(m_port) + "/calls";
}

void Receiving::answer(SoupServerMessage* message) {
  const GLibPtr<GBytes> bytes(soup_message_body_flatten(soup_server_message_get_request_body(message)));
  gsize size = 0;
  const auto* data = static_cast<const char*>(g_bytes_get_data(bytes.get(), &size));
  const Mood now = mood;
  {
    const std::scoped_lock lock(m_mutex);
    m_calls.push_back({std::string(data == nullptr ? "" : data, size), header(message, "X-Velmor-Timestamp"),
                       header(message, "X-Velmor-Signature"), now == Mood::kTakes || now == Mood::kSlow});
  }
  soup_server_message_set_status(message, now == Mood::kFails ? 503 : now == Mood::kRedirects ? 307 : 200, nullptr);
  if (now == Mood::kRedirects) {
    soup_message_headers_replace(soup_server_message_get_response_headers(message), "Location", url().c_str());
  }
  if (now == Mood::kDrops) {
    const GLibPtr<GIOStream> stream(soup_server_message_steal_connection(message));
    g_io_stream_close(stream.get(), nullptr, nullptr);
  } else if (now == Mood::kHangs) {
    soup_server_message_pause(message);
  } else if (now == Mood::kSlow) {
    soup_server_message_pause(message);
    GSource* const later = g_timeout_source_new(kSlow_ms);
    constexpr auto unpause = +[](gpointer slow) -> gboolean {
      soup_server_message_unpause(static_cast<SoupServerMessage*>(slow));
      return G_SOURCE_REMOVE;
    };
    g_source_set_callback(later, unpause, g_object_ref(message), g_object_unref);
    g_source_attach(later, m_context.get());
    g_source_unref(later);
  }
}

std::vector<Receiving::Call> Receiving::calls() const {
  const std::scoped_lock lock(m_mutex);
  return m_calls;
}

std::vector<std::uint64_t> Receiving::numbers() const {
  std::vector<std::uint64_t> numbers;
  for (const Call& call : calls()) {
    const std::uint64_t number = nlohmann::json::parse(call.body).at("number");
    if (call.is_taken && std::find(numbers.begin(), numbers.end(), number) == numbers.end()) numbers.push_back(number);
  }
  return numbers;
}

std::vector<std::string> Receiving::words() const {
  std::vector<std::string> words;
  for (const Call& call : calls()) {
    if (!call.is_taken) continue;
    const nlohmann::json message = nlohmann::json::parse(call.body);
    words.push_back(message.at("what"));
    if (message.contains("level")) words.back() += " " + message["level"].dump();
    if (message.contains("answer")) words.back() += " " + message["answer"]["what"].get<std::string>();
  }
  return words;
}
