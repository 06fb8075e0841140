#include "platform/workstation/outside/post_office.h"

#include <glib.h>
#include <syslog.h>

#include <algorithm>
#include <list>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/support/owners.h"
#include "platform/workstation/alarms/alarm_entry.h"
#include "platform/workstation/outside/outgoing_message.h"
#include "platform/workstation/outside/webhook_sender.h"
#include "platform/workstation/system/health.h"
#include "platform/workstation/system/signal_mask.h"
#include "platform/workstation/system/utc_text.h"

namespace workstation {
namespace {

constexpr std::chrono::seconds kPatienceAtEnd{2};
constexpr guint kLook_ms = 1000;

GLibPtr<GSource> timerFor(std::chrono::milliseconds span, GMainContext* context, std::function<void()> call) {
  GLibPtr<GSource> timer(g_timeout_source_new(static_cast<guint>(span.count())));
  constexpr auto ring = +[](gpointer data) -> gboolean {
    const std::function<void()> ringing = *static_cast<std::function<void()>*>(data);  // it may end the timer
    ringing();
    return G_SOURCE_CONTINUE;
  };
  g_source_set_callback(timer.get(), ring, std::make_unique<std::function<void()>>(std::move(call)).release(),
                        [](gpointer data) {
                          const std::unique_ptr<std::function<void()>> owned(static_cast<std::function<void()>*>(data));
                        });
  g_source_attach(timer.get(), context);
  return timer;
}

}  // namespace

/// All but the listener's calls and receivers() run on the thread.
class PostOffice::Implementation : public AlarmListener {
 public:
  Implementation(std::shared_ptr<AlarmDesk> desk, std::shared_ptr<Cursors> cursors, PostOfficeSettings settings);
  ~Implementation() override;
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void onEntry(const AlarmEntry& entry) override;
  void onCalls(const CallSettings& calls) override;
  void onPast(std::uint64_t version) override;
  [[nodiscard]] std::vector<ReceiverStatus> receivers() const;

 private:
  /// The way to one receiver.
  struct Line {
    Receiver receiver;
    Cursor cursor;
    std::unique_ptr<Sender> sender;
    GLibPtr<GSource> pause;  ///< after a failure
    ReceiverStatus status;
    std::uint64_t sending = 0;  ///< a number; 0 for none
    std::uint64_t waiting = 1;  ///< the number that it is to take next, or one below; 0 for none
    int failures = 0;           ///< in a row
    bool sends_test = false;
    bool goes_back = false;  ///< what is being sent now does not count
  };

  void invoke(std::function<void()> function);
  void work();
  void setReceivers(const CallSettings& calls);
  void addLine(std::list<Line>& lines, const Receiver& receiver, int level);
  [[nodiscard]] Cursor firstCursor() const;
  void goBack(Line& line);
  void sendNext(Line& line);
  void finish(Line& line, const Delivery& delivery);
  void hurry();
  void storeCursors();
  void keepWhatWaits();
  void publish();

