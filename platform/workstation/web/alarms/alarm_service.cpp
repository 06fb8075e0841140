#include "platform/workstation/web/alarms/alarm_service.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/workstation/system/utc_text.h"
#include "platform/workstation/web/access/forms.h"
#include "platform/workstation/web/access/visitor.h"
#include "platform/workstation/web/alarms/alarm_documents.h"
#include "platform/workstation/web/alarms/pending_replies.h"

namespace workstation {
namespace {

constexpr const char* kPath = "/platform/alarms";
constexpr const char* kFeedPath = "/platform/alarms/feed";
constexpr const char* kCallsPath = "/platform/calls";
constexpr guint kHeartbeat_ms = 5000;

/// Of whatever is wrong a line becomes the answer.
template <typename Function>
void guarded(SoupServerMessage* message, Function function) {
  try {
    function();
  } catch (const Refusal& refusal) {
    answerLine(message, refusal.status, refusal.line);
  } catch (const std::exception& mistake) {
    answerLine(message, SOUP_STATUS_BAD_REQUEST, mistake.what());
  }
}

DeskReply accepted(DeskReply reply) {
  if (reply.how == DeskReply::How::kUnknown) throw Refusal{SOUP_STATUS_NOT_FOUND, reply.line};
  if (reply.how == DeskReply::How::kRefused) throw Refusal{SOUP_STATUS_CONFLICT, reply.line};
  return reply;
}

std::chrono::minutes minutesFrom(const std::string& text) {
  int minutes = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), minutes);
  const bool is_number = error == std::errc() && end == text.data() + text.size();
  const std::chrono::minutes length(is_number ? std::clamp(minutes, 0, 1000) : 0);
  if (length < AlarmDesk::kShortestPause || length > AlarmDesk::kLongestPause) {
    throw Refusal{SOUP_STATUS_BAD_REQUEST, "minutes is a whole number from 5 to 60."};
  }
  return length;
}

}  // namespace

/// All but the listener's calls run on the server's thread.
class AlarmService::Implementation : public AlarmListener {
 public:
  Implementation(HttpServer& server, AlarmDesk& desk, const PostOffice& post, AlarmServiceSettings settings);
  ~Implementation() override;
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void onEntry(const AlarmEntry& entry) override;
  void onAlarm(const AlarmView& alarm, std::uint64_t version) override;
  void onPause(const std::optional<Pause>& pause, std::uint64_t version) override;
  void onStored(std::uint64_t number) override;
  void onPast(std::uint64_t version) override;

 private:
  /// An answer whose request waits for the disk.
  struct Waiting {
    std::uint64_t reply;  ///< PendingReplies' id
    std::string alarm;
  };

  /// For what comes late from a disk.
  struct Link {
    std::mutex mutex;
    HttpServer* server;  ///< null once the service has gone
  };

  void addAddresses(HttpServer& server);
  void beat();
  [[nodiscard]] std::string first(std::uint64_t& last) const;
  void obey(SoupServerMessage* message, const ProgramRequest& request);
  void answer(SoupServerMessage* message, const HttpQuery& form);
  void setCalls(SoupServerMessage* message, const ProgramRequest& request);
  void tellAlarm(SoupServerMessage* message, const std::string& id, bool is_stored) const;

  HttpServer& m_server;
  AlarmDesk& m_desk;
  const PostOffice& m_post;
  const AlarmServiceSettings m_settings;
  FeedViewers m_viewers;
  PendingReplies m_replies;
  std::multimap<std::uint64_t, Waiting> m_waiting;  ///< by the numbers of the answers
  GLibPtr<GSource> m_heartbeat;
  std::string m_receivers;  ///< as the feed told them last
  std::shared_ptr<Link> m_link = std::make_shared<Link>();
};

