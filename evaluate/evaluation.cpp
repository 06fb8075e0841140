#include "evaluate/evaluation.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>

#include "evaluate/judging/judging.h"
#include "evaluate/judging/watched.h"
#include "evaluate/running/progress.h"
#include "evaluate/running/recordings.h"
#include "evaluate/running/rendering.h"
#include "evaluate/running/runs.h"
#include "platform/workstation/launcher/retrace_plan.h"

namespace evaluate {
namespace {

namespace fs = std::filesystem;
using workstation::ParameterGroup;

/// Of how networks run: a program that is told nothing looks into its environment, which is ours.
std::string saidOrInherited(const std::string& said, const char* variable) {
  const char* const inherited = std::getenv(variable);
  return said.empty() && inherited != nullptr ? inherited : said;
}

constexpr const char* kSettings = ".settings.json";

std::vector<fs::path> filesIn(const fs::path& folder) {
  std::error_code error;
  std::vector<fs::path> files;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    files.push_back(entry->path());
  }
  if (error) throw std::runtime_error(folder.string() + ": cannot be read: " + error.message());
  std::sort(files.begin(), files.end());
  return files;
}

/// One column of one recording.
struct Task {
  std::size_t recording;
  std::size_t column;
  std::string fingerprint;
  bool from_trace = false;  ///< the rules again on what the networks saw
  ParameterGroup set;       ///< counts instead of the recording's own
  fs::path trace;           ///< where it lies
  std::optional<Watched> watched;
};

class Evaluator {
 public:
  explicit Evaluator(const Request& request) : m_request(request), m_store(request.store, ".trace.jsonl") {
    addColumns({false, "", {}});
    for (const std::string& settings : request.settings) addColumns({false, settings, {}});
    for (const ParameterGroup& set : request.sets) addColumns({false, "", set});
  }

  void evaluate() {
    findRecordings();
    fingerprintPrograms();
    m_failed.resize(result.recordings.size());
    makeTasks();
    m_progress.emplace(m_request.on_terminal, result.recordings.size(), "recordings");
    runTasks(false);
    runTasks(true);
    m_progress->hide();
    for (std::size_t i = 0; i < result.recordings.size(); ++i) {
      if (!m_failed[i]) judgeRecording(i);
    }
    dropTraces();
    dropFailed();
  }

  Evaluation result;

 private:
  /// The networks' and the true people's.
  void addColumns(Column column) {
    result.columns.push_back(column);
    column.sees_truth = true;
    result.columns.push_back(std::move(column));
  }

  void findRecordings() {
    Contents contents = contentsOf(m_request.folder);
    if (contents.recordings.empty() && contents.scripts.empty() && contents.problems.empty()) {
      throw std::runtime_error(m_request.folder.string() + ": holds no NAME.happened.txt beside a video; " +
                               "docs/happened.md tells what stands in one");
    }
    for (const std::string& line : contents.problems) problem(line);
    result.recordings = std::move(contents.recordings);
    if (!contents.scripts.empty()) {
      const Rendering rendering{m_request.simulator, m_request.recordings, m_request.jobs, m_request.on_terminal};
      for (Recording& recording :
           recordingsOf(contents.scripts, rendering, [this](const std::string& line) { problem(line); })) {
        result.recordings.push_back(std::move(recording));
      }
    }
    std::stable_sort(result.recordings.begin(), result.recordings.end(),
                     [](const Recording& a, const Recording& b) { return a.name < b.name; });
    for (const std::string& settings : m_request.settings) checkSettings(settings);
  }

  /// Settings that no recording has are a slip of the pen.
  void checkSettings(const std::string& settings) const {
    const bool any = std::any_of(result.recordings.begin(), result.recordings.end(), [&](const Recording& one) {
      return fs::exists(beside(one.video, "." + settings + kSettings));
    });
    if (!any) throw std::runtime_error("--settings " + settings + ": no recording has a NAME." + settings + kSettings);
  }

