// The camera's web server on a workstation: requests for the program wait for its main loop, everything else is
// answered on the server's own thread.
#include <axhttp.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/support/owners.h"
#include "platform/support/package_path.h"
#include "platform/workstation/alarms/alarm_desk.h"
#include "platform/workstation/outside/cursors.h"
#include "platform/workstation/outside/post_office.h"
#include "platform/workstation/parameters/changes.h"
#include "platform/workstation/parameters/parameter_batch.h"
#include "platform/workstation/parameters/stored_parameters.h"
#include "platform/workstation/requests/settings_import.h"
#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/state_directory.h"
#include "platform/workstation/trace/live_explanation.h"
#include "platform/workstation/web/access/access.h"
#include "platform/workstation/web/access/authority.h"
#include "platform/workstation/web/access/people_service.h"
#include "platform/workstation/web/access/session_service.h"
#include "platform/workstation/web/access/visitor.h"
#include "platform/workstation/web/alarms/alarm_service.h"
#include "platform/workstation/web/camera_service.h"
#include "platform/workstation/web/event_feed.h"
#include "platform/workstation/web/http_server.h"
#include "platform/workstation/web/settings_service.h"
#include "platform/workstation/web/sight_service.h"
#include "platform/workstation/web/view_streams.h"
#include "platform/workstation/web/why_service.h"

using workstation::HttpQuery;
using workstation::HttpServer;
using workstation::ProgramRequest;

namespace {

constexpr const char* kApplication = "velmor_care";
/// Instead of the program's reply when what it has set is not on disk.
constexpr const char* kNotStored =
    "Status: 500 Internal Server Error\r\nContent-Type: text/plain\r\n\r\n"
    "The settings are in use but could not be stored; the system log says why.\n";

constexpr const char* kTooManyWaiting =
    "Status: 503 Service Unavailable\r\nContent-Type: text/plain\r\n\r\n"
    "Too many requests wait for the program; try again later.\n";

std::string formatted(const workstation::ImportAnswer& answer) {
  return "Status: " + std::to_string(answer.status) +
         "\r\nContent-Type: " + (answer.status == SOUP_STATUS_OK ? "application/json" : "text/plain; charset=utf-8") +
         "\r\n\r\n" + answer.text + "\n";
}

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

/// The start is over: the launcher waits for the end of the pipe whose number is in the environment. Once, since the
/// number may be somebody else's afterwards.
void tellStarted() {
  static const int told = [] {
    const std::string number = variable("VELMOR_STARTED_FD");
    return number.empty() ? 0 : ::close(std::atoi(number.c_str()));
  }();
  static_cast<void>(told);
}

workstation::HttpServerSettings serverSettings() {
  workstation::HttpServerSettings settings;
  settings.application = kApplication;
  settings.page = packagePath(std::string("/usr/local/packages/") + kApplication + "/html");
  settings.access = std::make_shared<workstation::Access>(workstation::stateDirectory());
  if (const std::string folder = variable("VELMOR_TLS"); !folder.empty()) {
    workstation::takeCertificate(folder, settings);
  }
  return settings;
}

std::filesystem::path besideThisProgram(const char* name) {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / name;
}

/// A hash table of the parameters, none for a request without.
GLibPtr<GHashTable> tableOf(const ProgramRequest& request) {
  GLibPtr<GHashTable> table;
  if (request.parameters) {
    table.reset(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free));
    for (const auto& [key, value] : *request.parameters) {
      g_hash_table_insert(table.get(), g_strdup(key.c_str()), g_strdup(value.c_str()));
    }
  }
  return table;
}

void answer(SoupServerMessage* message, const std::string& output) {
  const auto reply = workstation::parseCgiReply(output);
  if (!reply) {
    workstation::answerLine(message, SOUP_STATUS_BAD_GATEWAY, "The program's reply is not well-formed.");
    return;
  }
  soup_server_message_set_status(message, reply->status, reply->reason.empty() ? nullptr : reply->reason.c_str());
  soup_message_body_append(soup_server_message_get_response_body(message), SOUP_MEMORY_COPY, reply->body.data(),
                           reply->body.size());
  SoupMessageHeaders* headers = soup_server_message_get_response_headers(message);
  for (const auto& [name, value] : reply->headers) {
    soup_message_headers_replace(headers, name.c_str(), value.c_str());
  }
}

/// Set once nobody waits for an answer any more.
using Abandoned = std::shared_ptr<std::atomic<bool>>;

