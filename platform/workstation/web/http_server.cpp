#include "platform/workstation/web/http_server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/support/owners.h"
#include "platform/workstation/system/signal_mask.h"
#include "platform/workstation/web/access/access.h"
#include "platform/workstation/web/access/addresses.h"
#include "platform/workstation/web/access/side_work.h"
#include "platform/workstation/web/access/visitor.h"
#include "platform/workstation/web/page_files.h"

namespace workstation {
namespace {

/// How much, and for how long, a refused body is read on, so that its sender gets to see the reason.
constexpr gsize kLingeringBytes = 1 << 20;
constexpr std::chrono::milliseconds kLingering{1000};

constexpr guint kRest_ms = 1000;

constexpr int kNiceness = 5;

/// Of the page's files, while the disk gives none: a visit asks for all of them.
constexpr std::size_t kMostFilesWaiting = 256;

constexpr const char* kSocketKey = "velmor-socket";

/// On every answer. A connection carries one request: libsoup 3.2 never lets go of one that its client has left open
/// after an answer and closed later.
constexpr std::pair<const char*, const char*> kHeaders[] = {
    {"Connection", "close"},
    {"Content-Security-Policy",
     "default-src 'self'; img-src 'self' blob: data:; frame-ancestors 'none'; base-uri 'none'; form-action 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cache-Control", "no-store"}};

std::string_view textOrEmpty(const char* text) { return text == nullptr ? "" : text; }

/// Whether an answer may come as gzip.
bool takesGzip(SoupServerMessage* message) {
  const char* const header =
      soup_message_headers_get_list(soup_server_message_get_request_headers(message), "Accept-Encoding");
  if (header == nullptr) return false;
  GSList* const taken = soup_header_parse_quality_list(header, nullptr);
  constexpr auto kDiffer = +[](gconstpointer one, gconstpointer other) -> gint {
    return g_ascii_strcasecmp(static_cast<const char*>(one), static_cast<const char*>(other));
  };
  const bool takes = g_slist_find_custom(taken, "gzip", kDiffer) != nullptr;
  soup_header_free_list(taken);
  return takes;
}

const char* requestHeader(SoupServerMessage* message, const char* name) {
  return soup_message_headers_get_list(soup_server_message_get_request_headers(message), name);
}

void setHeader(SoupServerMessage* message, const char* name, const char* value) {
  soup_message_headers_replace(soup_server_message_get_response_headers(message), name, value);
}

void addHeaders(SoupServerMessage* message) {
  for (const auto& [name, value] : kHeaders) setHeader(message, name, value);
}

struct InetEnd {
  std::string address;
  std::uint16_t port = 0;
};

/// One end of a connection.
InetEnd inetEnd(GSocketAddress* address) {
  if (!G_IS_INET_SOCKET_ADDRESS(address)) return {};
  auto* inet = G_INET_SOCKET_ADDRESS(address);
  const GLibPtr<gchar> text(g_inet_address_to_string(g_inet_socket_address_get_address(inet)));
  return {text.get(), g_inet_socket_address_get_port(inet)};
}

/// A page of somebody else's cannot make a browser send one of these to an address of ours.
bool comesFromOwnPage(SoupServerMessage* message, bool is_secure) {
  const std::string own = is_secure ? "https://" : "http://";
  return requestHeader(message, "X-Requested-With") != nullptr ||
         textOrEmpty(requestHeader(message, "Sec-Fetch-Site")) == "same-origin" ||
         textOrEmpty(requestHeader(message, "Origin")) == own + requestHeader(message, "Host");
}

bool isForm(SoupServerMessage* message) {
  const char* type = soup_message_headers_get_content_type(soup_server_message_get_request_headers(message), nullptr);
  return textOrEmpty(type) == "application/x-www-form-urlencoded";
}

std::string takeBody(SoupServerMessage* message) {
  const GLibPtr<GBytes> bytes(soup_message_body_flatten(soup_server_message_get_request_body(message)));
  gsize size = 0;
  const auto* data = static_cast<const char*>(g_bytes_get_data(bytes.get(), &size));
  return data == nullptr ? "" : std::string(data, size);
}

/// Ends a connection hard: what waits in it is dropped, and the other end learns at once.
void cutOff(GSocket* socket) {
  const linger at_once{1, 0};
  ::setsockopt(g_socket_get_fd(socket), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  g_socket_shutdown(socket, TRUE, TRUE, nullptr);
}

/// An answer past libsoup, the last that this connection gets.
void sendRaw(GIOStream* stream, GSocket* socket, const std::string& status, const std::string& line) {
  const std::string reply =
      "HTTP/1.1 " + status +
      "\r\nConnection: close\r\nContent-Type: text/plain\r\nContent-Length: " + std::to_string(line.size()) +
      "\r\n\r\n" + line;
  g_pollable_output_stream_write_nonblocking(G_POLLABLE_OUTPUT_STREAM(g_io_stream_get_output_stream(stream)),
                                             reply.data(), reply.size(), nullptr, nullptr);
  g_socket_shutdown(socket, FALSE, TRUE, nullptr);
}

/// One length of a body at most, in digits that a number holds.
bool hasGoodLength(SoupServerMessage* message) {
  constexpr size_t kMostDigits = 18;
  const char* length = requestHeader(message, "Content-Length");
  if (length == nullptr) return true;
  const std::string_view digits = length;
  return !digits.empty() && digits.size() <= kMostDigits && digits.find_first_not_of("0123456789") == digits.npos;
}

/// A socket that listens on the first port that is free. Throws std::runtime_error with one line.
GLibPtr<GSocket> listeningSocket(const ListenAddress& where, std::uint16_t& port) {
  const GLibPtr<GInetAddress> address(g_inet_address_new_from_string(where.address.c_str()));
  for (unsigned int candidate = where.first_port;; ++candidate) {
    const GLibPtr<GSocketAddress> target(g_inet_socket_address_new(address.get(), static_cast<guint16>(candidate)));
    CaughtError error;
    GLibPtr<GSocket> socket(g_socket_new(g_socket_address_get_family(target.get()), G_SOCKET_TYPE_STREAM,
                                         G_SOCKET_PROTOCOL_TCP, error.out()));
    if (socket && g_socket_address_get_family(target.get()) == G_SOCKET_FAMILY_IPV6) {
      g_socket_set_option(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, TRUE, nullptr);
    }
    if (socket) g_socket_set_listen_backlog(socket.get(), SOMAXCONN);
    if (socket && g_socket_bind(socket.get(), target.get(), TRUE, error.out()) &&
        g_socket_listen(socket.get(), error.out())) {
      const GLibPtr<GSocketAddress> bound(g_socket_get_local_address(socket.get(), nullptr));
      port = inetEnd(bound.get()).port;
      g_socket_set_blocking(socket.get(), FALSE);
      return socket;
    }
    const bool taken = g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_ADDRESS_IN_USE) != FALSE;
    if (!taken || candidate >= where.last_port) {
      throw std::runtime_error(toString(where) + ": cannot be listened on: " + error.text() +
                               "; choose another address with --listen ADDRESS:PORT");
    }
  }
}

/// What is to be said to whoever asks for a file of the page.
struct FileAnswer {
  std::optional<PageFile> file;  ///< none: there is no such page
  std::optional<std::string> packed;
  bool is_known = false;  ///< the asker has it already
};

FileAnswer fileAnswer(const std::filesystem::path& folder, const std::string& name, const std::string& known,
                      bool takes_gzip) {
  FileAnswer answer{readPageFile(folder, name), {}, false};
  if (!answer.file) return answer;
  answer.is_known = answer.file->version == known;
  if (!answer.is_known && answer.file->is_text && takes_gzip) answer.packed = gzipped(answer.file->content);
  return answer;
}

void sendFile(SoupServerMessage* message, const FileAnswer& answer) {
  if (!answer.file) return answerLine(message, SOUP_STATUS_NOT_FOUND, "There is no such page.");
  setHeader(message, "Cache-Control", "no-cache");
  setHeader(message, "ETag", answer.file->version.c_str());
  if (answer.file->is_text) setHeader(message, "Vary", "Accept-Encoding");
  if (answer.is_known) return soup_server_message_set_status(message, SOUP_STATUS_NOT_MODIFIED, nullptr);
  if (answer.packed) setHeader(message, "Content-Encoding", "gzip");
  const std::string& content = answer.packed ? *answer.packed : answer.file->content;
  soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
  soup_server_message_set_response(message, answer.file->type.c_str(), SOUP_MEMORY_COPY, content.data(),
                                   content.size());
}

/// As g_tls_server_connection_new() makes it, but without a database: clients show no certificates, and for those of
/// the system's authorities each connection would read them all.
GLibPtr<GIOStream> secured(GIOStream* stream, GTlsCertificate* certificate) {
  const GType type = g_tls_backend_get_server_connection_type(g_tls_backend_get_default());
  return GLibPtr<GIOStream>(static_cast<GIOStream*>(g_initable_new(
      type, nullptr, nullptr, "base-io-stream", stream, "certificate", certificate, "database", nullptr, nullptr)));
}

}  // namespace

class HttpServer::Implementation {
 public:
  explicit Implementation(HttpServerSettings settings)
      : m_settings(std::move(settings)),
        m_page_prefix("/local/" + m_settings.application + "/"),
        m_context(g_main_context_new()),
        m_loop(g_main_loop_new(m_context, FALSE)),
        m_reading(m_context, kMostFilesWaiting) {}
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  std::uint16_t listen(const ListenAddress& where);
  void stop();
  void setCertificate(const std::string& pem);
  void recheck();
  void invoke(std::function<void()> function) const;

