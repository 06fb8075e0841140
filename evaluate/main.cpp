// velmor_evaluate: recordings of somebody's own through the program, beside what happened in them. velmor_run starts
// it.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "evaluate/evaluation.h"
#include "evaluate/running/runs.h"
#include "evaluate/telling/markdown.h"
#include "evaluate/telling/report.h"
#include "evaluate/telling/tables.h"
#include "platform/workstation/launcher/launch_request.h"
#include "platform/workstation/parameters/parameter_rules.h"
#include "platform/workstation/system/durable_file.h"

namespace {

namespace fs = std::filesystem;
using workstation::UsageError;

constexpr int kNotAll = 1, kBadInput = 2;
constexpr int kMostJobs = 256;

constexpr const char* kUsage =
    R"(./run evaluate [FOLDER]       recordings through the program, beside what happened in them: for each
                              NAME.happened.txt (docs/happened.md) in the folder, or in one within it, NAME.mp4, with
                              NAME.settings.json where there is one. Of a script of the simulator its recording is made
                              first. Without a folder: the suite of stories (simulator/suite), which takes long
  --set KEY=VALUE ...         these parameters as well, for comparison; several groups, each with a --set of its own
  --settings WORD             NAME.WORD.settings.json as well, for comparison; may be given several times
  --precision WORD            the networks' numbers instead of the program's own: fp32, bf16 or int8
  --eyes WORD                 how sharply the networks look: fast, unless said otherwise, or sharp
  --jobs N                    so many runs at once; the number of cores unless given
  --report FILE               the report, a page for a browser; evaluation.html unless given
  --json FILE                 the same as one JSON object
  --into FILE                 puts the sums and differences between the marks of a page in Markdown (docs/accuracy.md)
What is done is kept for the next time: an evaluation that was ended goes on where it was.
)";

struct CommandLine {
  evaluate::Request request;
  fs::path report = "evaluation.html";
  std::optional<fs::path> json;
  std::optional<fs::path> into;
  bool help = false;
};

int jobsFrom(const std::string& word) {
  const bool is_number = !word.empty() && word.size() < 4 && word.find_first_not_of("0123456789") == std::string::npos;
  const int jobs = is_number ? std::stoi(word) : 0;
  if (jobs < 1 || jobs > kMostJobs) throw UsageError("--jobs needs a whole number from 1 to 256, not \"" + word + "\"");
  return jobs;
}

CommandLine parse(const std::vector<std::string>& arguments) {
  CommandLine line;
  std::optional<std::string> folder;
  const std::vector<std::string> words = workstation::takeSets(arguments, line.request.sets);
  line.request.jobs = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
  for (auto word = words.begin(); word != words.end(); ++word) {
    const auto value = [&] {
      const std::string option = *word;
      if (++word == words.end() || word->empty()) throw UsageError(option + " needs a value; see --help");
      return *word;
    };
    if (*word == "--help") {
      line.help = true;
    } else if (*word == "--jobs") {
      line.request.jobs = jobsFrom(value());
    } else if (*word == "--report") {
      line.report = value();
    } else if (*word == "--json") {
      line.json = value();
    } else if (*word == "--into") {
      line.into = value();
    } else if (*word == "--precision") {
      line.request.precision = value();
      workstation::checkPrecision(line.request.precision);
    } else if (*word == "--eyes") {
      line.request.eyes = value();
      workstation::checkEyes(line.request.eyes);
    } else if (*word == "--settings") {
      line.request.settings.push_back(value());
    } else if (word->starts_with("-") || folder) {
      throw UsageError("\"" + *word + "\" is not understood here; see ./run evaluate --help");
    } else {
      folder = *word;
    }
  }
  line.request.folder = folder.value_or("");
  return line;
}

/// A place that cannot be written to is told before hours of work.
void checkPlace(const fs::path& file) {
  const fs::path folder = fs::absolute(file).parent_path();
  if (fs::is_directory(file)) throw UsageError(file.string() + ": is a directory; a file's name is needed");
  if (::access(folder.c_str(), W_OK) != 0) throw UsageError(folder.string() + ": cannot be written to");
}

void write(const fs::path& file, const std::string& text) { workstation::replaceFile(fs::absolute(file), text); }

std::string pageWith(const std::string& text, const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) throw UsageError(file.string() + ": cannot be read");
  const std::string page{std::istreambuf_iterator<char>(stream), {}};
  try {
    return evaluate::placedIn(page, text);
  } catch (const std::runtime_error& error) {
    throw UsageError(file.string() + ": " + error.what());
  }
}

/// How somebody else would do the same.
std::string commandOf(const std::vector<std::string>& arguments) {
  std::string text = "./run evaluate";
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const bool is_of_here =
        arguments[i] == "--into" || arguments[i] == "--json" || arguments[i] == "--report" || arguments[i] == "--jobs";
    if (is_of_here) {
      ++i;
    } else {
      text += " " + arguments[i];
    }
  }
  return text;
}

fs::path sourceTree() {
  const char* tree = std::getenv("VELMOR_SOURCE_DIR");
  if (tree == nullptr || !fs::is_directory(tree)) throw UsageError("start it with ./run evaluate");
  return tree;
}

void checkSets(const evaluate::Request& request) {
  try {
    for (const auto& set : request.sets) workstation::checkSet(set, request.source_tree / "package" / "manifest.json");
  } catch (const std::runtime_error& mistake) {
    throw UsageError(mistake.what());
  }
}

int run(const std::vector<std::string>& arguments) {
  CommandLine line = parse(arguments);
  if (line.help) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  evaluate::Request& request = line.request;
  request.source_tree = sourceTree();
  checkSets(request);
  if (request.folder.empty()) request.folder = request.source_tree / "simulator" / "suite";
  if (!fs::is_directory(request.folder)) throw UsageError(request.folder.string() + ": there is no such folder");
  checkPlace(line.report);
  if (line.json) checkPlace(*line.json);
  if (line.into) pageWith("", *line.into);
  const fs::path programs = fs::read_symlink("/proc/self/exe").parent_path();
  request.program = programs / "velmor_run";
  request.simulator = programs / "velmor_simulator";
  request.store = evaluate::Store::usualFolder("evaluate");
  request.recordings = evaluate::Store::usualFolder("recordings");
  request.on_terminal = ::isatty(STDERR_FILENO) == 1;
  const evaluate::Evaluation evaluation = evaluate::evaluateFolder(request);
  std::fputs(evaluate::tableOf(evaluation).c_str(), stdout);
  std::fflush(stdout);
  if (line.json) write(*line.json, evaluate::jsonOf(evaluation));
  if (line.into) write(*line.into, pageWith(evaluate::markdownOf(evaluation, commandOf(arguments)), *line.into));
  write(line.report, evaluate::reportOf(evaluation, request.folder.string()));
  std::fprintf(stderr, "The report, with pictures from the recordings: %s\n", fs::absolute(line.report).c_str());
  return evaluation.problems.empty() ? 0 : kNotAll;
}

}  // namespace

int main(int argc, char** argv) {
  workstation::takeFileLimitsAsFullDisks();
  try {
    return run({argv + 1, argv + argc});
  } catch (const UsageError& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return kBadInput;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return kNotAll;
  }
}