/// Whether a request only asks, so that it is in vain when its client has gone.
bool onlyReads(const ProgramRequest& request) {
  const auto action = request.parameters ? request.parameters->find("action") : HttpQuery::const_iterator();
  return request.parameters && action != request.parameters->end() && action->second.starts_with("get_");
}

/// Messages whose answers the program owes; on the server's thread only.
class WaitingMessages {
 public:
  explicit WaitingMessages(GMainContext* context) : m_context(context) {}
  ~WaitingMessages() {
    while (!m_messages.empty()) release(m_messages.begin()->first);
  }
  WaitingMessages(const WaitingMessages&) = delete;
  WaitingMessages& operator=(const WaitingMessages&) = delete;

  /// The message waits, and while it does its client is watched; `abandoned` is set when the client has gone.
  std::uint64_t add(SoupServerMessage* message, Abandoned abandoned) {
    constexpr auto gone =
        +[](SoupServerMessage* ended, gpointer self) { static_cast<WaitingMessages*>(self)->forget(ended); };
    soup_server_message_pause(message);
    g_signal_connect(message, "finished", G_CALLBACK(gone), this);
    g_signal_connect(message, "disconnected", G_CALLBACK(gone), this);
    Waiting& waiting = m_messages[++m_last];
    waiting.message = SOUP_SERVER_MESSAGE(g_object_ref(message));
    waiting.abandoned = std::move(abandoned);
    watch(waiting);
    return m_last;
  }

  /// Nothing for a message whose client has gone.
  void finish(std::uint64_t id, const std::string& output) {
    const auto found = m_messages.find(id);
    if (found == m_messages.end()) return;
    SoupServerMessage* const message = found->second.message;
    answer(message, output);
    soup_server_message_unpause(message);
    release(id);
  }

 private:
  struct Waiting {
    SoupServerMessage* message;
    Abandoned abandoned;
    GSource* watch = nullptr;
  };

  /// Whom the watch is about; it may outlive the entry.
  struct Client {
    GLibPtr<SoupServerMessage> message;
    Abandoned abandoned;
  };

  /// libsoup does not look at the connection of a paused message.
  void watch(Waiting& waiting) {
    waiting.watch = g_socket_create_source(workstation::socketOf(waiting.message), G_IO_IN, nullptr);
    constexpr auto readable = +[](GSocket* ready, GIOCondition, gpointer data) -> gboolean {
      char byte = 0;
      const ssize_t got = ::recv(g_socket_get_fd(ready), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
      if (got > 0) return G_SOURCE_REMOVE;  // it goes on speaking: it is there
      if (got < 0 && (errno == EAGAIN || errno == EINTR)) return G_SOURCE_CONTINUE;
      const auto* client = static_cast<Client*>(data);
      *client->abandoned = true;
      workstation::dropConnection(client->message.get());
      return G_SOURCE_REMOVE;
    };
    auto client = std::make_unique<Client>(Client{share(waiting.message), waiting.abandoned});
    g_source_set_callback(waiting.watch, G_SOURCE_FUNC(readable), client.release(),
                          [](gpointer data) { std::unique_ptr<Client>(static_cast<Client*>(data)); });
    g_source_attach(waiting.watch, m_context);
  }

  void forget(SoupServerMessage* message) {
    for (const auto& [id, waiting] : m_messages) {
      if (waiting.message == message) return release(id);
    }
  }

  void release(std::uint64_t id) {
    const auto node = m_messages.extract(id);
    const Waiting& waiting = node.mapped();
    *waiting.abandoned = true;
    g_source_destroy(waiting.watch);
    g_source_unref(waiting.watch);
    g_signal_handlers_disconnect_by_data(waiting.message, this);
    g_object_unref(waiting.message);
  }

  GMainContext* m_context;
  std::map<std::uint64_t, Waiting> m_messages;
  std::uint64_t m_last = 0;
};

/// What the program's main thread has yet to do.
class MainThreadQueue {
 public:
  MainThreadQueue() : m_source(g_source_new(&s_functions, sizeof(GSource))) {
    g_source_set_callback(m_source, &MainThreadQueue::serve, this, nullptr);
    g_source_attach(m_source, nullptr);
  }
  ~MainThreadQueue() {
    g_source_destroy(m_source);
    g_source_unref(m_source);
  }
  MainThreadQueue(const MainThreadQueue&) = delete;
  MainThreadQueue& operator=(const MainThreadQueue&) = delete;

