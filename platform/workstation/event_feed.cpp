#include "platform/workstation/event_feed.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <list>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/workstation/durable_file.h"
#include "platform/workstation/health.h"

namespace workstation {
namespace {

using nlohmann::ordered_json;

constexpr const char* kPath = "/platform/events";
constexpr std::chrono::hours kHistory{12};
/// Of the journal's end; more than so many changes take.
constexpr off_t kTailBytes = 1 << 20;
constexpr guint kHeartbeat_ms = 1000;

struct EventState {
  std::string name;
  bool active = false;
  std::optional<TimeStamp> since;
  std::uint64_t number = 0;
};

/// What is active now, and who is to be told.
struct Hub {
  std::mutex mutex;
  std::map<std::string, EventState> states;  ///< by topic
  std::uint64_t last = 0;
  EventFeed::Implementation* feed = nullptr;
};

Hub& hub() {
  static Hub hub;
  return hub;
}

std::string oneLine(const ordered_json& json) {
  return json.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

ordered_json changeOf(std::uint64_t number, const std::string& name, bool active, const std::string& time) {
  return {{"seq", number}, {"name", name}, {"active", active}, {"time", time}};
}

ordered_json milliseconds(const std::optional<std::chrono::nanoseconds>& span) {
  return span ? ordered_json(std::chrono::duration_cast<std::chrono::milliseconds>(*span).count()) : ordered_json();
}

/// What shows that the program lives, and how well.
std::string heartbeat() {
  const Health health = currentHealth();
  ordered_json wrong = ordered_json::array();
  for (const auto& [what, since, text] : health.wrong) {
    wrong.push_back({{"what", nameOf(what)}, {"since", utcText(since)}, {"text", text}});
  }
  const bool has_cycled = health.cycle != 0;
  const ordered_json beat = {
      {"time", utcText(ticker_clock::now())},
      {"cycle", health.cycle},
      {"cycle_age_ms", milliseconds(health.cycle_age)},
      {"cycle_ms", milliseconds(has_cycled ? std::optional(health.beat.last_call) : std::nullopt)},
      {"picture_age_ms", milliseconds(health.picture_age)},
      {"period_ms", milliseconds(health.beat.period)},
      {"ticks_left_out", health.beat.left_out},
      {"ticks_left_out_last_minute", health.beat.left_out_last_minute},
      {"slowdown", health.beat.slowdown},
      {"wrong", wrong}};
  return "event: heartbeat\ndata: " + oneLine(beat) + "\n\n";
}

/// The last whole lines of a file that another part of the program appends to; empty when it cannot be read.
std::string tailOf(const std::filesystem::path& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return "";
  const off_t start = std::max<off_t>(0, status.st_size - kTailBytes);
  std::string tail(static_cast<size_t>(status.st_size - start), '\0');
  const ssize_t got = ::pread(file.get(), tail.data(), tail.size(), start);
  tail.resize(got > 0 ? static_cast<size_t>(got) : 0);
  tail.resize(tail.rfind('\n') + 1);
  return start == 0 ? tail : tail.substr(tail.find('\n') + 1);
}

/// A line of the journal as a change, none for what is no change or is older or newer than asked for.
std::optional<ordered_json> changeIn(std::string_view line, double oldest, std::uint64_t last) {
  const auto record = nlohmann::json::parse(line, nullptr, false);
  if (!record.is_object() || record.value("kind", "") != "changed" || record.value("t", 0.0) < oldest ||
      record.value("seq", std::uint64_t{0}) > last) {
    return std::nullopt;
  }
  return changeOf(record.at("seq"), record.at("event"), record.at("active"), record.at("time"));
}

ordered_json historyUpTo(std::uint64_t last, const std::filesystem::path& journal, TimeStamp now, size_t changes) {
  const std::string tail = tailOf(journal);
  const double oldest = secondsOf(now - kHistory);
  std::vector<ordered_json> newest_first;
  for (std::string_view rest = tail; !rest.empty() && newest_first.size() < changes;) {
    rest.remove_suffix(1);
    const size_t start = rest.rfind('\n') + 1;
    try {
      if (auto change = changeIn(rest.substr(start), oldest, last)) newest_first.push_back(std::move(*change));
    } catch (const nlohmann::json::exception&) {
      break;  // a damaged line: what stands before it is not trusted
    }
    rest = rest.substr(0, start);
  }
  std::reverse(newest_first.begin(), newest_first.end());
  return newest_first;
}

}  // namespace

/// All but post() runs on the server's thread.
class EventFeed::Implementation {
 public:
  Implementation(HttpServer& server, std::filesystem::path journal, const EventFeedLimits& limits);
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  /// From any thread.
  void post(std::uint64_t number, const EventRecord& record);

 private:
  struct Viewer {
    SoupServerMessage* message;  ///< a reference of its own
    std::uint64_t last;          ///< the number it knows
    size_t unsent = 0;           ///< bytes
  };

  void welcome(SoupServerMessage* message);
  std::string stateMessage(std::uint64_t& last) const;
  void send(Viewer& viewer, const std::string& text) const;
  void sendToAll(const std::string& text);
  void forget(SoupServerMessage* message);
  void release(std::list<Viewer>::iterator viewer);

