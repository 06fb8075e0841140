#include "platform/workstation/web/event_feed.h"

#include <algorithm>
#include <chrono>
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
#include "platform/workstation/web/access/forms.h"
#include "platform/workstation/web/feed_viewers.h"

namespace workstation {
namespace {

using nlohmann::ordered_json;

constexpr const char* kPath = "/platform/events";
constexpr std::chrono::hours kHistory{12};
constexpr guint kHeartbeat_ms = 1000;

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
  return feedMessage("heartbeat", oneLine(beat));
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
  std::string stateMessage(std::uint64_t& last) const;

  HttpServer& m_server;
  EventFeedLimits m_limits;
  FeedViewers m_viewers;
  GLibPtr<GSource> m_heartbeat;
};

EventFeed::Implementation::Implementation(HttpServer& server, const EventFeedLimits& limits)
    : m_server(server),
      m_limits(limits),
      m_viewers({limits.viewers, limits.unsent_bytes}),
      m_heartbeat(g_timeout_source_new(kHeartbeat_ms)) {
  server.addEndpoint(kPath, [this](SoupServerMessage* message, const HttpQuery&) {
    m_viewers.welcome(message, [this](std::uint64_t& last) { return stateMessage(last) + heartbeat(); });
  });
  g_source_set_callback(
      m_heartbeat.get(),
      [](gpointer self) -> gboolean {
        static_cast<Implementation*>(self)->m_viewers.sendToAll(heartbeat());
        return G_SOURCE_CONTINUE;
      },
      this, nullptr);
  g_source_attach(m_heartbeat.get(), server.context());
  listenToEvents(*this);
}

EventFeed::Implementation::~Implementation() { stopListeningToEvents(*this); }

void EventFeed::Implementation::onEvent(const EventRecord& record) {
  const std::string text =
      feedMessage(record.kind == "changed" ? "change" : record.kind, oneLine(messageOf(record)), record.number);
  m_server.invoke([this, number = record.number, text] { m_viewers.sendNewer(text, number); });
}

void EventFeed::Implementation::onPast() {
  m_server.invoke([this] { m_viewers.sendFirst([this](std::uint64_t& last) { return stateMessage(last); }); });
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
  return "retry: 2000\n" + feedMessage("state", oneLine(state), last);
}

EventFeed::EventFeed(HttpServer& server, const EventFeedLimits& limits)
    : m_implementation(std::make_unique<Implementation>(server, limits)) {}

EventFeed::~EventFeed() = default;

}  // namespace workstation