  /// A task that is left out once it is abandoned; with none, it never is. From any thread; false when too many wait.
  bool push(std::function<void()> run, Abandoned abandoned) {
    const std::lock_guard lock(m_mutex);
    std::erase_if(m_tasks, isAbandoned);
    if (m_tasks.size() >= kMostWaiting) return false;
    m_tasks.push_back({std::move(run), std::move(abandoned)});
    g_source_set_ready_time(m_source, 0);
    return true;
  }

 private:
  static constexpr size_t kMostWaiting = 256;
  static constexpr std::chrono::seconds kLongestTurn{1};

  struct Task {
    std::function<void()> run;
    Abandoned abandoned;
  };
  static bool isAbandoned(const Task& task) { return task.abandoned && *task.abandoned; }

  /// All that wait are served in one turn of the main loop: there may be only one between two cycles. Only what would
  /// keep the next cycle waiting for long, such as saves while the lens does not answer, goes on after it.
  static gboolean serve(gpointer self) {
    auto* queue = static_cast<MainThreadQueue*>(self);
    std::deque<Task> tasks;
    {
      const std::lock_guard lock(queue->m_mutex);
      tasks.swap(queue->m_tasks);
      g_source_set_ready_time(queue->m_source, -1);
    }
    const auto end = std::chrono::steady_clock::now() + kLongestTurn;
    for (; !tasks.empty() && std::chrono::steady_clock::now() < end; tasks.pop_front()) {
      if (!isAbandoned(tasks.front())) tasks.front().run();
    }
    queue->putBack(std::move(tasks));
    return G_SOURCE_CONTINUE;
  }

  void putBack(std::deque<Task> tasks) {
    if (tasks.empty()) return;
    const std::lock_guard lock(m_mutex);
    m_tasks.insert(m_tasks.begin(), std::make_move_iterator(tasks.begin()), std::make_move_iterator(tasks.end()));
    g_source_set_ready_time(m_source, 0);
  }

  static gboolean dispatch(GSource* /*source*/, GSourceFunc callback, gpointer self) { return callback(self); }
  static inline GSourceFuncs s_functions = {nullptr, nullptr, &MainThreadQueue::dispatch, nullptr, nullptr, nullptr};

  std::mutex m_mutex;
  std::deque<Task> m_tasks;
  GSource* m_source;
};

/// Gives the system back, each minute, what lies free between other things: what comes and goes with viewers and pages
/// leaves gaps between what stays, which would grow for hours. Where the C library can do that.
GLibPtr<GSource> memoryGivenBack(GMainContext* context) {
  constexpr guint kPeriod_s = 60;
  GLibPtr<GSource> source(g_timeout_source_new_seconds(kPeriod_s));
  constexpr auto act = +[](gpointer /*nothing*/) -> gboolean {
#ifdef __GLIBC__
    malloc_trim(0);
#endif
    return G_SOURCE_CONTINUE;
  };
  g_source_set_callback(source.get(), act, nullptr, nullptr);
  g_source_attach(source.get(), context);
  return source;
}

void noteCalls(const std::string& by, const std::string& from, const std::string& to) {
  workstation::noteChange(by, "calls", from, to);
}

/// Of a live run: who is called, whether a page is served or not.
struct Calls {
  Calls() = default;
  ~Calls() { desk->close(); }
  Calls(const Calls&) = delete;
  Calls& operator=(const Calls&) = delete;

  std::shared_ptr<workstation::Cursors> cursors = std::make_shared<workstation::Cursors>();
  std::shared_ptr<workstation::AlarmDesk> desk =
      workstation::AlarmDesk::open({.floor = [known = cursors] { return known->load(); }});
  workstation::PostOffice post{desk, cursors};
};

}  // namespace

