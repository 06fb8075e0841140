#include "platform/workstation/launcher/settings_comparison.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "platform/workstation/launcher/launch_plan.h"
#include "platform/workstation/launcher/retrace_plan.h"
#include "platform/workstation/launcher/started_program.h"
#include "platform/workstation/system/shown_text.h"

namespace workstation {
namespace {

using nlohmann::ordered_json;

/// An alarm that moves by no more is the same alarm.
constexpr double kSameAlarm_s = 5.0;

constexpr const char* kGained = "gained";
constexpr const char* kLost = "lost";
constexpr const char* kShifted = "shifted";

struct Difference {
  const char* kind;  ///< one of the three
  Alarm alarm;
  double to = 0;  ///< of a shifted one: its new time
};

std::vector<double> beginsOf(const SettingsOutcome& outcome, const std::string& event) {
  std::vector<double> begins;
  for (const Alarm& alarm : outcome.alarms) {
    if (alarm.event == event) begins.push_back(alarm.begin);
  }
  std::sort(begins.begin(), begins.end());
  return begins;
}

void compare(const std::string& event, const std::vector<double>& before, const std::vector<double>& after,
             std::vector<Difference>& differences) {
  auto was = before.begin();
  auto is = after.begin();
  while (was != before.end() || is != after.end()) {
    if (is == after.end() || (was != before.end() && *was < *is - kSameAlarm_s)) {
      differences.push_back({kLost, {event, *was++}});
    } else if (was == before.end() || *is < *was - kSameAlarm_s) {
      differences.push_back({kGained, {event, *is++}});
    } else {
      if (*was != *is) differences.push_back({kShifted, {event, *was}, *is});
      ++was;
      ++is;
    }
  }
}

std::vector<Difference> differencesOf(const SettingsOutcome& recorded, const SettingsOutcome& other,
                                      const std::set<std::string>& events) {
  std::vector<Difference> differences;
  for (const std::string& event : events)
    compare(event, beginsOf(recorded, event), beginsOf(other, event), differences);
  std::stable_sort(differences.begin(), differences.end(),
                   [](const Difference& a, const Difference& b) { return a.alarm.begin < b.alarm.begin; });
  return differences;
}

std::set<std::string> eventsOf(const std::vector<SettingsOutcome>& outcomes) {
  std::set<std::string> events;
  for (const SettingsOutcome& outcome : outcomes) {
    for (const Alarm& alarm : outcome.alarms) events.insert(alarm.event);
  }
  return events;
}

std::string nameOf(const ParameterGroup& set) {
  std::string name;
  for (const auto& [key, value] : set)
    name.append(name.empty() ? "" : " ").append(key).append("=").append(shown(value));
  return name.empty() ? "as recorded" : name;
}

/// "22.0 s", or of somebody who was watched live "2026-03-01 14:03:07".
std::string timeText(double seconds, Table kind) {
  std::array<char, 64> text{};
  if (kind == Table::kLive) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm local{};
    ::localtime_r(&time, &local);
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
  } else {
    std::snprintf(text.data(), text.size(), "%.1f s", seconds);
  }
  return text.data();
}

std::string padded(const std::string& text, std::size_t width) {
  return text + std::string(width - std::min(width, text.size()), ' ');
}

std::string rowOf(const SettingsOutcome& outcome, std::size_t width, const std::set<std::string>& events) {
  std::string row = padded(nameOf(outcome.set), width);
  for (const std::string& event : events) {
    const std::string count = std::to_string(beginsOf(outcome, event).size());
    row += "  " + std::string(event.size() - std::min(event.size(), count.size()), ' ') + count;
  }
  return row + "\n";
}

std::string tableOf(const std::vector<SettingsOutcome>& outcomes, const std::set<std::string>& events, Table kind) {
  std::size_t width = 0;
  for (const SettingsOutcome& outcome : outcomes) width = std::max(width, nameOf(outcome.set).size());
  std::string table = padded("alarms", width);
  for (const std::string& event : events) table += "  " + event;
  table += events.empty() ? "  none\n" : "\n";
  for (const SettingsOutcome& outcome : outcomes) {
    table += rowOf(outcome, width, events);
    for (const auto& [what, alarm, to] : differencesOf(outcomes.front(), outcome, events)) {
      table += "  " + padded(what, 7) + "  " + timeText(alarm.begin, kind) + "  " + alarm.event;
      table += what == kShifted ? ", now " + timeText(to, kind) + "\n" : "\n";
    }
  }
  return table;
}

std::string jsonOf(const std::vector<SettingsOutcome>& outcomes, const std::set<std::string>& events) {
  std::string lines;
  for (const SettingsOutcome& outcome : outcomes) {
    ordered_json line = {{"set", outcome.set}, {"alarms", ordered_json::object()}};
    for (const std::string& event : events) line["alarms"][event] = beginsOf(outcome, event).size();
    for (const char* kind : {kGained, kLost, kShifted}) line[kind] = ordered_json::array();
    for (const Difference& difference : differencesOf(outcomes.front(), outcome, events)) {
      ordered_json entry = {{"t", difference.alarm.begin}, {"event", difference.alarm.event}};
      if (difference.kind == kShifted) entry["to"] = difference.to;
      line[difference.kind].push_back(std::move(entry));
    }
    lines += line.dump(-1, ' ', false, ordered_json::error_handler_t::replace) + "\n";
  }
  return lines;
}

/// From seconds since the trace's beginning to seconds since 1970.
void moveToDay(std::vector<SettingsOutcome>& outcomes, RecordedRun& run) {
  const auto move = [&run](std::vector<Alarm>& alarms) {
    for (Alarm& alarm : alarms) alarm.begin += run.begin_s;
  };
  for (SettingsOutcome& outcome : outcomes) move(outcome.alarms);
  move(run.told);
}

/// One replay and where its standard output goes.
struct Replay {
  ParameterGroup set;
  LaunchPlan plan;
  FileDescriptor output;
  pid_t id = 0;
};

Replay prepare(LaunchRequest request, const ParameterGroup& set, const std::filesystem::path& source_tree) {
  request.sets = {set};
  request.json = true;
  Replay replay{set, prepareLaunch(request, source_tree, false), FileDescriptor(::memfd_create("events", MFD_CLOEXEC))};
  if (replay.output.get() < 0) {
    throw std::runtime_error(std::string("a replay's events cannot be kept: ") + std::strerror(errno));
  }
  return replay;
}

std::string outputOf(const Replay& replay) {
  std::string text;
  std::array<char, 65536> block{};
  ::lseek(replay.output.get(), 0, SEEK_SET);
  for (ssize_t got = 0; (got = ::read(replay.output.get(), block.data(), block.size())) > 0;) {
    text.append(block.data(), static_cast<std::size_t>(got));
  }
  return text;
}

/// The exit status of a whole run: the first failure's, else 0. `most` run at once.
int runAll(std::vector<Replay>::iterator first, std::vector<Replay>::iterator last, std::ptrdiff_t most) {
  int result = 0;
  auto next = first;
  for (auto oldest = first; oldest != next || (next != last && result == 0); ++oldest) {
    for (; next != last && result == 0 && next - oldest < most; ++next) {
      next->id = startProgram(next->plan, next->output.get()).id;
    }
    const int status = endOf(oldest->id);
    if (result == 0) result = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  }
  return result;
}

}  // namespace