AlarmService::Implementation::Implementation(HttpServer& server, AlarmDesk& desk, const PostOffice& post,
                                             AlarmServiceSettings settings)
    : m_server(server),
      m_desk(desk),
      m_post(post),
      m_settings(std::move(settings)),
      m_viewers(m_settings.feed),
      m_replies(server.context()),
      m_heartbeat(g_timeout_source_new(kHeartbeat_ms)) {
  addAddresses(server);
  constexpr auto beat = +[](gpointer data) -> gboolean {
    static_cast<Implementation*>(data)->beat();
    return G_SOURCE_CONTINUE;
  };
  g_source_set_callback(m_heartbeat.get(), beat, this, nullptr);
  g_source_attach(m_heartbeat.get(), server.context());
  m_link->server = &server;
  m_desk.listen(*this);
}

AlarmService::Implementation::~Implementation() {
  m_desk.stopListening(*this);
  const std::scoped_lock lock(m_link->mutex);
  m_link->server = nullptr;
}

void AlarmService::Implementation::addAddresses(HttpServer& server) {
  server.addEndpoint(kPath, [this](SoupServerMessage* message, const HttpQuery&) {
    answerJson(message, SOUP_STATUS_OK, alarmsDocument(m_desk.now(), m_post.receivers()));
  });
  server.addEndpoint(kFeedPath, [this](SoupServerMessage* message, const HttpQuery&) {
    m_viewers.welcome(message, [this](std::uint64_t& last) { return "retry: 2000\n" + first(last); });
  });
  server.addEndpoint(kCallsPath, [this](SoupServerMessage* message, const HttpQuery&) {
    answerJson(message, SOUP_STATUS_OK, documentOf(m_desk.calls(), false));
  });
  server.addForm(kPath, [this](SoupServerMessage* message, const ProgramRequest& request) {
    guarded(message, [&] { obey(message, request); });
  });
  server.addForm(kCallsPath, [this](SoupServerMessage* message, const ProgramRequest& request) {
    guarded(message, [&] { setCalls(message, request); });
  });
}

// The feed.

/// What has come of calls is looked up here: nobody who calls waits for the pages.
void AlarmService::Implementation::beat() {
  const nlohmann::ordered_json heartbeat = {{"time", utcText(ticker_clock::now())}};
  m_viewers.sendToAll(feedMessage("heartbeat", heartbeat.dump()));
  std::string receivers = receiversDocument(m_post.receivers());
  if (receivers == m_receivers) return;
  m_receivers = std::move(receivers);
  m_viewers.sendToAll(feedMessage("receivers", m_receivers));
}

/// All as of the version `last`, which it sets.
std::string AlarmService::Implementation::first(std::uint64_t& last) const {
  const AlarmsNow now = m_desk.now();
  last = now.version;
  return feedMessage("alarms", alarmsDocument(now, m_post.receivers()));
}

void AlarmService::Implementation::onEntry(const AlarmEntry& entry) {
  if (entry.kind != AlarmEntry::Kind::kTest) return;
  m_server.invoke([this, entry] { m_viewers.sendToAll(feedMessage("test", testDocument(entry))); });
}

void AlarmService::Implementation::onAlarm(const AlarmView& alarm, std::uint64_t version) {
  m_server.invoke([this, alarm, version] { m_viewers.sendNewer(feedMessage("alarm", alarmDocument(alarm)), version); });
}

void AlarmService::Implementation::onPause(const std::optional<Pause>& pause, std::uint64_t version) {
  m_server.invoke([this, pause, version] { m_viewers.sendNewer(feedMessage("pause", pauseDocument(pause)), version); });
}

void AlarmService::Implementation::onPast(std::uint64_t /*version*/) {
  m_server.invoke([this] { m_viewers.sendFirst([this](std::uint64_t& last) { return first(last); }); });
}

// Answers.

void AlarmService::Implementation::obey(SoupServerMessage* message, const ProgramRequest& request) {
  const HttpQuery& form = formOf(request);
  const std::string action = fieldOf(form, "action");
  const std::string by = visitorOf(message).name;
  if (action == "answer") return answer(message, form);
  if (action == "pause") {
    accepted(m_desk.pause(minutesFrom(fieldOf(form, "minutes")), by, fieldOf(form, "reason")));
  } else if (action == "unpause") {
    accepted(m_desk.unpause(by));
  } else if (action == "test") {
    accepted(m_desk.test(by));
  } else {
    throw Refusal{SOUP_STATUS_BAD_REQUEST, "The action is answer, pause, unpause or test."};
  }
  answerJson(message, SOUP_STATUS_OK, alarmsDocument(m_desk.now(), m_post.receivers()));
}

