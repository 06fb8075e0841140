#include "platform/workstation/web/access/side_work.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "platform/support/owners.h"
#include "platform/workstation/web/http_server.h"

namespace workstation {

struct SideWork::State {
  explicit State(GMainContext* server) : context(g_main_context_ref(server)) {}
  ~State() {
    while (!waiting.empty()) take(waiting.begin()->first);
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  std::uint64_t add(SoupServerMessage* message) {
    constexpr auto gone = +[](SoupServerMessage* ended, gpointer self) { static_cast<State*>(self)->forget(ended); };
    soup_server_message_pause(message);
    g_signal_connect(message, "finished", G_CALLBACK(gone), this);
    g_signal_connect(message, "disconnected", G_CALLBACK(gone), this);
    waiting[++last] = share(message);
    return last;
  }

  /// Null when it has ended.
  GLibPtr<SoupServerMessage> take(std::uint64_t id) {
    auto node = waiting.extract(id);
    if (node.empty()) return nullptr;
    g_signal_handlers_disconnect_by_data(node.mapped().get(), this);
    return std::move(node.mapped());
  }

  void forget(SoupServerMessage* message) {
    for (const auto& [id, held] : waiting) {
      if (held.get() != message) continue;
      const auto released = take(id);
      return;
    }
  }

  void finish(std::uint64_t id, const Outcome& outcome) {
    const auto message = take(id);
    try {
      outcome(message.get());
    } catch (const std::exception& error) {  // which would end the program here
      if (message) answerLine(message.get(), SOUP_STATUS_INTERNAL_SERVER_ERROR, error.what());
    }
    if (message) soup_server_message_unpause(message.get());
  }

  const GLibPtr<GMainContext> context;
  std::map<std::uint64_t, GLibPtr<SoupServerMessage>> waiting;
  std::uint64_t last = 0;
};

namespace {

SideWork::Outcome outcomeOf(const std::function<SideWork::Outcome()>& work) {
  try {
    return work();
  } catch (const std::exception& error) {
    return [line = std::string(error.what())](SoupServerMessage* message) {
      if (message != nullptr) answerLine(message, SOUP_STATUS_INTERNAL_SERVER_ERROR, line);
    };
  }
}

void callOn(GMainContext* context, std::function<void()> function) {
  GSource* const source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  auto owned = std::make_unique<std::function<void()>>(std::move(function));
  g_source_set_callback(
      source,
      [](gpointer called) -> gboolean {
        (*static_cast<std::function<void()>*>(called))();
        return G_SOURCE_REMOVE;
      },
      owned.release(),
      [](gpointer called) { std::unique_ptr<std::function<void()>>(static_cast<std::function<void()>*>(called)); });
  g_source_attach(source, context);
  g_source_unref(source);
}

}  // namespace

SideWork::SideWork(GMainContext* server, std::size_t limit)
    : m_state(std::make_shared<State>(server)), m_thread(limit) {}

SideWork::~SideWork() = default;

bool SideWork::start(SoupServerMessage* message, std::function<Outcome()> work) {
  const std::uint64_t id = m_state->add(message);
  const std::shared_ptr<GMainContext> context(g_main_context_ref(m_state->context.get()), &g_main_context_unref);
  const bool is_posted = m_thread.post([state = std::weak_ptr(m_state), context, id, work = std::move(work)] {
    Outcome outcome = outcomeOf(work);
    callOn(context.get(), [state, id, outcome = std::move(outcome)] {
      if (const auto alive = state.lock()) alive->finish(id, outcome);
    });
  });
  if (!is_posted) {
    const auto taken = m_state->take(id);
    soup_server_message_unpause(message);
  }
  return is_posted;
}

}  // namespace workstation
