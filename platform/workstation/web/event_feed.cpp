#include "platform/workstation/web/event_feed.h"

#include <algorithm>
#include <chrono>
#include <list>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/support/owners.h"
#include "platform/workstation/events/event_hub.h"
#include "platform/workstation/parameters/stored_parameters.h"
#include "platform/workstation/system/health.h"
#include "platform/workstation/system/utc_text.h"

namespace workstation {
namespace {

using nlohmann::ordered_json;

constexpr const char* kPath = "/platform/events";
constexpr std::chrono::hours kHistory{12};
constexpr guint kHeartbeat_ms = 1000;

std::string oneLine(const ordered_json& json) {
  return json.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

/// A change or a beginning or end of watching, as the feed tells it.
ordered_json messageOf(const EventRecord& record) {
  ordered_json message = {{"seq", record.number}};
  if (!record.run.empty()) message["run"] = record.run;
  if (record.kind == "changed") message["name"] = record.event;
  message["active"] = record.active;
  message["time"] = utcText(record.time);
  if (!record.why.empty()) message["why"] = record.why;
  if (record.closed_at_start) message["closed_at_start"] = true;
  return message;
}

ordered_json milliseconds(const std::optional<std::chrono::nanoseconds>& span) {
  return span ? ordered_json(std::chrono::duration_cast<std::chrono::milliseconds>(*span).count()) : ordered_json();
}

/// What shows that the program lives, and how well.
ordered_json watchedMessage() {
  const auto watched = watchedFor();
  if (!watched) return {};
  return {{"falls", watched->falls}, {"exits", watched->exits}, {"beds", watched->beds}};
}

std::string heartbeat() {
  const Health health = currentHealth();
  ordered_json wrong = ordered_json::array();
  for (const auto& [what, since, text] : health.wrong) {
    wrong.push_back({{"what", nameOf(what)}, {"since", utcText(since)}, {"text", text}});
  }
  const bool has_cycled = health.cycle != 0;
  const ordered_json beat = {
      {"time", utcText(ticker_clock::now())},
      {"run", currentRun()},
      {"cycle", health.cycle},
      {"cycle_age_ms", milliseconds(health.cycle_age)},
      {"cycle_ms", milliseconds(has_cycled ? std::optional(health.beat.last_call) : std::nullopt)},
      {"picture_age_ms", milliseconds(health.picture_age)},
      {"delay_ms", milliseconds(health.delay)},
      {"picture_time", has_cycled ? ordered_json(health.is_capture_known ? "capture" : "arrival") : ordered_json()},
      {"period_ms", milliseconds(health.beat.period)},
      {"ticks_left_out", health.beat.left_out},
      {"ticks_left_out_last_minute", health.beat.left_out_last_minute},
      {"slowdown", health.slowdown},
      {"watched", watchedMessage()},
      {"wrong", wrong}};
  return "event: heartbeat\ndata: " + oneLine(beat) + "\n\n";
}

ordered_json historyOf(const EventsNow& now, TimeStamp oldest, size_t most) {
  std::vector<ordered_json> newest_first;
  for (auto change = now.changes.rbegin(); change != now.changes.rend() && newest_first.size() < most; ++change) {
    if (change->time >= oldest) newest_first.push_back(messageOf(*change));
  }
  std::reverse(newest_first.begin(), newest_first.end());
  return newest_first;
}

/// From the last beginning or end before the history on.
ordered_json watchingSince(const EventsNow& now, TimeStamp oldest) {
  const auto& all = now.watching;
  const auto later = std::find_if(all.begin(), all.end(), [&](const auto& record) { return record.time > oldest; });
  ordered_json times = ordered_json::array();
  for (auto one = later == all.begin() ? later : std::prev(later); one != all.end(); ++one) {
    times.push_back({{"active", one->active}, {"time", utcText(one->time)}});
    if (!one->why.empty()) times.back()["why"] = one->why;
  }
  return times;
}

ordered_json statesOf(const EventsNow& now) {
  ordered_json events = ordered_json::array();
  for (const auto& [topic, state] : now.states) {
    events.push_back({{"name", state.name},
                      {"active", state.active},
                      {"since", state.since ? ordered_json(utcText(*state.since)) : ordered_json()},
                      {"seq", state.number}});
  }
  return events;
}

}  // namespace

/// All but onEvent() and onPast() run on the server's thread.
class EventFeed::Implementation : public EventListener {
 public:
  Implementation(HttpServer& server, const EventFeedLimits& limits);
  ~Implementation() override;
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void onEvent(const EventRecord& record) override;
  /// Sends the state to everybody anew.
  void onPast() override;

 private:
  struct Viewer {
    GLibPtr<SoupServerMessage> message;
    std::uint64_t last;  ///< the number it knows
    size_t unsent = 0;   ///< bytes
  };