void AlarmService::Implementation::answer(SoupServerMessage* message, const HttpQuery& form) {
  const auto what = answerFrom(fieldOf(form, "what"));
  const std::string id = fieldOf(form, "id");
  const std::string reason = fieldOf(form, "reason");
  if (!what) throw Refusal{SOUP_STATUS_BAD_REQUEST, "what is coming, seen, false_alarm or resolved."};
  if (*what == AnswerKind::kFalseAlarm && reason.find_first_not_of(" \t\r\n") == std::string::npos) {
    throw Refusal{SOUP_STATUS_BAD_REQUEST, "A false alarm needs a reason: what was it really?"};
  }
  const std::uint64_t number = accepted(m_desk.answer(id, *what, visitorOf(message).name, reason)).number;
  // onStored() comes on this thread, after this.
  const std::uint64_t reply =
      m_replies.add(message, m_settings.patience, [this, id](SoupServerMessage* late) { tellAlarm(late, id, false); });
  m_waiting.emplace(number, Waiting{reply, id});
}

void AlarmService::Implementation::onStored(std::uint64_t number) {
  m_server.invoke([this, number] {
    const auto end = m_waiting.upper_bound(number);
    for (auto next = m_waiting.begin(); next != end; next = m_waiting.erase(next)) {
      m_replies.finish(next->second.reply,
                       [this, id = next->second.alarm](SoupServerMessage* message) { tellAlarm(message, id, true); });
    }
  });
}

void AlarmService::Implementation::tellAlarm(SoupServerMessage* message, const std::string& id, bool is_stored) const {
  const auto view = m_desk.alarm(id);
  if (!view) return answerLine(message, SOUP_STATUS_NOT_FOUND, "There is no such alarm any more.");
  answerJson(message, is_stored ? SOUP_STATUS_OK : SOUP_STATUS_ACCEPTED, alarmDocument(*view, is_stored));
}

void AlarmService::Implementation::setCalls(SoupServerMessage* message, const ProgramRequest& request) {
  if (!m_desk.areCallsKnown()) {
    return answerLine(message, SOUP_STATUS_SERVICE_UNAVAILABLE,
                      "What is set for calls cannot be read yet, so nothing takes its place.");
  }
  const CallSettings before = m_desk.calls();
  const CallSettings calls = parseCallSettings(fieldOf(formOf(request), "document"), before);
  const std::string document = documentOf(calls, false);
  const std::uint64_t reply = m_replies.add(message, m_settings.patience, [](SoupServerMessage* late) {
    answerLine(late, SOUP_STATUS_ACCEPTED, "The disk does not answer: what was set counts once it is stored.");
  });
  const auto stored = [this, reply, document](const std::string& failure) {
    m_replies.finish(reply, [&](SoupServerMessage* waiting) {
      if (failure.empty()) return answerJson(waiting, SOUP_STATUS_OK, document);
      answerLine(waiting, SOUP_STATUS_INTERNAL_SERVER_ERROR, "What was set could not be stored: " + failure);
    });
  };
  const auto note = [note = m_settings.note, by = visitorOf(message).name, from = documentOf(before, false), document] {
    if (note) note(by, from, document);
  };
  m_desk.setCalls(calls, [link = m_link, stored, note](const std::string& failure) {
    if (failure.empty()) note();
    const std::scoped_lock lock(link->mutex);
    if (link->server != nullptr) link->server->invoke([stored, failure] { stored(failure); });
  });
}

AlarmService::AlarmService(HttpServer& server, AlarmDesk& desk, const PostOffice& post, AlarmServiceSettings settings)
    : m_implementation(std::make_unique<Implementation>(server, desk, post, std::move(settings))) {}

AlarmService::~AlarmService() = default;

}  // namespace workstation