  /// What every trace depends on.
  void fingerprintPrograms() {
    std::vector<fs::path> programs{m_request.program, m_request.source_tree / "package" / "manifest.json"};
    for (const char* name : {"velmor_care", "velmor_reference"}) {
      const fs::path program = m_request.program.parent_path() / name;
      if (fs::is_regular_file(program)) programs.push_back(program);
    }
    m_programs = fingerprintOf({}, programs);
    std::vector<fs::path> networks;
    for (const fs::path& file : filesIn(m_request.source_tree / "models")) {
      if (file.extension() == ".onnx" || file.extension() == ".json") networks.push_back(file);
    }
    m_networks = fingerprintOf(
        {saidOrInherited(m_request.precision, "VELMOR_PRECISION"), saidOrInherited(m_request.eyes, "VELMOR_EYES")},
        networks);
  }

  void makeTasks() {
    for (std::size_t i = 0; i < result.recordings.size(); ++i) {
      try {
        for (std::size_t column = 0; column < result.columns.size(); ++column) {
          if (hasColumn(result.recordings[i], result.columns[column])) m_tasks.push_back(taskFor(i, column));
        }
      } catch (const std::exception& error) {
        problem(error.what());
        m_failed[i] = true;
      }
    }
  }

  static bool hasColumn(const Recording& recording, const Column& column) {
    return (!column.sees_truth || fs::exists(beside(recording.video, ".truth.jsonl"))) &&
           (column.settings.empty() || fs::exists(settingsOf(recording, column)));
  }

  static fs::path settingsOf(const Recording& recording, const Column& column) {
    return beside(recording.video, (column.settings.empty() ? "" : "." + column.settings) + kSettings);
  }

  Task taskFor(std::size_t index, std::size_t column_index) {
    const Column& column = result.columns[column_index];
    const Recording& recording = result.recordings[index];
    const fs::path settings = settingsOf(recording, column);
    Task task{index, column_index, "", false, column.set, {}, {}};
    bool is_other = !column.set.empty();
    if (!column.settings.empty()) {
      const auto changes = changesTo(settings, settingsOf(recording, result.columns[kNetworksColumn]));
      is_other = changes.has_value();
      task.set = changes.value_or(task.set);
    }
    task.from_trace = !column.sees_truth && is_other && workstation::pictureKeyIn(task.set).empty();
    task.fingerprint =
        fingerprintOf({m_programs, column.setText(), column.sees_truth ? "truth" : m_networks,
                       contentOf(column.sees_truth ? beside(recording.video, ".truth.jsonl") : recording.video),
                       fs::exists(settings) ? contentOf(settings) : ""},
                      {});
    return task;
  }

  /// A file's fingerprint, made once.
  const std::string& contentOf(const fs::path& file) {
    std::string& content = m_contents[file];
    if (content.empty()) content = fingerprintOf({}, {file});
    return content;
  }

  [[nodiscard]] std::vector<std::string> wordsFor(const Task& task) const {
    const Column& column = result.columns[task.column];
    const Recording& recording = result.recordings[task.recording];
    std::vector<std::string> words{"replay", recording.video.string(), "--json"};
    if (task.from_trace) {
      words[1] = traceOf(task.recording, kNetworksColumn).string();
    } else if (const fs::path settings = settingsOf(recording, column); fs::exists(settings)) {
      words.insert(words.end(), {"--settings", settings.string()});
    }
    if (!m_request.precision.empty() && !task.from_trace && !column.sees_truth) {
      words.insert(words.end(), {"--precision", m_request.precision});
    }
    if (!m_request.eyes.empty() && !task.from_trace && !column.sees_truth) {
      words.insert(words.end(), {"--eyes", m_request.eyes});
    }
    if (column.sees_truth) words.insert(words.end(), {"--truth", beside(recording.video, ".truth.jsonl").string()});
    const ParameterGroup& set = task.from_trace ? task.set : column.set;
    if (!set.empty()) words.emplace_back("--set");
    for (const auto& [key, value] : set) words.emplace_back(key).append("=").append(value);
    return words;
  }

  [[nodiscard]] const fs::path& traceOf(std::size_t recording, std::size_t column) const {
    return std::find_if(m_tasks.begin(), m_tasks.end(),
                        [&](const Task& task) { return task.recording == recording && task.column == column; })
        ->trace;
  }

