// The camera's web server on a workstation: requests for the program wait for its main loop, everything else is
// answered on the server's own thread.
#include <axhttp.h>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "app/package_path.h"
#include "platform/clock/clock.h"
#include "platform/workstation/durable_file.h"
#include "platform/workstation/event_feed.h"
#include "platform/workstation/http_server.h"
#include "platform/workstation/parameter_batch.h"
#include "platform/workstation/state_directory.h"
#include "platform/workstation/view_streams.h"

using workstation::HttpServer;
using workstation::ProgramRequest;

namespace {

constexpr const char* kApplication = "velmor_care";
/// Instead of the program's reply when what it has set is not on disk.
constexpr const char* kNotStored =
    "Status: 500 Internal Server Error\r\nContent-Type: text/plain\r\n\r\n"
    "The settings are in use but could not be stored; the system log says why.\n";

struct Unref {
  void operator()(gpointer object) const { g_object_unref(object); }
};

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

/// What the launcher has put into the pipe whose number is in the environment; the pipe is used up. Throws
/// std::runtime_error.
std::string inheritedPassword() {
  const std::string number = variable("VELMOR_PASSWORD_FD");
  if (number.empty()) return "";
  ::unsetenv("VELMOR_PASSWORD_FD");
  const workstation::FileDescriptor pipe(std::atoi(number.c_str()));
  std::string password;
  char block[1024];
  for (ssize_t got = 0; (got = ::read(pipe.get(), block, sizeof block)) != 0;) {
    if (got < 0 && errno != EINTR) throw std::runtime_error("the password cannot be read from the launcher");
    password.append(block, got > 0 ? static_cast<size_t>(got) : 0);
  }
  return password;
}

workstation::HttpServerSettings settings() {
  workstation::HttpServerSettings settings;
  settings.application = kApplication;
  settings.page = packagePath(std::string("/usr/local/packages/") + kApplication + "/html");
  settings.user = {variable("VELMOR_USER"), inheritedPassword()};
  return settings;
}

/// A hash table of the parameters, none for a request without.
std::unique_ptr<GHashTable, decltype(&g_hash_table_unref)> tableOf(const ProgramRequest& request) {
  std::unique_ptr<GHashTable, decltype(&g_hash_table_unref)> table(nullptr, &g_hash_table_unref);
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

/// Messages whose answers the program owes; on the server's thread only.
class WaitingMessages {
 public:
  WaitingMessages() = default;
  ~WaitingMessages() {
    while (!m_messages.empty()) release(m_messages.begin()->first);
  }
  WaitingMessages(const WaitingMessages&) = delete;
  WaitingMessages& operator=(const WaitingMessages&) = delete;

  std::uint64_t add(SoupServerMessage* message) {
    constexpr auto gone =
        +[](SoupServerMessage* ended, gpointer self) { static_cast<WaitingMessages*>(self)->forget(ended); };
    soup_server_message_pause(message);
    g_signal_connect(message, "finished", G_CALLBACK(gone), this);
    g_signal_connect(message, "disconnected", G_CALLBACK(gone), this);
    m_messages.emplace(++m_last, SOUP_SERVER_MESSAGE(g_object_ref(message)));
    return m_last;
  }

  /// Nothing for a message whose client has gone.
  void finish(std::uint64_t id, const std::string& output) {
    const auto found = m_messages.find(id);
    if (found == m_messages.end()) return;
    answer(found->second, output);
    soup_server_message_unpause(found->second);
    release(id);
  }

 private:
  void forget(SoupServerMessage* message) {
    for (const auto& [id, waiting] : m_messages) {
      if (waiting == message) return release(id);
    }
  }

  void release(std::uint64_t id) {
    const auto node = m_messages.extract(id);
    g_signal_handlers_disconnect_by_data(node.mapped(), this);
    g_object_unref(node.mapped());
  }

  std::map<std::uint64_t, SoupServerMessage*> m_messages;
  std::uint64_t m_last = 0;
};

/// What the program's main thread has yet to do.
class MainThreadQueue {
 public:
  MainThreadQueue() : m_source(g_source_new(&s_functions, sizeof(GSource))) {
    g_source_set_callback(m_source, &MainThreadQueue::next, this, nullptr);
    g_source_attach(m_source, nullptr);
  }
  ~MainThreadQueue() {
    g_source_destroy(m_source);
    g_source_unref(m_source);
  }
  MainThreadQueue(const MainThreadQueue&) = delete;
  MainThreadQueue& operator=(const MainThreadQueue&) = delete;

  /// From any thread.
  void push(std::function<void()> task) {
    const std::lock_guard lock(m_mutex);
    m_tasks.push_back(std::move(task));
    g_source_set_ready_time(m_source, 0);
  }

 private:
  /// One task a turn of the main loop, so that the cycle's timer gets its own.
  static gboolean next(gpointer self) {
    auto* queue = static_cast<MainThreadQueue*>(self);
    std::function<void()> task;
    {
      const std::lock_guard lock(queue->m_mutex);
      if (!queue->m_tasks.empty()) {
        task = std::move(queue->m_tasks.front());
        queue->m_tasks.pop_front();
      }
      g_source_set_ready_time(queue->m_source, queue->m_tasks.empty() ? -1 : 0);
    }
    if (task) task();
    return G_SOURCE_CONTINUE;
  }

  static gboolean dispatch(GSource* /*source*/, GSourceFunc callback, gpointer self) { return callback(self); }
  static inline GSourceFuncs s_functions = {nullptr, nullptr, &MainThreadQueue::dispatch, nullptr, nullptr, nullptr};

  std::mutex m_mutex;
  std::deque<std::function<void()>> m_tasks;
  GSource* m_source;
};

}  // namespace

struct _AXHttpHandler {
  _AXHttpHandler(AXRequestCallback handler_callback, gpointer handler_data)
      : callback(handler_callback),
        user_data(handler_data),
        server(settings()),
        feed(server, workstation::stateDirectory() / "events.jsonl"),
        streams(server) {
    server.setProgram([this](SoupServerMessage* message, const ProgramRequest& request) {
      queue.push([this, id = waiting.add(message), request] { call(id, request); });
    });
  }
  ~_AXHttpHandler() { server.stop(); }
  _AXHttpHandler(const _AXHttpHandler&) = delete;
  _AXHttpHandler& operator=(const _AXHttpHandler&) = delete;