  void welcome(SoupServerMessage* message);
  std::string stateMessage(std::uint64_t& last) const;
  void send(Viewer& viewer, const std::string& text) const;
  void sendToAll(const std::string& text);
  void forget(SoupServerMessage* message);
  void release(std::list<Viewer>::iterator viewer);

  HttpServer& m_server;
  EventFeedLimits m_limits;
  std::list<Viewer> m_viewers;
  GLibPtr<GSource> m_heartbeat;
};

EventFeed::Implementation::Implementation(HttpServer& server, const EventFeedLimits& limits)
    : m_server(server), m_limits(limits), m_heartbeat(g_timeout_source_new(kHeartbeat_ms)) {
  server.addEndpoint(kPath, [this](SoupServerMessage* message, const HttpQuery&) { welcome(message); });
  g_source_set_callback(
      m_heartbeat.get(),
      [](gpointer self) -> gboolean {
        static_cast<Implementation*>(self)->sendToAll(heartbeat());
        return G_SOURCE_CONTINUE;
      },
      this, nullptr);
  g_source_attach(m_heartbeat.get(), server.context());
  listenToEvents(*this);
}

EventFeed::Implementation::~Implementation() {
  stopListeningToEvents(*this);
  m_heartbeat.reset();
  while (!m_viewers.empty()) release(m_viewers.begin());
}

void EventFeed::Implementation::onEvent(const EventRecord& record) {
  const std::string text = "id: " + std::to_string(record.number) +
                           "\nevent: " + (record.kind == "changed" ? "change" : record.kind) +
                           "\ndata: " + oneLine(messageOf(record)) + "\n\n";
  m_server.invoke([this, number = record.number, text] {
    for (auto viewer = m_viewers.begin(); viewer != m_viewers.end();) {
      Viewer& next = *viewer++;
      if (next.last < number) {
        next.last = number;
        send(next, text);
      }
    }
  });
}

void EventFeed::Implementation::onPast() {
  m_server.invoke([this] {
    for (auto viewer = m_viewers.begin(); viewer != m_viewers.end();) {
      Viewer& next = *viewer++;
      send(next, stateMessage(next.last));
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
      if (viewer.message.get() == viewed) viewer.unsent -= std::min<size_t>(viewer.unsent, bytes);
    }
  };
  constexpr auto gone =
      +[](SoupServerMessage* ended, gpointer self) { static_cast<Implementation*>(self)->forget(ended); };
  g_signal_connect(message, "wrote-body-data", G_CALLBACK(wrote), this);
  g_signal_connect(message, "finished", G_CALLBACK(gone), this);
  g_signal_connect(message, "disconnected", G_CALLBACK(gone), this);
  m_viewers.push_back({share(message), 0});
  const std::string state = stateMessage(m_viewers.back().last);
  send(m_viewers.back(), state + heartbeat());
}

/// The state as of the number `last`, which it sets: later changes follow one by one.
std::string EventFeed::Implementation::stateMessage(std::uint64_t& last) const {
  const TimeStamp time = ticker_clock::now();
  const EventsNow now = eventsNow();
  last = now.last;
  const ordered_json state = {{"time", utcText(time)},
                              {"run", now.run},
                              {"seq", last},
                              {"events", statesOf(now)},
                              {"history", historyOf(now, time - kHistory, m_limits.changes)},
                              {"watching", watchingSince(now, time - kHistory)}};
  return "retry: 2000\nid: " + std::to_string(last) + "\nevent: state\ndata: " + oneLine(state) + "\n\n";
}

void EventFeed::Implementation::send(Viewer& viewer, const std::string& text) const {
  viewer.unsent += text.size();
  if (viewer.unsent > m_limits.unsent_bytes) {
    dropConnection(viewer.message.get());
    return;
  }
  soup_message_body_append(soup_server_message_get_response_body(viewer.message.get()), SOUP_MEMORY_COPY, text.data(),
                           text.size());
  soup_server_message_unpause(viewer.message.get());
}

void EventFeed::Implementation::sendToAll(const std::string& text) {
  for (auto viewer = m_viewers.begin(); viewer != m_viewers.end();) {
    send(*viewer++, text);
  }
}

void EventFeed::Implementation::forget(SoupServerMessage* message) {
  const auto found = std::find_if(m_viewers.begin(), m_viewers.end(),
                                  [message](const Viewer& viewer) { return viewer.message.get() == message; });
  if (found != m_viewers.end()) release(found);
}

void EventFeed::Implementation::release(std::list<Viewer>::iterator viewer) {
  const GLibPtr<SoupServerMessage> message = std::move(viewer->message);
  m_viewers.erase(viewer);
  g_signal_handlers_disconnect_by_data(message.get(), this);
}

EventFeed::EventFeed(HttpServer& server, const EventFeedLimits& limits)
    : m_implementation(std::make_unique<Implementation>(server, limits)) {}

EventFeed::~EventFeed() = default;

}  // namespace workstation
