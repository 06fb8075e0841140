#include "evaluate/evaluation.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>

#include "evaluate/judging.h"
#include "evaluate/progress.h"
#include "evaluate/runs.h"
#include "evaluate/stills.h"
#include "evaluate/watched.h"
#include "platform/workstation/launcher/retrace_plan.h"

namespace evaluate {
namespace {

namespace fs = std::filesystem;
using workstation::ParameterGroup;

constexpr const char* kHappened = ".happened.txt";
constexpr std::array kVideos{".mp4", ".mkv", ".mov", ".m4v", ".avi", ".webm", ".ts", ".mpg"};
/// A length that differs by more was told of another video.
constexpr double kSameLength_s = 1;

fs::path beside(const fs::path& video, const char* ending) { return fs::path(video).replace_extension(ending); }

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

/// The one video of this name. Throws std::runtime_error.
fs::path videoOf(const fs::path& stem, const fs::path& happened) {
  std::vector<fs::path> videos;
  for (const char* ending : kVideos) {
    const fs::path video = stem.string() + ending;
    if (fs::is_regular_file(video)) videos.push_back(video);
  }
  if (videos.empty()) throw std::runtime_error(happened.string() + ": there is no video of this name beside it");
  if (videos.size() > 1) {
    throw std::runtime_error(happened.string() + ": " + videos[0].filename().string() + " and " +
                             videos[1].filename().string() + " stand beside it; allowed is one video");
  }
  return videos[0];
}

Recording recordingOf(const fs::path& happened) {
  const std::string file = happened.string();
  const fs::path stem = file.substr(0, file.size() - std::string_view(kHappened).size());
  Recording recording{stem.filename().string(), videoOf(stem, happened), readHappened(happened), {}};
  const double length_s = lengthOf(recording.video);
  if (length_s > 0 && std::abs(length_s - recording.happened.length_s) > kSameLength_s) {
    char text[96];
    std::snprintf(text, sizeof text,
                  ": the length is %g s, and the video's %.1f s; allowed is what is told of this video",
                  recording.happened.length_s, length_s);
    throw std::runtime_error(file + text);
  }
  return recording;
}

/// One column of one recording.
struct Task {
  std::size_t recording;
  std::size_t column;
  std::string fingerprint;
  bool from_trace = false;  ///< the rules again on what the networks saw
  fs::path trace;           ///< where it lies
  std::optional<Watched> watched;
};

class Evaluator {
 public:
  explicit Evaluator(const Request& request) : m_request(request), m_store(request.store) {
    result.columns = {{false, {}}, {true, {}}};
    for (const ParameterGroup& set : request.sets) {
      result.columns.push_back({false, set});
      result.columns.push_back({true, set});
    }
  }

  void evaluate() {
    findRecordings();
    fingerprintPrograms();
    m_failed.resize(result.recordings.size());
    makeTasks();
    m_progress.emplace(m_request.on_terminal, result.recordings.size());
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
  void findRecordings() {
    bool any = false;
    for (const fs::path& file : filesIn(m_request.folder)) {
      if (!file.string().ends_with(kHappened)) continue;
      any = true;
      try {
        result.recordings.push_back(recordingOf(file));
      } catch (const std::exception& error) {
        problem(error.what());
      }
    }
    if (!any) {
      throw std::runtime_error(m_request.folder.string() + ": holds no NAME.happened.txt beside a video; " +
                               "docs/happened.md tells what stands in one");
    }
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
    m_networks = fingerprintOf({}, networks);
  }

  void makeTasks() {
    for (std::size_t i = 0; i < result.recordings.size(); ++i) {
      const fs::path& video = result.recordings[i].video;
      try {
        for (std::size_t column = 0; column < result.columns.size(); ++column) {
          if (result.columns[column].sees_truth && !fs::exists(beside(video, ".truth.jsonl"))) continue;
          m_tasks.push_back(taskFor(i, column));
        }
      } catch (const std::exception& error) {
        problem(error.what());
        m_failed[i] = true;
      }
    }
  }

  Task taskFor(std::size_t recording, std::size_t column) {
    const Column& what = result.columns[column];
    const fs::path& video = result.recordings[recording].video;
    const bool from_trace = !what.sees_truth && !what.set.empty() && workstation::pictureKeyIn(what.set).empty();
    const fs::path settings = beside(video, ".settings.json");
    const std::string fingerprint = fingerprintOf({m_programs, what.setText(), what.sees_truth ? "truth" : m_networks,
                                                   contentOf(what.sees_truth ? beside(video, ".truth.jsonl") : video),
                                                   fs::exists(settings) ? contentOf(settings) : ""},
                                                  {});
    return {recording, column, fingerprint, from_trace, {}, {}};
  }

  /// A file's fingerprint, made once.
  const std::string& contentOf(const fs::path& file) {
    std::string& content = m_contents[file];
    if (content.empty()) content = fingerprintOf({}, {file});
    return content;
  }

  [[nodiscard]] std::vector<std::string> wordsFor(const Task& task) const {
    const Column& column = result.columns[task.column];
    const fs::path& video = result.recordings[task.recording].video;
    std::vector<std::string> words{"replay", video.string(), "--json"};
    if (task.from_trace) {
      words[1] = traceOf(task.recording, kNetworksColumn).string();
    } else if (const fs::path settings = beside(video, ".settings.json"); fs::exists(settings)) {
      words.insert(words.end(), {"--settings", settings.string()});
    }
    if (column.sees_truth) words.insert(words.end(), {"--truth", beside(video, ".truth.jsonl").string()});
    if (!column.set.empty()) words.emplace_back("--set");
    for (const auto& [key, value] : column.set) words.emplace_back(key).append("=").append(value);
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
    std::vector<Task*> of_runs;
    for (Task& task : m_tasks) {
      if (task.from_trace != from_trace || m_failed[task.recording] || isDone(task)) continue;
      const double length_s = result.recordings[task.recording].happened.length_s;
      const bool is_quick = from_trace || result.columns[task.column].sees_truth;
      constexpr double kQuick = 0.02;  // of what the networks take
      runs.push_back(
          {wordsFor(task), m_store.draftOf(task.fingerprint, runs.size()), length_s * (is_quick ? kQuick : 1)});
      of_runs.push_back(&task);
      m_progress->expect(runs.back().work_s);
    }
    runAll(m_request.program, runs, m_request.jobs, [&](std::size_t run, const std::string& problem) {
      m_progress->did(runs[run].work_s);
      ended(*of_runs[run], runs[run].draft, problem);
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
  const TraceStore m_store;
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