  const std::shared_ptr<AlarmDesk> m_desk;
  const std::shared_ptr<Cursors> m_cursors;
  const PostOfficeSettings m_settings;
  const GLibPtr<GMainContext> m_context;
  const GLibPtr<GMainLoop> m_loop;
  std::list<Line> m_lines;       ///< which do not move
  bool m_knows_past;             ///< the lines begin where they have to
  bool m_has_receivers = false;  ///< even if there are none: they were told
  GLibPtr<GSource> m_look;
  mutable std::mutex m_mutex;
  std::vector<ReceiverStatus> m_published;
  std::thread m_thread;
};

PostOffice::Implementation::Implementation(std::shared_ptr<AlarmDesk> desk, std::shared_ptr<Cursors> cursors,
                                           PostOfficeSettings settings)
    : m_desk(std::move(desk)),
      m_cursors(std::move(cursors)),
      m_settings(std::move(settings)),
      m_context(g_main_context_new()),
      m_loop(g_main_loop_new(m_context.get(), FALSE)) {
  m_desk->listen(*this);
  m_knows_past = m_desk->isPastKnown();
  if (m_desk->areCallsKnown()) invoke([this] { setReceivers(m_desk->calls()); });
  const ScopedSigtermBlock no_sigterm;
  m_thread = std::thread([this] { work(); });
}

PostOffice::Implementation::~Implementation() {
  m_desk->stopListening(*this);
  invoke([this] { g_main_loop_quit(m_loop.get()); });
  m_thread.join();
  m_cursors->drain(kPatienceAtEnd);
  endTrouble(Trouble::kReceiverNotReached);
}

void PostOffice::Implementation::work() {
  g_main_context_push_thread_default(m_context.get());
  m_look = timerFor(std::chrono::milliseconds(kLook_ms), m_context.get(), [this] { publish(); });
  g_main_loop_run(m_loop.get());
  m_look.reset();
  m_lines.clear();
  // What libsoup has left to do of tries that were given up; nothing of it waits for anybody.
  while (g_main_context_iteration(m_context.get(), FALSE) != FALSE) {
  }
  g_main_context_pop_thread_default(m_context.get());
}

void PostOffice::Implementation::invoke(std::function<void()> function) {
  GSource* const source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  constexpr auto call = +[](gpointer data) -> gboolean {
    (*static_cast<std::function<void()>*>(data))();
    return G_SOURCE_REMOVE;
  };
  g_source_set_callback(source, call, std::make_unique<std::function<void()>>(std::move(function)).release(),
                        [](gpointer data) {
                          const std::unique_ptr<std::function<void()>> owned(static_cast<std::function<void()>*>(data));
                        });
  g_source_attach(source, m_context.get());
  g_source_unref(source);
}

// What is new.

void PostOffice::Implementation::onEntry(const AlarmEntry& entry) {
  const bool is_urgent =
      entry.kind == AlarmEntry::Kind::kTest || (entry.kind == AlarmEntry::Kind::kCalled && !entry.repeat);
  invoke([this, is_urgent] {
    if (is_urgent) hurry();
    for (Line& line : m_lines) sendNext(line);
  });
}

void PostOffice::Implementation::onCalls(const CallSettings& calls) {
  invoke([this, calls] { setReceivers(calls); });
}

void PostOffice::Implementation::onPast(std::uint64_t /*version*/) {
  invoke([this] {
    for (Line& line : m_lines) goBack(line);
    m_knows_past = true;
    if (!m_has_receivers) return;  // nobody would look as if nobody waited; setReceivers does the rest
    storeCursors();
    for (Line& line : m_lines) sendNext(line);
    keepWhatWaits();
  });
}

/// To where the receiver was before: what the journal has kept for it comes first, and what it was told while that
/// could not be read once more.
void PostOffice::Implementation::goBack(Line& line) {
  const auto before = m_cursors->of(line.receiver.name);
  if (!before && !m_cursors->isLost()) return;
  line.cursor = before.value_or(firstCursor());
  line.goes_back = line.sending != 0;
  line.waiting = 1;
}

/// Somebody needs help now: who could not be reached is tried at once.
void PostOffice::Implementation::hurry() {
  for (Line& line : m_lines) line.pause.reset();
}

void PostOffice::Implementation::setReceivers(const CallSettings& calls) {
  m_has_receivers = true;
  std::list<Line> before = std::exchange(m_lines, {});
  for (int level = 1; level <= calls.lastLevel(); ++level) {
    for (const Receiver& receiver : calls.levels[static_cast<std::size_t>(level) - 1]) {
      const auto same =
          std::find_if(before.begin(), before.end(), [&](const Line& line) { return line.receiver == receiver; });
      if (same == before.end()) {
        addLine(m_lines, receiver, level);
      } else {
        same->status.level = level;
        m_lines.splice(m_lines.end(), before, same);
      }
    }
  }
  storeCursors();
  for (Line& line : m_lines) sendNext(line);
  keepWhatWaits();
  publish();
}

void PostOffice::Implementation::addLine(std::list<Line>& lines, const Receiver& receiver, int level) {
  std::unique_ptr<Sender> sender;
  if (m_settings.makeSender) {
    sender = m_settings.makeSender(receiver);
  } else if (receiver.kind == "webhook") {
    sender = std::make_unique<WebhookSender>(receiver.url, receiver.secret, m_settings.patience);
  }
  if (!sender) return;
  Line& line = lines.emplace_back();
  line.receiver = receiver;
  line.sender = std::move(sender);
  line.status.name = receiver.name;
  line.status.kind = receiver.kind;
  line.status.level = level;
  line.cursor = m_cursors->of(receiver.name).value_or(firstCursor());
}

/// A receiver that is new begins at now. When it is not known who has got what, all that is open goes out once more.
Cursor PostOffice::Implementation::firstCursor() const {
  const std::uint64_t now = m_desk->lastNumber();
  if (!m_cursors->isLost()) return {now, 0};
  return {m_desk->firstOpen().value_or(now + 1) - 1, 0};
}

// One line.

void PostOffice::Implementation::sendNext(Line& line) {
  if (line.sending != 0 || line.pause) return;
  const std::uint64_t after = std::max(line.cursor.begins, line.cursor.done);
  const auto next = m_desk->nextFor(after, line.cursor.begins, line.status.level);
  line.status.waits = next.has_value();
  line.waiting = next ? next->entry.number : 0;
  keepWhatWaits();
  if (!next) return;
  line.sending = next->entry.number;
  line.sends_test = next->entry.kind == AlarmEntry::Kind::kTest;
  line.sender->send(messageOf(*next, line.cursor.done),
                    [this, &line](const Delivery& delivery) { finish(line, delivery); });
}

void PostOffice::Implementation::finish(Line& line, const Delivery& delivery) {
  const std::uint64_t number = std::exchange(line.sending, 0);
  const bool counts = !std::exchange(line.goes_back, false);
  ReceiverStatus& status = line.status;
  status.time = ticker_clock::now();
  status.words = delivery.words;
  if (line.sends_test) status.test = ReceiverStatus::Test{number, delivery.is_taken, delivery.words};
  const bool was_reached = status.state != ReceiverStatus::State::kNotReached;
  status.state = delivery.is_taken ? ReceiverStatus::State::kReached : ReceiverStatus::State::kNotReached;
  if (delivery.is_taken) {
    if (!was_reached) ::syslog(LOG_INFO, "%s is reached again", line.receiver.name.c_str());
    status.since.reset();
    line.failures = 0;
    if (counts) line.cursor.done = number;
    storeCursors();
    sendNext(line);
  } else {
    if (was_reached) {
      status.since = status.time;
      ::syslog(LOG_ERR, "%s is not reached: %s", line.receiver.name.c_str(), delivery.words.c_str());
    }
    constexpr int kMostDoublings = 16;
    const auto pause = m_settings.first_pause * (1 << std::min(line.failures++, kMostDoublings));
    line.pause = timerFor(std::min(m_settings.longest_pause, pause), m_context.get(), [this, &line] {
      line.pause.reset();
      sendNext(line);
    });
  }
  publish();
}

/// Those of receivers that are not called any more are forgotten. Not before it is known what the journal has for them.
void PostOffice::Implementation::storeCursors() {
  if (!m_desk->isPastKnown()) return;
  Cursors::All all;
  for (const Line& line : m_lines) all[line.receiver.name] = line.cursor;
  m_cursors->store(all);
}

void PostOffice::Implementation::keepWhatWaits() {
  if (!m_knows_past) return;
  std::uint64_t above = kMostAlarmNumber;
  for (const Line& line : m_lines) {
    if (line.waiting > 0) above = std::min(above, line.waiting - 1);
  }
  m_desk->keepAbove(above);
}

// What others see.

void PostOffice::Implementation::publish() {
  std::string text = m_desk->callsProblem();
  if (!text.empty()) text += ". ";
  std::vector<ReceiverStatus> all;
  all.reserve(m_lines.size());
  for (const Line& line : m_lines) {
    all.push_back(line.status);
    if (line.status.state != ReceiverStatus::State::kNotReached) continue;
    text += "Since " + localClock(line.status.since.value_or(TimeStamp())) + " " + line.receiver.name +
            " is not reached: " + line.status.words + ". ";
  }
  if (text.empty()) {
    endTrouble(Trouble::kReceiverNotReached);
  } else {
    text.pop_back();
    reportTrouble(Trouble::kReceiverNotReached, text);
  }
  const std::scoped_lock lock(m_mutex);
  m_published = std::move(all);
}

std::vector<ReceiverStatus> PostOffice::Implementation::receivers() const {
  const std::scoped_lock lock(m_mutex);
  return m_published;
}

PostOffice::PostOffice(std::shared_ptr<AlarmDesk> desk, std::shared_ptr<Cursors> cursors, PostOfficeSettings settings)
    : m_implementation(std::make_unique<Implementation>(std::move(desk), std::move(cursors), std::move(settings))) {}

PostOffice::~PostOffice() = default;

std::vector<ReceiverStatus> PostOffice::receivers() const { return m_implementation->receivers(); }

}  // namespace workstation