  HttpServerSettings m_settings;
  std::string m_page_prefix;
  GMainContext* m_context;
  std::map<std::string, Endpoint> m_endpoints;
  std::map<std::string, Program> m_forms;
  Program m_program;

 private:
  struct Connection {
    Implementation* server;
    GSocket* socket;                       ///< borrowed; the connection is forgotten when it ends
    GIOStream* stream;                     ///< borrowed; with TLS where there is any
    std::string address;                   ///< of the other end
    SoupServerMessage* message = nullptr;  ///< a weak pointer
    bool answering = false;                ///< it has been read and is not finished
    bool let_in = false;                   ///< its request was complete and has passed all guards
    bool ending = false;                   ///< cut off
    bool is_endless = false;               ///< a stream or a feed
    std::uint64_t number = 0;              ///< in the order of coming
    std::optional<Role> least;             ///< that its request needs
    GLibPtr<GIOStream> taken;              ///< from libsoup, for a last word
    GSource* deadline = nullptr;
  };

  /// A connection whose ends do not speak TLS with each other yet.
  struct Handshake {
    Implementation* server;
    GLibPtr<GSocketAddress> local, remote;
  };

  /// What a request asks for, and who answers it.
  struct Asked {
    std::string path, method;
    std::optional<std::string> query;  ///< as it was sent
    std::string body;
    const Program* program = nullptr;     ///< obeys the body's form, else the query
    std::optional<std::string> form;      ///< what is obeyed of these
    std::optional<HttpQuery> parameters;  ///< of that; none where that is no form
  };