struct _AXHttpHandler {
  _AXHttpHandler(AXRequestCallback handler_callback, gpointer handler_data)
      : callback(handler_callback),
        user_data(handler_data),
        settings(serverSettings()),
        calls(ticker_clock::isReplay() ? nullptr : std::make_unique<Calls>()),
        server(settings),
        waiting(server.context()),
        feed(server),
        streams(server) {
    workstation::addSession(server, settings.access);
    workstation::addPeople(server, settings.access, workstation::noteChange);
    workstation::addAuthority(server, variable("VELMOR_TLS"));
    if (const std::string folder = variable("VELMOR_TLS"); !folder.empty()) {
      certificate.emplace(server, workstation::CertificateKeeper::Settings{.folder = folder});
    }
    if (calls) alarms.emplace(server, *calls->desk, calls->post, workstation::AlarmServiceSettings{.note = noteCalls});
    workstation::addWhy(server, workstation::liveExplanation);
    workstation::addCamera(server, {.checker = besideThisProgram("velmor_camera")});
    workstation::addSight(server);
    workstation::addSettings(
        server, workstation::manifestPath(kApplication),
        [this](SoupServerMessage* message, const workstation::ParameterGroup& brought) { accept(message, brought); });
    server.setProgram([this](SoupServerMessage* message, const ProgramRequest& request) { accept(message, request); });
  }
  ~_AXHttpHandler() { server.stop(); }
  _AXHttpHandler(const _AXHttpHandler&) = delete;
  _AXHttpHandler& operator=(const _AXHttpHandler&) = delete;

  /// On the server's thread. What changes something is never left out.
  void accept(SoupServerMessage* message, const ProgramRequest& request) {
    const std::string by = workstation::visitorOf(message).name;
    answerFromMainThread(message, onlyReads(request),
                         [this, request, by] { return call(request, by).value_or(kNotStored); });
  }
  void accept(SoupServerMessage* message, const workstation::ParameterGroup& brought) {
    const std::string by = workstation::visitorOf(message).name;
    answerFromMainThread(message, false, [this, brought, by] {
      return formatted(workstation::importSettings(brought, [this, &by](const HttpQuery& query) {
        return call({std::string("/local/") + kApplication + "/control.cgi", "POST", {}, query}, by);
      }));
    });
  }

  void answerFromMainThread(SoupServerMessage* message, bool only_reads, const std::function<std::string()>& reply) {
    const auto abandoned = std::make_shared<std::atomic<bool>>(false);
    const std::uint64_t id = waiting.add(message, abandoned);
    const auto run = [this, id, reply] { server.invoke([this, id, text = reply()] { waiting.finish(id, text); }); };
    if (!queue.push(run, only_reads ? abandoned : nullptr)) waiting.finish(id, kTooManyWaiting);
  }

  /// On the main thread: the program's reply, none when what it has set is not on disk.
  std::optional<std::string> call(const ProgramRequest& request, const std::string& by) const {
    const GLibPtr<GOutputStream> output(g_memory_output_stream_new_resizable());
    const auto table = tableOf(request);
    workstation::ParameterBatch batch(by);
    callback(request.path.c_str(), request.method.c_str(), request.query ? request.query->c_str() : nullptr,
             table.get(), output.get(), user_data);
    auto* memory = G_MEMORY_OUTPUT_STREAM(output.get());
    std::string reply(static_cast<const char*>(g_memory_output_stream_get_data(memory)),
                      g_memory_output_stream_get_data_size(memory));
    if (!batch.finish()) return std::nullopt;
    return reply;
  }

  AXRequestCallback callback;
  gpointer user_data;
  MainThreadQueue queue;
  const workstation::HttpServerSettings settings;
  std::unique_ptr<Calls> calls;  ///< none in a replay
  HttpServer server;
  WaitingMessages waiting;
  workstation::EventFeed feed;
  workstation::ViewStreams streams;
  GLibPtr<GSource> given_back = memoryGivenBack(server.context());
  std::optional<workstation::AlarmService> alarms;
  std::optional<workstation::CertificateKeeper> certificate;
};

AXHttpHandler* ax_http_handler_new(AXRequestCallback callback, gpointer user_data) {
  tellStarted();
  try {
    auto handler = std::make_unique<AXHttpHandler>(callback, user_data);
    const std::string where = ticker_clock::isReplay() ? "" : variable("VELMOR_LISTEN");
    if (!where.empty()) {
      const workstation::ListenAddress listen = workstation::parseListenAddress(where);
      const std::uint16_t port = handler->server.listen(listen);
      if (variable("VELMOR_OUTPUT") == "text") {
        std::printf("Page: %s\n",
                    workstation::pageAddress(listen.address, port, !handler->settings.certificate.empty()).c_str());
        std::fflush(stdout);
      }
    }
    return handler.release();
  } catch (const std::exception& exception) {
    syslog(LOG_ERR, "%s", exception.what());
    return nullptr;
  }
}

void ax_http_handler_free(AXHttpHandler* handler) { delete handler; }