  /// Those from videos and true people first, then those from traces.
  void runTasks(bool from_trace) {
    std::vector<Run> runs;
    std::vector<fs::path> drafts;
    std::vector<Task*> of_runs;
    for (Task& task : m_tasks) {
      if (task.from_trace != from_trace || m_failed[task.recording] || isDone(task)) continue;
      const double length_s = result.recordings[task.recording].happened.length_s;
      const bool is_quick = from_trace || result.columns[task.column].sees_truth;
      constexpr double kQuick = 0.02;  // of what the networks take
      drafts.push_back(m_store.draftOf(task.fingerprint, runs.size()));
      runs.push_back({wordsFor(task), length_s * (is_quick ? kQuick : 1)});
      runs.back().words.insert(runs.back().words.end(), {"--trace", drafts.back().string()});
      of_runs.push_back(&task);
      m_progress->expect(runs.back().work_s);
    }
    runAll(m_request.program, runs, m_request.jobs, [&](std::size_t run, const std::string& problem) {
      m_progress->did(runs[run].work_s);
      ended(*of_runs[run], drafts[run], problem);
    });
  }

  /// Whether its trace is there from an earlier evaluation.
  bool isDone(Task& task) {
    const fs::path place = m_store.placeOf(task.fingerprint);
    std::error_code error;
    if (task.from_trace || !fs::exists(place, error)) return false;
    try {
      take(task, place);
    } catch (const std::exception&) {
      fs::remove(place, error);  // made anew
      return false;
    }
    fs::last_write_time(place, fs::file_time_type::clock::now(), error);
    finish(task);
    return true;
  }

  void take(Task& task, const fs::path& trace) {
    task.watched = readWatched(trace, result.recordings[task.recording].happened.length_s);
    task.trace = trace;
  }

  void ended(Task& task, const fs::path& draft, const std::string& why_not) {
    try {
      if (!why_not.empty()) throw std::runtime_error(why_not + roomText());
      take(task, draft);
      if (!task.from_trace) {
        fs::rename(draft, m_store.placeOf(task.fingerprint));
        task.trace = m_store.placeOf(task.fingerprint);
      }
      finish(task);
    } catch (const std::exception& error) {
      std::error_code ignored;
      fs::remove(draft, ignored);
      fail(task, error.what());
    }
  }

  [[nodiscard]] std::string roomText() const {
    constexpr std::uintmax_t kLittle = std::uintmax_t{16} << 20;
    std::error_code error;
    const auto room = fs::space(m_request.store, error);
    return !error && room.available < kLittle ? "; there is hardly room left on the disk of " + m_request.store.string()
                                              : "";
  }

  void finish(const Task& task) {
    const bool all = std::all_of(m_tasks.begin(), m_tasks.end(), [&task](const Task& other) {
      return other.recording != task.recording || other.watched;
    });
    if (all) m_progress->finished(result.recordings[task.recording].name);
  }

  void fail(const Task& task, const std::string& why) {
    const Recording& recording = result.recordings[task.recording];
    problem(recording.video.string() + ", " + result.columns[task.column].name() + ": " + why);
    m_failed[task.recording] = true;
  }

  void problem(const std::string& line) {
    result.problems.push_back(line);
    if (m_progress) {
      m_progress->tell(line);
    } else {
      std::fprintf(stderr, "%s\n", line.c_str());
    }
  }

  void judgeRecording(std::size_t index) {
    std::map<std::size_t, Seen> seen;
    for (Task& task : m_tasks) {
      if (task.recording == index) seen[task.column] = {std::move(*task.watched), task.trace};
    }
    try {
      judge(seen, result.recordings[index]);
    } catch (const std::exception& error) {
      problem(error.what());
      m_failed[index] = true;
    }
  }

  /// What is made from traces in a moment is not kept.
  void dropTraces() const {
    std::error_code ignored;
    for (const Task& task : m_tasks) {
      if (task.from_trace) fs::remove(task.trace, ignored);
    }
  }

  void dropFailed() {
    std::vector<Recording> kept;
    for (std::size_t i = 0; i < result.recordings.size(); ++i) {
      if (!m_failed[i]) kept.push_back(std::move(result.recordings[i]));
    }
    result.recordings = std::move(kept);
  }

  const Request& m_request;
  const Store m_store;
  std::optional<Progress> m_progress;
  std::map<fs::path, std::string> m_contents;
  std::string m_programs;
  std::string m_networks;
  std::vector<Task> m_tasks;
  std::vector<bool> m_failed;  ///< by recording
};

}  // namespace

Evaluation evaluateFolder(const Request& request) {
  Evaluator evaluator(request);
  evaluator.evaluate();
  return std::move(evaluator.result);
}

}  // namespace evaluate