  void run();
  static GLibPtr<GTlsCertificate> certificateOf(const std::string& pem);
  void connectSignals();
  void watchListener();
  void rest();
  void releaseTaken();
  void accept();
  void shakeHands(GIOStream* stream, GLibPtr<GSocketAddress> local, GLibPtr<GSocketAddress> remote);
  void endHandshakes();
  static void endHandshake(GObject* stream, GAsyncResult* result, gpointer handshake);
  size_t count(bool let_in, const std::string* address) const;
  void makeRoom(const std::string& address);
  bool letIn(Connection& connection) const;
  void prepare(GSocket* socket) const;
  void forget(GSocket* socket);
  void setDeadline(Connection& connection, std::chrono::milliseconds patience) const;
  static void clearSource(GSource*& source);
  void expire(Connection& connection) const;
  static void end(Connection& connection);

  void onStarted(SoupServerMessage* message);
  void onHeaders(SoupServerMessage* message);
  void onChunk(SoupServerMessage* message, gsize bytes);
  void onRead(SoupServerMessage* message);
  void onWroteHeaders(SoupServerMessage* message);
  void onEnd(SoupServerMessage* message);
  /// None when it has ended.
  Connection* connectionOf(SoupServerMessage* message);

  void guard(SoupServerMessage* message);
  void refuseBody(SoupServerMessage* message);
  void refuseLength(SoupServerMessage* message);
  void dispatch(SoupServerMessage* message, const std::string& path);
  Asked askedBy(SoupServerMessage* message, const std::string& path) const;
  bool admit(SoupServerMessage* message, const Asked& asked);
  void answerRequest(SoupServerMessage* message, const Asked& asked) const;
  void answerFile(SoupServerMessage* message, const std::string& path);
  static void redirect(SoupServerMessage* message, const std::string& target);

  GMainLoop* m_loop;
  SideWork m_reading;  ///< the page's files
  GLibPtr<GSocket> m_listener;
  GSource* m_listener_source = nullptr;
  SoupServer* m_server = nullptr;
  GLibPtr<GTlsCertificate> m_certificate;  ///< null for plain http
  size_t m_handshakes = 0;                 ///< under way
  std::map<GSocket*, Connection> m_connections;
  std::uint64_t m_accepted = 0;
  std::thread m_thread;
};

HttpServer::Implementation::~Implementation() {
  stop();
  g_main_loop_unref(m_loop);
  g_main_context_unref(m_context);
}

std::uint16_t HttpServer::Implementation::listen(const ListenAddress& where) {
  if (!isLoopback(where.address) && !m_settings.access) {
    throw std::runtime_error(where.address + ": other machines reach this address, and nobody says who may come in");
  }
  if (!m_settings.certificate.empty()) m_certificate = certificateOf(m_settings.certificate);
  std::uint16_t port = 0;
  m_listener = listeningSocket(where, port);
  if (m_settings.access) m_settings.access->open({isLoopback(where.address), m_certificate != nullptr, port});
  // Whatever libsoup creates now belongs to the server's thread.
  g_main_context_push_thread_default(m_context);
  m_server = soup_server_new(nullptr, nullptr);
  connectSignals();
  g_main_context_pop_thread_default(m_context);
  watchListener();
  const ScopedSigtermBlock block;
  m_thread = std::thread([this] { run(); });
  return port;
}

GLibPtr<GTlsCertificate> HttpServer::Implementation::certificateOf(const std::string& pem) {
  CaughtError error;
  GLibPtr<GTlsCertificate> certificate(g_tls_certificate_new_from_pem(pem.c_str(), -1, error.out()));
  if (!certificate) throw std::runtime_error("the certificate cannot be used: " + error.text());
  return certificate;
}

void HttpServer::Implementation::setCertificate(const std::string& pem) {
  const std::shared_ptr<GTlsCertificate> certificate = certificateOf(pem);
  invoke([this, certificate] { m_certificate = share(certificate.get()); });
}

void HttpServer::Implementation::run() {
  // The analysis comes first; on Linux this is the thread's own.
  ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), kNiceness);
  g_main_context_push_thread_default(m_context);
  g_main_loop_run(m_loop);
  clearSource(m_listener_source);
  m_listener.reset();
  releaseTaken();
  soup_server_disconnect(m_server);
  endHandshakes();
  // What the ends of the connections have left to do; nothing of it waits for anybody.
  while (g_main_context_iteration(m_context, FALSE) != FALSE) {
  }
  g_main_context_pop_thread_default(m_context);
}