  /// On the main thread.
  void call(std::uint64_t id, const ProgramRequest& request) {
    const std::unique_ptr<GOutputStream, Unref> output(g_memory_output_stream_new_resizable());
    const auto table = tableOf(request);
    workstation::ParameterBatch batch;
    callback(request.path.c_str(), request.method.c_str(), request.query ? request.query->c_str() : nullptr,
             table.get(), output.get(), user_data);
    auto* memory = G_MEMORY_OUTPUT_STREAM(output.get());
    std::string reply(static_cast<const char*>(g_memory_output_stream_get_data(memory)),
                      g_memory_output_stream_get_data_size(memory));
    if (!batch.finish()) {
      reply = kNotStored;
    }
    server.invoke([this, id, reply = std::move(reply)] { waiting.finish(id, reply); });
  }

  AXRequestCallback callback;
  gpointer user_data;
  MainThreadQueue queue;
  HttpServer server;
  WaitingMessages waiting;
  workstation::EventFeed feed;
  workstation::ViewStreams streams;
};

AXHttpHandler* ax_http_handler_new(AXRequestCallback callback, gpointer user_data) {
  try {
    auto handler = std::make_unique<AXHttpHandler>(callback, user_data);
    const std::string where = ticker_clock::isReplay() ? "" : variable("VELMOR_LISTEN");
    if (!where.empty()) {
      const workstation::ListenAddress listen = workstation::parseListenAddress(where);
      const std::uint16_t port = handler->server.listen(listen);
      if (variable("VELMOR_OUTPUT") == "text") {
        std::printf("Page: %s\n", workstation::pageAddress(listen.address, port).c_str());
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