std::string remarksOn(const SettingsOutcome& recorded, const RecordedRun& run, Table table) {
  constexpr double kRounding_s = 0.01;
  std::string remarks = run.inexact.empty() ? "" : run.inexact + "\n";
  const SettingsOutcome told{{}, run.told};
  for (const auto& [what, alarm, to] : differencesOf(told, recorded, eventsOf({told, recorded}))) {
    const std::string time = timeText(alarm.begin, table) + "  " + alarm.event;
    if (what == kGained) remarks += "\"as recorded\" here, but not told then: " + time + "\n";
    if (what == kLost) remarks += "told then, but not \"as recorded\" here: " + time + "\n";
    if (what == kShifted && std::abs(to - alarm.begin) > kRounding_s) {
      remarks +=
          "told then, but later or earlier \"as recorded\" here: " + time + ", now " + timeText(to, table) + "\n";
    }
  }
  return remarks;
}

std::vector<Alarm> alarmsIn(const std::string& lines) {
  std::vector<Alarm> alarms;
  std::istringstream stream(lines);
  for (std::string line; std::getline(stream, line);) {
    const auto change = nlohmann::json::parse(line);
    if (change.at("active")) alarms.push_back({change.at("event"), change.at("t")});
  }
  return alarms;
}

std::string comparisonOf(const std::vector<SettingsOutcome>& outcomes, Table table) {
  const std::set<std::string> events = eventsOf(outcomes);
  return table == Table::kJson ? jsonOf(outcomes, events) : tableOf(outcomes, events, table);
}

int compareSettings(const LaunchRequest& request, const std::filesystem::path& source_tree) {
  if (!isTraceReplay(request)) throw UsageError("groups of --set are compared on a trace: replay TRACE --set ...");
  checkTraceReplay(request);
  std::vector<Replay> replays;
  replays.push_back(prepare(request, {}, source_tree));
  for (const ParameterGroup& set : request.sets) replays.push_back(prepare(request, set, source_tree));
  RecordedRun run = recordedRun(*request.source, source_tree / "package" / "manifest.json");
  // What is wrong with the trace itself is said once.
  const auto groups = replays.begin() + 1;
  int status = runAll(replays.begin(), groups, 1);
  const auto cores = std::max<std::ptrdiff_t>(1, std::thread::hardware_concurrency());
  if (status == 0) status = runAll(groups, replays.end(), cores);
  if (status != 0) return status;
  std::vector<SettingsOutcome> outcomes;
  std::transform(replays.begin(), replays.end(), std::back_inserter(outcomes), [](const Replay& replay) {
    return SettingsOutcome{replay.set, alarmsIn(outputOf(replay))};
  });
  const Table table = request.json ? Table::kJson : run.begin_s > 0 ? Table::kLive : Table::kRecording;
  if (table == Table::kLive) moveToDay(outcomes, run);
  const std::string remarks = remarksOn(outcomes.front(), run, table);
  std::fputs(comparisonOf(outcomes, table).c_str(), stdout);
  std::fputs(remarks.c_str(), request.json ? stderr : stdout);
  return 0;
}

}  // namespace workstation