/// They run on threads of GLib's, which notice the end of their sockets.
void HttpServer::Implementation::endHandshakes() {
  if (m_handshakes == 0) return;
  for (const auto& entry : m_connections) cutOff(entry.first);
  while (m_handshakes > 0) g_main_context_iteration(m_context, TRUE);
}

/// Connections that libsoup does not know any more.
void HttpServer::Implementation::releaseTaken() {
  for (auto next = m_connections.begin(); next != m_connections.end();) {
    auto& connection = (next++)->second;
    if (connection.taken) end(connection);
  }
}

void HttpServer::Implementation::stop() {
  if (m_thread.joinable()) {
    invoke([this] { g_main_loop_quit(m_loop); });
    m_thread.join();
  }
  if (m_server != nullptr) {
    g_signal_handlers_disconnect_by_data(m_server, this);
    g_object_unref(std::exchange(m_server, nullptr));
  }
}

void HttpServer::Implementation::invoke(std::function<void()> function) const {
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  auto owned = std::make_unique<std::function<void()>>(std::move(function));
  g_source_set_callback(
      source,
      [](gpointer data) -> gboolean {
        (*static_cast<std::function<void()>*>(data))();
        return G_SOURCE_REMOVE;
      },
      owned.release(),
      [](gpointer data) { std::unique_ptr<std::function<void()>>(static_cast<std::function<void()>*>(data)); });
  g_source_attach(source, m_context);
  g_source_unref(source);
}

void HttpServer::Implementation::connectSignals() {
  using Self = Implementation;
  constexpr auto started =
      +[](SoupServer*, SoupServerMessage* message, gpointer self) { static_cast<Self*>(self)->onStarted(message); };
  constexpr auto read =
      +[](SoupServer*, SoupServerMessage* message, gpointer self) { static_cast<Self*>(self)->onRead(message); };
  constexpr auto ended =
      +[](SoupServer*, SoupServerMessage* message, gpointer self) { static_cast<Self*>(self)->onEnd(message); };
  g_signal_connect(m_server, "request-started", G_CALLBACK(started), this);
  g_signal_connect(m_server, "request-read", G_CALLBACK(read), this);
  g_signal_connect(m_server, "request-finished", G_CALLBACK(ended), this);
  g_signal_connect(m_server, "request-aborted", G_CALLBACK(ended), this);
  soup_server_add_handler(
      m_server, nullptr,
      [](SoupServer*, SoupServerMessage* message, const char* path, GHashTable*, gpointer self) {
        static_cast<Self*>(self)->dispatch(message, path);
      },
      this, nullptr);
}

// Connections.

void HttpServer::Implementation::watchListener() {
  clearSource(m_listener_source);
  m_listener_source = g_socket_create_source(m_listener.get(), G_IO_IN, nullptr);
  constexpr auto ready = +[](GSocket*, GIOCondition, gpointer self) -> gboolean {
    static_cast<Implementation*>(self)->accept();
    return G_SOURCE_CONTINUE;
  };
  g_source_set_callback(m_listener_source, G_SOURCE_FUNC(ready), this, nullptr);
  g_source_attach(m_listener_source, m_context);
}

/// Without a free file descriptor, say, the next try comes later: the connection goes on being ready.
void HttpServer::Implementation::rest() {
  clearSource(m_listener_source);
  m_listener_source = g_timeout_source_new(kRest_ms);
  constexpr auto rested = +[](gpointer self) -> gboolean {
    static_cast<Implementation*>(self)->watchListener();
    return G_SOURCE_REMOVE;
  };
  g_source_set_callback(m_listener_source, rested, this, nullptr);
  g_source_attach(m_listener_source, m_context);
}

