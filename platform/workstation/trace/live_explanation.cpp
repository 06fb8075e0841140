#include "platform/workstation/trace/live_explanation.h"

#include <chrono>
#include <deque>
#include <exception>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string_view>

#include "platform/clock/clock.h"
#include "platform/workstation/system/side_thread.h"
#include "platform/workstation/system/utc_text.h"
#include "platform/workstation/trace/trace_story.h"

namespace workstation {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t kMostWaiting = 64;  // half a minute's cycles
constexpr std::size_t kMostChanges = 200;

/// Only the side thread follows the story; what is served is the text that it leaves behind.
class LiveStory {
 public:
  void take(const std::string& lines) {
    for (std::size_t from = 0, end = 0; (end = lines.find('\n', from)) != std::string::npos; from = end + 1) {
      takeLine(std::string_view(lines).substr(from, end - from));
    }
    std::string document = write();
    const std::scoped_lock lock(m_mutex);
    m_document = std::move(document);
  }

  std::string document() {
    const std::scoped_lock lock(m_mutex);
    return m_document;
  }

 private:
  /// A line that cannot be read is left out: the program's own trace has none, and nobody is there to be told.
  void takeLine(std::string_view line) {
    try {
      for (const TraceChange& change : m_story.take(parseTraceLine(line))) keep(change);
    } catch (const std::exception&) {
      return;
    }
  }

  void keep(const TraceChange& change) {
    if (!change.seq) return;
    m_changes.push_back({{"seq", *change.seq},
                         {"run", change.run},
                         {"name", change.name},
                         {"active", change.active},
                         {"because", change.because}});
    if (m_changes.size() > kMostChanges) m_changes.pop_front();
  }

  [[nodiscard]] std::string write() const {
    ordered_json people = ordered_json::array();
    ordered_json beds = ordered_json::array();
    ordered_json time;
    const TraceMoment& moment = m_story.moment();
    if (moment.now != nullptr && !moment.now->failed) {
      const Scene scene = moment.scene();
      time = utcText(TimeStamp(std::chrono::nanoseconds(scene.now.ns)));
      for (const TracePerson& one : scene.now.people) {
        people.push_back({{"id", one.id}, {"text", asSentence(personText(one, scene))}});
      }
      for (const TraceBed& one : scene.now.beds) {
        beds.push_back({{"area", one.area}, {"text", asSentence(bedText(one, scene))}});
      }
    }
    const std::uint64_t cycle = moment.now == nullptr ? 0 : moment.now->number;
    return ordered_json{{"time", time}, {"cycle", cycle}, {"people", people}, {"beds", beds}, {"events", m_changes}}
        .dump(-1, ' ', false, ordered_json::error_handler_t::replace);
  }

  std::mutex m_mutex;
  TraceStory m_story;
  std::deque<ordered_json> m_changes;
  std::string m_document = write();
};

/// Never destroyed: the side thread may outlive main.
LiveStory& story() {
  static auto& the_story = *new LiveStory;
  return the_story;
}

}  // namespace

void tellLiveExplanation(const std::string& lines) {
  static auto& thread = *new SideThread(kMostWaiting);
  thread.post([lines] { story().take(lines); });
}

std::string liveExplanation() { return story().document(); }

}  // namespace workstation
