#include "evaluate/judging/watched.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/workstation/trace/explanation.h"
#include "platform/workstation/trace/trace_reader.h"
#include "platform/workstation/trace/trace_story.h"

namespace evaluate {
namespace {

using workstation::TraceChange;
using workstation::TraceMoment;
using workstation::TraceStory;

/// The program's last cycle lies so near to a recording's end.
constexpr double kLastCycle_s = 2;

std::string secondsText(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", seconds);
  return text;
}

void take(const TraceChange& change, const char* event, Intervals& alarms) {
  if (change.name != event) return;
  if (change.active) {
    alarms.push_back({change.t, 0});
  } else if (!alarms.empty()) {
    alarms.back().end = change.t;
  }
}

void close(Intervals& alarms, double length_s) {
  if (!alarms.empty() && alarms.back().end <= alarms.back().begin) {
    alarms.back().end = std::max(length_s, alarms.back().begin);
  }
}

std::set<int> bedsIn(const TraceMoment& moment) {
  std::set<int> beds;
  for (int bed = 1; bed <= 3; ++bed) {
    const auto active = moment.settings->parameters.find("Detection" + std::to_string(bed) + "Active");
    if (active != moment.settings->parameters.end() && active->second == "true") beds.insert(bed);
  }
  return beds;
}

std::string sentenceFor(Event event, const TraceMoment& moment) {
  if (moment.now == nullptr) return "No cycle of the program is so early.";
  return workstation::asSentence(workstation::becauseText(nameOf(event), moment.scene()));
}

}  // namespace

Watched readWatched(const std::filesystem::path& trace, double length_s) {
  Watched watched;
  TraceStory story;
  workstation::TraceReader reader(trace);
  while (auto line = reader.next()) {
    for (const TraceChange& change : story.take(*std::move(line))) {
      take(change, nameOf(Event::kOutOfBed), watched.out_of_bed);
      take(change, nameOf(Event::kFall), watched.fall);
    }
  }
  watched.until_s = story.moment().now == nullptr ? 0 : story.moment().now->t;
  if (reader.isCutOff() || watched.until_s < length_s - kLastCycle_s) {
    throw std::runtime_error(trace.string() + ": the trace ends at " + secondsText(watched.until_s) + " of " +
                             secondsText(length_s) + "; is there room on its disk?");
  }
  watched.beds = bedsIn(story.moment());
  close(watched.out_of_bed, length_s);
  close(watched.fall, length_s);
  return watched;
}

std::vector<std::string> whyIn(const std::filesystem::path& trace, const std::vector<Question>& questions) {
  // Times are of cycles, and a sum of halves may lie next to one.
  constexpr double kSameCycle_s = 0.001;
  std::vector<std::string> sentences(questions.size());
  std::vector<bool> answered(questions.size(), false);
  TraceStory story;
  const auto answerBefore = [&](double t, const TraceMoment& moment) {
    for (std::size_t i = 0; i < questions.size(); ++i) {
      if (answered[i] || questions[i].at + kSameCycle_s >= t) continue;
      sentences[i] = sentenceFor(questions[i].event, moment);
      answered[i] = true;
    }
  };
  workstation::TraceReader reader(trace);
  while (auto line = reader.next()) {
    if (const auto* cycle = std::get_if<workstation::TraceCycle>(&*line)) answerBefore(cycle->t, story.moment());
    story.take(*std::move(line));
  }
  constexpr double kEver = 1e9;
  answerBefore(kEver, story.moment());
  return sentences;
}

}  // namespace evaluate