void HttpServer::Implementation::accept() {
  CaughtError error;
  const GLibPtr<GSocket> socket(g_socket_accept(m_listener.get(), nullptr, error.out()));
  if (!socket) {
    if (g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK) == FALSE) rest();
    return;
  }
  GLibPtr<GSocketAddress> local(g_socket_get_local_address(socket.get(), nullptr));
  GLibPtr<GSocketAddress> remote(g_socket_get_remote_address(socket.get(), nullptr));
  const std::string address = inetEnd(remote.get()).address;
  if (!local || !remote) return;
  makeRoom(address);
  prepare(socket.get());
  const GLibPtr<GSocketConnection> stream(g_socket_connection_factory_create_connection(socket.get()));
  Connection& connection = m_connections[socket.get()];
  connection.server = this;
  connection.socket = socket.get();
  connection.stream = G_IO_STREAM(stream.get());
  connection.address = address;
  connection.number = ++m_accepted;
  g_object_set_data(G_OBJECT(remote.get()), kSocketKey, socket.get());
  g_object_weak_ref(
      G_OBJECT(socket.get()),
      [](gpointer self, GObject* gone) {
        static_cast<Implementation*>(self)->forget(reinterpret_cast<GSocket*>(gone));
      },
      this);
  if (m_certificate) return shakeHands(G_IO_STREAM(stream.get()), std::move(local), std::move(remote));
  soup_server_accept_iostream(m_server, G_IO_STREAM(stream.get()), local.get(), remote.get(), nullptr);
}

/// libsoup does that for its own listener only.
void HttpServer::Implementation::shakeHands(GIOStream* stream, GLibPtr<GSocketAddress> local,
                                            GLibPtr<GSocketAddress> remote) {
  const auto secure = secured(stream, m_certificate.get());
  if (!secure) return;
  Connection& connection = m_connections.at(g_socket_connection_get_socket(G_SOCKET_CONNECTION(stream)));
  connection.stream = secure.get();
  setDeadline(connection, m_settings.first_patience);
  auto handshake = std::make_unique<Handshake>(Handshake{this, std::move(local), std::move(remote)});
  ++m_handshakes;
  g_tls_connection_handshake_async(G_TLS_CONNECTION(secure.get()), G_PRIORITY_DEFAULT, nullptr, &endHandshake,
                                   handshake.release());
}

void HttpServer::Implementation::endHandshake(GObject* stream, GAsyncResult* result, gpointer handshake) {
  const std::unique_ptr<Handshake> ended(static_cast<Handshake*>(handshake));
  Implementation* const self = ended->server;
  --self->m_handshakes;
  if (g_tls_connection_handshake_finish(G_TLS_CONNECTION(stream), result, nullptr) == FALSE) return;
  if (g_main_loop_is_running(self->m_loop) == FALSE) return;
  soup_server_accept_iostream(self->m_server, G_IO_STREAM(stream), ended->local.get(), ended->remote.get(), nullptr);
}

/// How many there are, of one address or of all.
size_t HttpServer::Implementation::count(bool let_in, const std::string* address) const {
  return static_cast<size_t>(std::count_if(m_connections.begin(), m_connections.end(), [&](const auto& entry) {
    const Connection& connection = entry.second;
    return !connection.ending && connection.let_in == let_in && (address == nullptr || connection.address == *address);
  }));
}

/// For one more stranger. The oldest goes: who means well has sent a request by then, and nobody who is slow keeps
/// others out, whether they share an address or not.
void HttpServer::Implementation::makeRoom(const std::string& address) {
  const bool address_is_full = count(false, &address) >= m_settings.strangers_of_one;
  if (!address_is_full && count(false, nullptr) < m_settings.strangers) return;
  Connection* oldest = nullptr;
  for (auto& [socket, connection] : m_connections) {
    const bool matches =
        !connection.ending && !connection.let_in && (!address_is_full || connection.address == address);
    if (matches && (oldest == nullptr || connection.number < oldest->number)) oldest = &connection;
  }
  if (oldest != nullptr) end(*oldest);
}

/// From the strangers to those who get answers, if there is room.
bool HttpServer::Implementation::letIn(Connection& connection) const {
  if (count(true, nullptr) >= m_settings.connections ||
      count(true, &connection.address) >= m_settings.connections_of_one) {
    return false;
  }
  connection.let_in = true;
  return true;
}

void HttpServer::Implementation::prepare(GSocket* socket) const {
  g_socket_set_option(socket, IPPROTO_TCP, TCP_NODELAY, TRUE, nullptr);
  // A reader that takes nothing for that long has gone, whether its machine says so or not.
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(m_settings.patience).count();
  g_socket_set_timeout(socket, static_cast<guint>(seconds));
  g_socket_set_option(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, static_cast<gint>(m_settings.patience.count()), nullptr);
}

HttpServer::Implementation::Connection* HttpServer::Implementation::connectionOf(SoupServerMessage* message) {
  const auto found = m_connections.find(socketOf(message));
  return found == m_connections.end() ? nullptr : &found->second;
}

void HttpServer::Implementation::forget(GSocket* socket) {
  const auto found = m_connections.find(socket);
  clearSource(found->second.deadline);
  g_clear_weak_pointer(&found->second.message);
  m_connections.erase(found);
}

void HttpServer::Implementation::setDeadline(Connection& connection, std::chrono::milliseconds patience) const {
  clearSource(connection.deadline);
  connection.deadline = g_timeout_source_new(static_cast<guint>(patience.count()));
  g_source_set_callback(
      connection.deadline,
      [](gpointer expired) -> gboolean {
        auto& late = *static_cast<Connection*>(expired);
        late.server->expire(late);
        return G_SOURCE_REMOVE;
      },
      &connection, nullptr);
  g_source_attach(connection.deadline, m_context);
}

