#include "platform/workstation/web/check_process.h"

#include <gio/gio.h>
#include <syslog.h>

#include <mutex>
#include <thread>
#include <utility>

#include "platform/support/owners.h"
#include "platform/workstation/system/signal_mask.h"

namespace workstation {
namespace {

CheckProcess::Answer apart(GBytes* output) {
  gsize size = 0;
  const auto* bytes = static_cast<const char*>(g_bytes_get_data(output, &size));
  const std::string all = bytes == nullptr ? "" : std::string(bytes, size);
  const std::size_t line = all.find('\n');
  if (line == std::string::npos) return {};
  return {all.substr(0, line), all.substr(line + 1)};
}

}  // namespace

/// A thread with a loop of its own, which the process's end or the deadline stops.
class CheckProcess::Work {
 public:
  Work(std::string program, std::string question, std::chrono::seconds patience)
      : m_program(std::move(program)), m_question(std::move(question)), m_patience(patience) {
    const ScopedSigtermBlock block;
    m_thread = std::thread([this] { run(); });
  }
  ~Work() {
    g_cancellable_cancel(m_cancel.get());
    m_thread.join();
  }
  Work(const Work&) = delete;
  Work& operator=(const Work&) = delete;

  std::optional<Answer> take() {
    const std::scoped_lock lock(m_mutex);
    return std::exchange(m_answer, std::nullopt);
  }

 private:
  void run() {
    const GLibPtr<GMainContext> context(g_main_context_new());
    g_main_context_push_thread_default(context.get());
    Answer answer = ask(context.get());
    g_main_context_pop_thread_default(context.get());
    const std::scoped_lock lock(m_mutex);
    m_answer = std::move(answer);
  }

  Answer ask(GMainContext* context) {
    CaughtError error;
    constexpr auto kFlags = static_cast<GSubprocessFlags>(
        G_SUBPROCESS_FLAGS_STDIN_PIPE | G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_SILENCE);
    const GLibPtr<GSubprocess> process(g_subprocess_new(kFlags, error.out(), m_program.c_str(), "answer", nullptr));
    if (!process) {
      syslog(LOG_ERR, "no camera can be tried: %s", error.text().c_str());
      return {};
    }
    const GLibPtr<GBytes> question(g_bytes_new(m_question.data(), m_question.size()));
    const GLibPtr<GSource> deadline(g_timeout_source_new_seconds(static_cast<guint>(m_patience.count())));
    constexpr auto late = +[](gpointer cancel) -> gboolean {
      g_cancellable_cancel(static_cast<GCancellable*>(cancel));
      return G_SOURCE_REMOVE;
    };
    g_source_set_callback(deadline.get(), late, m_cancel.get(), nullptr);
    g_source_attach(deadline.get(), context);
    GLibPtr<GAsyncResult> result;
    constexpr auto done = +[](GObject*, GAsyncResult* ready, gpointer place) {
      static_cast<GLibPtr<GAsyncResult>*>(place)->reset(G_ASYNC_RESULT(g_object_ref(ready)));
    };
    g_subprocess_communicate_async(process.get(), question.get(), m_cancel.get(), done, &result);
    while (!result) g_main_context_iteration(context, TRUE);
    GBytes* output = nullptr;
    const bool is_whole =
        g_subprocess_communicate_finish(process.get(), result.get(), &output, nullptr, error.out()) != FALSE;
    const GLibPtr<GBytes> owned(output);
    g_subprocess_force_exit(process.get());
    return is_whole && output != nullptr ? apart(output) : Answer();
  }

  const std::string m_program, m_question;
  const std::chrono::seconds m_patience;
  const GLibPtr<GCancellable> m_cancel{g_cancellable_new()};
  std::mutex m_mutex;
  std::optional<Answer> m_answer;
  std::thread m_thread;
};

CheckProcess::CheckProcess(const std::filesystem::path& program, const std::string& question,
                           std::chrono::seconds patience)
    : m_work(std::make_unique<Work>(program.string(), question, patience)) {}

CheckProcess::~CheckProcess() = default;

std::optional<CheckProcess::Answer> CheckProcess::takeAnswer() { return m_work->take(); }

}  // namespace workstation
