#include "evaluate/judging/judging.h"

#include <algorithm>

#include "evaluate/judging/stills.h"

namespace evaluate {
namespace {

using Scores = std::array<Score, kEvents.size()>;

constexpr bool seesTruth(std::size_t column) { return column % 2 == 1; }

Scores scoresOf(const Recording& recording, const Watched& watched, Outcome& outcome) {
  Scores scores;
  for (std::size_t e = 0; e < kEvents.size(); ++e) {
    outcome.alarms[e] = watched.alarms(kEvents[e]);
    const Truth truth = truthOf(kEvents[e], recording.happened, watched.beds);
    scores[e] = score(kEvents[e], truth, outcome.alarms[e]);
    outcome.sums[e] = sumOf(scores[e], recording.happened.length_s);
  }
  return scores;
}

/// In the order of time, without their reasons.
std::vector<ToldDifference> differencesIn(const Scores& scores, const Scores* counterpart) {
  std::vector<ToldDifference> all;
  for (std::size_t e = 0; e < kEvents.size(); ++e) {
    for (const Difference& difference : scores[e].differences) {
      all.push_back({difference, "", counterpart != nullptr && hasAlike((*counterpart)[e], difference), ""});
    }
  }
  std::stable_sort(all.begin(), all.end(), [](const ToldDifference& a, const ToldDifference& b) {
    return a.difference.when.begin < b.difference.when.begin;
  });
  return all;
}

void addReasons(const std::filesystem::path& trace, std::vector<ToldDifference>& differences) {
  if (differences.empty()) return;
  std::vector<Question> questions;
  questions.reserve(differences.size());
  for (const ToldDifference& told : differences) questions.push_back({told.difference.event, told.difference.ask});
  const std::vector<std::string> sentences = whyIn(trace, questions);
  for (std::size_t i = 0; i < sentences.size(); ++i) differences[i].because = sentences[i];
}

void addPictures(Recording& recording) {
  std::map<double, std::string> pictures;
  for (const auto& [column, outcome] : recording.outcomes) {
    for (const ToldDifference& told : outcome.differences) pictures[told.difference.ask];
  }
  std::vector<double> times;
  times.reserve(pictures.size());
  for (const auto& [time, none] : pictures) times.push_back(time);
  const std::vector<std::string> stills = stillsOf(recording.video, times);
  for (std::size_t i = 0; i < times.size(); ++i) pictures[times[i]] = stills[i];
  for (auto& [column, outcome] : recording.outcomes) {
    for (ToldDifference& told : outcome.differences) told.jpeg = pictures[told.difference.ask];
  }
}

}  // namespace

std::string Column::name() const {
  const std::string who = sees_truth ? "true people" : "networks";
  const std::string how = setText();
  return how.empty() ? who : who + ", " + how;
}

std::string Column::setText() const {
  std::string text = settings.empty() ? "" : settings + " settings";
  for (const auto& [key, value] : set) text.append(text.empty() ? "" : " ").append(key).append("=").append(value);
  return text;
}

std::vector<std::string> Evaluation::groups() const {
  std::map<std::string, std::size_t> sizes;
  for (const Recording& recording : recordings) {
    for (std::size_t at = recording.name.find('/'); at != std::string::npos; at = recording.name.find('/', at + 1)) {
      ++sizes[recording.name.substr(0, at + 1)];
    }
  }
  std::vector<std::string> names;
  for (const auto& [name, size] : sizes) {
    if (size < recordings.size()) names.push_back(name);
  }
  names.emplace_back();
  return names;
}

std::ptrdiff_t Evaluation::count(std::size_t column, const std::string& group) const {
  return std::count_if(recordings.begin(), recordings.end(), [&](const Recording& one) {
    return one.name.starts_with(group) && one.outcomes.contains(column);
  });
}

Sum Evaluation::sum(std::size_t column, Event event, const std::string& group) const {
  Sum all;
  for (const Recording& recording : recordings) {
    const auto outcome = recording.outcomes.find(column);
    if (!recording.name.starts_with(group) || outcome == recording.outcomes.end()) continue;
    all = all + outcome->second.sums[static_cast<std::size_t>(event)];
  }
  return all;
}

void judge(const std::map<std::size_t, Seen>& seen, Recording& recording) {
  std::map<std::size_t, Scores> scores;
  for (const auto& [column, of_column] : seen) {
    scores[column] = scoresOf(recording, of_column.watched, recording.outcomes[column]);
  }
  const auto counterpart = [&scores](std::size_t column) {
    const auto found = scores.find(counterpartOf(column));
    return found == scores.end() ? nullptr : &found->second;
  };
  for (auto& [column, of_column] : scores) {
    const Scores* const reference = seesTruth(column) ? nullptr : counterpart(column);
    for (std::size_t e = 0; reference != nullptr && e < kEvents.size(); ++e) compareWith((*reference)[e], of_column[e]);
  }
  for (const auto& [column, of_column] : scores) {
    Outcome& outcome = recording.outcomes[column];
    outcome.differences = differencesIn(of_column, counterpart(column));
    addReasons(seen.at(column).trace, outcome.differences);
  }
  addPictures(recording);
}

}  // namespace evaluate