void HttpServer::Implementation::clearSource(GSource*& source) {
  if (source != nullptr) {
    g_source_destroy(source);
    g_source_unref(std::exchange(source, nullptr));
  }
}

void HttpServer::Implementation::expire(Connection& connection) const { end(connection); }

void HttpServer::Implementation::end(Connection& connection) {
  clearSource(connection.deadline);
  connection.ending = true;
  if (const auto taken = std::move(connection.taken)) return;  // and with it goes the connection
  if (connection.answering && connection.message != nullptr) {
    dropConnection(connection.message);
  } else {
    cutOff(connection.socket);
  }
}

// One message's way: started, headers, body, answer, end.

void HttpServer::Implementation::onStarted(SoupServerMessage* message) {
  Connection* const connection = connectionOf(message);
  if (connection == nullptr) return;
  g_set_weak_pointer(&connection->message, message);
  setDeadline(*connection, m_settings.first_patience);
  addHeaders(message);
  using Self = Implementation;
  constexpr auto headers =
      +[](SoupServerMessage* started, gpointer self) { static_cast<Self*>(self)->onHeaders(started); };
  constexpr auto chunk = +[](SoupServerMessage* started, GBytes* bytes, gpointer self) {
    static_cast<Self*>(self)->onChunk(started, g_bytes_get_size(bytes));
  };
  constexpr auto wrote =
      +[](SoupServerMessage* started, gpointer self) { static_cast<Self*>(self)->onWroteHeaders(started); };
  constexpr auto gone = +[](SoupServerMessage* started, gpointer self) { static_cast<Self*>(self)->onEnd(started); };
  g_signal_connect(message, "got-headers", G_CALLBACK(headers), this);
  g_signal_connect(message, "got-chunk", G_CALLBACK(chunk), this);
  g_signal_connect(message, "wrote-headers", G_CALLBACK(wrote), this);
  g_signal_connect(message, "disconnected", G_CALLBACK(gone), this);
}

void HttpServer::Implementation::onHeaders(SoupServerMessage* message) {
  // One file, in many overlapping pieces, would be a large answer to a small question.
  soup_message_headers_remove(soup_server_message_get_request_headers(message), "Range");
  if (!hasGoodLength(message)) return refuseLength(message);
  guard(message);
  if (soup_server_message_get_status(message) != 0) {
    soup_message_body_set_accumulate(soup_server_message_get_request_body(message), FALSE);
  }
}

/// The guards of every address, in the order of what a stranger may learn from them.
void HttpServer::Implementation::guard(SoupServerMessage* message) {
  const InetEnd own = inetEnd(soup_server_message_get_local_address(message));
  const char* host = requestHeader(message, "Host");
  const std::string_view method = soup_server_message_get_method(message);
  const goffset length = soup_message_headers_get_content_length(soup_server_message_get_request_headers(message));
  const bool is_secure = m_certificate != nullptr;
  if (host == nullptr || !isOwnHost(host, own.address, own.port, is_secure, m_settings.names)) {
    answerLine(message, SOUP_STATUS_FORBIDDEN, "This server is " + pageAddress(own.address, own.port, is_secure));
  } else if (method != "GET" && method != "HEAD" && method != "POST") {
    setHeader(message, "Allow", "GET, HEAD, POST");
    answerLine(message, SOUP_STATUS_METHOD_NOT_ALLOWED, "Only GET, HEAD and POST are understood.");
  } else if (length > static_cast<goffset>(m_settings.body_bytes)) {
    refuseBody(message);
  }
}

/// libsoup would answer after the whole body only. Here the reason goes first; what still comes is dropped for a
/// moment, since a connection that is cut while its other end sends may lose the reason.
void HttpServer::Implementation::refuseBody(SoupServerMessage* message) {
  const std::string line = "A request's body may have " + std::to_string(m_settings.body_bytes) + " bytes.\n";
  soup_message_body_set_accumulate(soup_server_message_get_request_body(message), FALSE);
  soup_server_message_set_status(message, SOUP_STATUS_REQUEST_ENTITY_TOO_LARGE, nullptr);
  Connection* const connection = connectionOf(message);
  if (connection == nullptr) return;
  sendRaw(connection->stream, connection->socket, "413 Request Entity Too Large", line);
  setDeadline(*connection, kLingering);
}

/// libsoup would make a stream of such a length, with a warning of GLib's on standard error. So the connection is taken
/// from it, and ends a moment after the reason was sent.
void HttpServer::Implementation::refuseLength(SoupServerMessage* message) {
  Connection* const connection = connectionOf(message);
  if (connection == nullptr) return;
  sendRaw(connection->stream, connection->socket, "400 Bad Request",
          "The length of the request's body is not well-formed.\n");
  g_signal_handlers_disconnect_by_data(message, this);
  g_object_set_data(G_OBJECT(soup_server_message_get_remote_address(message)), kSocketKey, nullptr);
  g_clear_weak_pointer(&connection->message);
  connection->taken.reset(soup_server_message_steal_connection(message));
  setDeadline(*connection, kLingering);
}

