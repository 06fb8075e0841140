#include "evaluate/running/rendering.h"

#include <map>
#include <stdexcept>
#include <utility>

#include "evaluate/running/progress.h"
#include "evaluate/running/runs.h"

namespace evaluate {
namespace {

namespace fs = std::filesystem;

class Renderer {
 public:
  Renderer(const std::vector<Script>& scripts, const Rendering& rendering,
           const std::function<void(const std::string&)>& problem)
      : m_scripts(scripts), m_rendering(rendering), m_problem(problem), m_store(rendering.store, ".recording") {}

  std::vector<Recording> recordings() {
    if (!fs::is_regular_file(m_rendering.simulator)) {
      throw std::runtime_error(m_rendering.simulator.string() +
                               ": is not there, and scripts need it; ./run evaluate builds it");
    }
    const std::string simulator = fingerprintOf({}, {m_rendering.simulator});
    for (const Script& script : m_scripts) {
      m_places.push_back(m_store.placeOf(fingerprintOf({simulator, stemOf(script)}, {script.file})));
    }
    renderMissing();
    std::vector<Recording> all;
    for (std::size_t i = 0; i < m_scripts.size(); ++i) {
      if (fs::exists(m_places[i])) add(i, all);
    }
    return all;
  }

 private:
  static std::string stemOf(const Script& script) { return script.file.stem().string(); }

  void renderMissing() {
    std::vector<Run> runs;
    std::vector<std::size_t> of_runs;
    std::vector<fs::path> drafts;
    for (std::size_t i = 0; i < m_scripts.size(); ++i) {
      if (fs::exists(m_places[i])) continue;
      drafts.push_back(m_store.draftOf(m_places[i].stem().string(), i));
      runs.push_back({{"record", m_scripts[i].file.string(), drafts.back().string()}, 1});
      of_runs.push_back(i);
    }
    if (runs.empty()) return;
    Progress progress(m_rendering.on_terminal, runs.size(), "stories rendered");
    progress.expect(static_cast<double>(runs.size()));
    runAll(m_rendering.simulator, runs, m_rendering.jobs, [&](std::size_t run, const std::string& why_not) {
      progress.did(1);
      progress.hide();
      ended(of_runs[run], drafts[run], why_not);
      if (why_not.empty()) progress.finished(m_scripts[of_runs[run]].name);
    });
  }

  void ended(std::size_t script, const fs::path& draft, const std::string& why_not) {
    std::error_code error;
    if (why_not.empty()) {
      fs::rename(draft, m_places[script], error);
      // Somebody else has made the same meanwhile.
      if (error && fs::exists(m_places[script])) error.clear();
    }
    std::error_code ignored;
    fs::remove_all(draft, ignored);
    if (!why_not.empty()) return m_problem(m_scripts[script].name + ": " + why_not);
    if (error) m_problem(m_places[script].string() + ": cannot be made: " + error.message());
  }

  void add(std::size_t script, std::vector<Recording>& all) {
    std::error_code error;
    fs::last_write_time(m_places[script], fs::file_time_type::clock::now(), error);
    const std::string name = stemOf(m_scripts[script]);
    try {
      all.push_back(recordingOf(m_places[script] / (name + kHappenedEnding), m_scripts[script].name));
    } catch (const std::exception& mistake) {
      fs::remove_all(m_places[script], error);  // made anew the next time
      m_problem(mistake.what());
    }
  }

  const std::vector<Script>& m_scripts;
  const Rendering& m_rendering;
  const std::function<void(const std::string&)>& m_problem;
  const Store m_store;
  std::vector<fs::path> m_places;  ///< by script
};

}  // namespace

std::vector<Recording> recordingsOf(const std::vector<Script>& scripts, const Rendering& rendering,
                                    const std::function<void(const std::string&)>& problem) {
  return Renderer(scripts, rendering, problem).recordings();
}

}  // namespace evaluate