  HttpServer& m_server;
  std::filesystem::path m_journal;
  EventFeedLimits m_limits;
  std::list<Viewer> m_viewers;
  GSource* m_heartbeat;
};

EventFeed::Implementation::Implementation(HttpServer& server, std::filesystem::path journal,
                                          const EventFeedLimits& limits)
    : m_server(server),
      m_journal(std::move(journal)),
      m_limits(limits),
      m_heartbeat(g_timeout_source_new(kHeartbeat_ms)) {
  server.addEndpoint(kPath, [this](SoupServerMessage* message, const HttpQuery&) { welcome(message); });
  g_source_set_callback(
      m_heartbeat,
      [](gpointer self) -> gboolean {
        static_cast<Implementation*>(self)->sendToAll(heartbeat());
        return G_SOURCE_CONTINUE;
      },
      this, nullptr);
  g_source_attach(m_heartbeat, server.context());
  const std::lock_guard lock(hub().mutex);
  hub().feed = this;
}

EventFeed::Implementation::~Implementation() {
  {
    const std::lock_guard lock(hub().mutex);
    hub().feed = nullptr;
  }
  g_source_destroy(m_heartbeat);
  g_source_unref(m_heartbeat);
  while (!m_viewers.empty()) release(m_viewers.begin());
}

void EventFeed::Implementation::post(std::uint64_t number, const EventRecord& record) {
  const std::string data = oneLine(changeOf(number, record.event, record.active, utcText(record.time)));
  m_server.invoke([this, number, text = "id: " + std::to_string(number) + "\nevent: change\ndata: " + data + "\n\n"] {
    for (auto viewer = m_viewers.begin(); viewer != m_viewers.end();) {
      Viewer& next = *viewer++;
      if (next.last < number) {
        next.last = number;
        send(next, text);
      }
    }
  });
}

void EventFeed::Implementation::welcome(SoupServerMessage* message) {
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
    for (Viewer& viewer : static_cast<Implementation*>(self)->m_viewers) {
      if (viewer.message == viewed) viewer.unsent -= std::min<size_t>(viewer.unsent, bytes);
    }
  };
  constexpr auto gone =
      +[](SoupServerMessage* ended, gpointer self) { static_cast<Implementation*>(self)->forget(ended); };
  g_signal_connect(message, "wrote-body-data", G_CALLBACK(wrote), this);
  g_signal_connect(message, "finished", G_CALLBACK(gone), this);
  g_signal_connect(message, "disconnected", G_CALLBACK(gone), this);
  m_viewers.push_back({SOUP_SERVER_MESSAGE(g_object_ref(message)), 0});
  const std::string state = stateMessage(m_viewers.back().last);
  send(m_viewers.back(), state + heartbeat());
}

/// The state as of the number `last`, which it sets: later changes follow one by one.
std::string EventFeed::Implementation::stateMessage(std::uint64_t& last) const {
  ordered_json events = ordered_json::array();
  {
    const std::lock_guard lock(hub().mutex);
    last = hub().last;
    for (const auto& [topic, state] : hub().states) {
      events.push_back({{"name", state.name},
                        {"active", state.active},
                        {"since", state.since ? ordered_json(utcText(*state.since)) : ordered_json()},
                        {"seq", state.number}});
    }
  }
  const TimeStamp now = ticker_clock::now();
  const ordered_json state = {{"time", utcText(now)},
                              {"seq", last},
                              {"events", events},
                              {"history", historyUpTo(last, m_journal, now, m_limits.changes)}};
  return "retry: 2000\nid: " + std::to_string(last) + "\nevent: state\ndata: " + oneLine(state) + "\n\n";
}

void EventFeed::Implementation::send(Viewer& viewer, const std::string& text) const {
  viewer.unsent += text.size();
  if (viewer.unsent > m_limits.unsent_bytes) {
    dropConnection(viewer.message);
    return;
  }
  soup_message_body_append(soup_server_message_get_response_body(viewer.message), SOUP_MEMORY_COPY, text.data(),
                           text.size());
  soup_server_message_unpause(viewer.message);
}

void EventFeed::Implementation::sendToAll(const std::string& text) {
  for (auto viewer = m_viewers.begin(); viewer != m_viewers.end();) {
    send(*viewer++, text);
  }
}

void EventFeed::Implementation::forget(SoupServerMessage* message) {
  const auto found = std::find_if(m_viewers.begin(), m_viewers.end(),
                                  [message](const Viewer& viewer) { return viewer.message == message; });
  if (found != m_viewers.end()) release(found);
}

void EventFeed::Implementation::release(std::list<Viewer>::iterator viewer) {
  SoupServerMessage* const message = viewer->message;
  m_viewers.erase(viewer);
  g_signal_handlers_disconnect_by_data(message, this);
  g_object_unref(message);
}

EventFeed::EventFeed(HttpServer& server, std::filesystem::path journal, const EventFeedLimits& limits)
    : m_implementation(std::make_unique<Implementation>(server, std::move(journal), limits)) {}

EventFeed::~EventFeed() = default;

void resetEvents(std::uint64_t last) {
  const std::lock_guard lock(hub().mutex);
  hub().states.clear();
  hub().last = last;
}

void publishEvent(std::uint64_t number, const EventRecord& record) {
  const std::lock_guard lock(hub().mutex);
  hub().last = number;
  if (record.kind == "undeclared") {
    hub().states.erase(record.topic);
  } else if (EventState& state = hub().states[record.topic]; record.kind == "changed") {
    state = {record.event, record.active, record.time, number};
    if (hub().feed != nullptr) hub().feed->post(number, record);
  } else if (state.name.empty()) {
    state = {record.event, false, std::nullopt, number};
  }
}

}  // namespace workstation