void HttpServer::Implementation::onChunk(SoupServerMessage* message, gsize bytes) {
  constexpr const char* kBytesKey = "velmor-bytes";
  const gsize read = GPOINTER_TO_SIZE(g_object_get_data(G_OBJECT(message), kBytesKey)) + bytes;
  g_object_set_data(G_OBJECT(message), kBytesKey, GSIZE_TO_POINTER(read));
  if (read > m_settings.body_bytes && soup_server_message_get_status(message) == 0) refuseBody(message);
  if (read > kLingeringBytes) cutOff(socketOf(message));
}

void HttpServer::Implementation::onRead(SoupServerMessage* message) {
  if (Connection* connection = connectionOf(message)) {
    connection->answering = true;
    const bool refused = soup_server_message_get_status(message) != 0;
    setDeadline(*connection, refused ? m_settings.first_patience : m_settings.patience);
  }
}

void HttpServer::Implementation::onWroteHeaders(SoupServerMessage* message) {
  Connection* const connection = connectionOf(message);
  const bool endless = soup_message_headers_get_encoding(soup_server_message_get_response_headers(message)) !=
                       SOUP_ENCODING_CONTENT_LENGTH;
  if (connection == nullptr || !endless) return;
  connection->is_endless = true;
  clearSource(connection->deadline);
}

void HttpServer::Implementation::onEnd(SoupServerMessage* message) {
  if (Connection* connection = connectionOf(message)) {
    connection->answering = false;
    // libsoup closes what speaks TLS by a last word, and would wait for a reader who takes none, with all feeds
    // waiting.
    if (m_certificate) g_socket_shutdown(connection->socket, FALSE, TRUE, nullptr);
    g_clear_weak_pointer(&connection->message);
    clearSource(connection->deadline);
  }
}

// Answers.

void HttpServer::Implementation::dispatch(SoupServerMessage* message, const std::string& path) {
  addHeaders(message);  // an interim answer has cleared them
  const Asked asked = askedBy(message, path);
  if (!admit(message, asked)) return;
  if (path == "/" || path == m_page_prefix) return redirect(message, m_page_prefix + "index.html");
  if (asked.program != nullptr) return answerRequest(message, asked);
  if (asked.method == "POST") {
    setHeader(message, "Allow", "GET, HEAD");
    return answerLine(message, SOUP_STATUS_METHOD_NOT_ALLOWED, "Only GET and HEAD are understood here.");
  }
  const auto endpoint = m_endpoints.find(path);
  if (endpoint == m_endpoints.end()) return answerFile(message, path);
  if (asked.form && !asked.parameters) {
    return answerLine(message, SOUP_STATUS_BAD_REQUEST, "The query is not well-formed.");
  }
  endpoint->second(message, asked.parameters.value_or(HttpQuery()));
}

/// Who answers a request decides what of it is obeyed; the guards look at the same.
HttpServer::Implementation::Asked HttpServer::Implementation::askedBy(SoupServerMessage* message,
                                                                      const std::string& path) const {
  Asked asked{path, soup_server_message_get_method(message), {}, takeBody(message), nullptr, {}, {}};
  if (const char* query = g_uri_get_query(soup_server_message_get_uri(message))) asked.query = query;
  if (path.starts_with(m_page_prefix) && path.ends_with(".cgi")) {
    asked.program = &m_program;
  } else if (const auto form = m_forms.find(path); asked.method == "POST" && form != m_forms.end()) {
    asked.program = &form->second;
  }
  asked.form = asked.program != nullptr && !asked.body.empty() ? asked.body : asked.query;
  if (asked.form) asked.parameters = decodeForm(*asked.form);
  return asked;
}

/// A stranger gets what is anybody's, and no more of the places than strangers have: a sign-in counts as an answer to
/// somebody, since each address has few at once.
bool HttpServer::Implementation::admit(SoupServerMessage* message, const Asked& asked) {
  Connection* const connection = connectionOf(message);
  const auto visitor = m_settings.access ? m_settings.access->identify(message) : std::optional(Visitor{});
  if (visitor) noteVisitor(message, *visitor);
  const auto least = leastRole({asked.method, asked.path, asked.form, asked.parameters ? &*asked.parameters : nullptr});
  const bool is_refused = least && (!visitor || visitor->role < *least);
  if (connection != nullptr) connection->least = least;
  if (connection != nullptr && (is_refused || !visitor)) setDeadline(*connection, m_settings.first_patience);
  if (is_refused) {
    visitor ? refuseRole(message, *least) : refuseStranger(message);
    return false;
  }
  if (!visitor && asked.method != "POST") return true;
  if (connection != nullptr && letIn(*connection)) return true;
  answerLine(message, SOUP_STATUS_SERVICE_UNAVAILABLE, "Too many connections; try again later.");
  return false;
}

void HttpServer::Implementation::recheck() {
  if (!m_settings.access) return;
  for (auto next = m_connections.begin(); next != m_connections.end();) {
    Connection& connection = (next++)->second;
    if (!connection.is_endless || connection.message == nullptr || !connection.least) continue;
    const auto visitor = m_settings.access->identify(connection.message);
    if (!visitor || visitor->role < *connection.least) end(connection);
  }
}

void HttpServer::Implementation::answerRequest(SoupServerMessage* message, const Asked& asked) const {
  if (!*asked.program) return answerLine(message, SOUP_STATUS_NOT_FOUND, "There is no such page.");
  if (asked.method == "HEAD") {
    setHeader(message, "Allow", "GET, POST");
    return answerLine(message, SOUP_STATUS_METHOD_NOT_ALLOWED, "Only GET and POST are understood here.");
  }
  if (!comesFromOwnPage(message, m_certificate != nullptr)) {
    return answerLine(message, SOUP_STATUS_FORBIDDEN,
                      "The request may come from a foreign page: send a header X-Requested-With.");
  }
  if (!asked.body.empty() && !isForm(message)) {
    return answerLine(message, SOUP_STATUS_UNSUPPORTED_MEDIA_TYPE,
                      "Only a body of application/x-www-form-urlencoded is understood.");
  }
  if (asked.form && !asked.parameters) {
    return answerLine(message, SOUP_STATUS_BAD_REQUEST, "The query is not well-formed.");
  }
  (*asked.program)(message, {asked.path, asked.method, asked.query, asked.parameters});
}

/// The disk is asked elsewhere: what was begun here, feeds of alarms above all, goes on though it does not answer.
void HttpServer::Implementation::answerFile(SoupServerMessage* message, const std::string& path) {
  if (!path.starts_with(m_page_prefix)) return answerLine(message, SOUP_STATUS_NOT_FOUND, "There is no such page.");
  const auto work = [folder = m_settings.page, name = path.substr(m_page_prefix.size()), takes = takesGzip(message),
                     known = std::string(textOrEmpty(requestHeader(message, "If-None-Match")))]() -> SideWork::Outcome {
    auto answer = std::make_shared<FileAnswer>(fileAnswer(folder, name, known, takes));
    return [answer](SoupServerMessage* asking) {
      if (asking != nullptr) sendFile(asking, *answer);
    };
  };
  if (!m_reading.start(message, work)) {
    answerLine(message, SOUP_STATUS_SERVICE_UNAVAILABLE, "The disk does not answer; try again later.");
  }
}

void HttpServer::Implementation::redirect(SoupServerMessage* message, const std::string& target) {
  setHeader(message, "Location", target.c_str());
  answerLine(message, SOUP_STATUS_FOUND, "The page is at " + target);
}

// The public face.

HttpServer::HttpServer(HttpServerSettings settings)
    : m_implementation(std::make_unique<Implementation>(std::move(settings))) {}

HttpServer::~HttpServer() = default;

void HttpServer::addEndpoint(const std::string& path, Endpoint endpoint) {
  m_implementation->m_endpoints.insert_or_assign(path, std::move(endpoint));
}

void HttpServer::addForm(const std::string& path, Program form) {
  m_implementation->m_forms.insert_or_assign(path, std::move(form));
}

void HttpServer::setProgram(Program program) { m_implementation->m_program = std::move(program); }

std::uint16_t HttpServer::listen(const ListenAddress& where) { return m_implementation->listen(where); }

void HttpServer::stop() { m_implementation->stop(); }

void HttpServer::setCertificate(const std::string& pem) { m_implementation->setCertificate(pem); }

void HttpServer::recheck() { m_implementation->recheck(); }

void HttpServer::invoke(std::function<void()> function) { m_implementation->invoke(std::move(function)); }

GMainContext* HttpServer::context() const { return m_implementation->m_context; }

void checkFree(const ListenAddress& where) {
  std::uint16_t port = 0;
  listeningSocket(where, port);
}

void answerLine(SoupServerMessage* message, unsigned int status, const std::string& line) {
  const std::string text = line + "\n";
  soup_server_message_set_status(message, status, nullptr);
  soup_server_message_set_response(message, "text/plain; charset=utf-8", SOUP_MEMORY_COPY, text.data(), text.size());
}

// libsoup knows a connection by the address that it was given for the other end.
GSocket* socketOf(SoupServerMessage* message) {
  GSocketAddress* remote = soup_server_message_get_remote_address(message);
  return static_cast<GSocket*>(g_object_get_data(G_OBJECT(remote), kSocketKey));
}

void dropConnection(SoupServerMessage* message) {
  cutOff(socketOf(message));
  // The attempt to write more is what tells libsoup.
  soup_message_body_append(soup_server_message_get_response_body(message), SOUP_MEMORY_STATIC, " ", 1);
  soup_server_message_unpause(message);
}

}  // namespace workstation
