#include "evaluate/telling/markdown.h"

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

#include "evaluate/telling/tables.h"

namespace evaluate {
namespace {

/// On a page nothing of a text is a sign of Markdown's.
std::string plain(const std::string& text) {
  std::string safe;
  for (const char c : text) {
    if (std::string("|*_<>[]`\\#").find(c) != std::string::npos) safe += '\\';
    safe += c == '\n' ? ' ' : c;
  }
  return safe;
}

std::string rowOf(const std::vector<std::string>& cells) {
  std::string row = "|";
  for (const std::string& cell : cells) row.append(" ").append(plain(cell)).append(" |");
  return row + "\n";
}

std::string sums(const Evaluation& evaluation) {
  std::vector<std::string> head{"recordings", "who looked"};
  head.insert(head.end(), kSumHead.begin(), kSumHead.end());
  std::string text = rowOf(head) + "|";
  for (std::size_t i = 0; i < head.size(); ++i) text += "---|";
  text += "\n";
  for (const std::string& group : evaluation.groups()) {
    for (std::size_t column = 0; column < evaluation.columns.size(); ++column) {
      if (evaluation.count(column, group) == 0) continue;
      std::string name = groupText(evaluation, group, column);
      std::string who = evaluation.columns[column].name();
      for (const Event event : kEvents) {
        std::vector<std::string> row{std::exchange(name, ""), std::exchange(who, "")};
        for (std::string& cell : cellsOf(event, evaluation.sum(column, event, group))) row.push_back(std::move(cell));
        text += rowOf(row);
      }
    }
  }
  return text;
}

/// What the rules make of true people as well, and what comes of the eyes.
std::string shares(const Evaluation& evaluation) {
  std::string text;
  for (std::size_t column = 0; column < evaluation.columns.size(); ++column) {
    if (evaluation.columns[column].sees_truth) continue;
    std::size_t all = 0;
    std::size_t with_both = 0;
    for (const Recording& recording : evaluation.recordings) {
      const auto outcome = recording.outcomes.find(column);
      if (outcome == recording.outcomes.end()) continue;
      const auto& differences = outcome->second.differences;
      all += differences.size();
      with_both += static_cast<std::size_t>(std::count_if(
          differences.begin(), differences.end(), [](const ToldDifference& told) { return told.also_in_counterpart; }));
    }
    text += "- " + plain(evaluation.columns[column].name()) + ": " + std::to_string(all) + " differences, " +
            std::to_string(with_both) + " of them with true people as well\n";
  }
  return text;
}

std::string differencesOf(const Recording& recording, const Evaluation& evaluation) {
  std::string text;
  for (const std::size_t column : {kNetworksColumn, counterpartOf(kNetworksColumn)}) {
    const auto outcome = recording.outcomes.find(column);
    if (outcome == recording.outcomes.end()) continue;
    for (const ToldDifference& told : outcome->second.differences) {
      const bool is_reference = evaluation.columns[column].sees_truth;
      if (is_reference && told.also_in_counterpart) continue;
      const std::string who = is_reference ? "true people only" : told.also_in_counterpart ? "both" : "networks only";
      text += rowOf({recording.name, clockText(told.difference.ask), who, describe(told.difference), told.because});
    }
  }
  return text;
}

}  // namespace

std::string markdownOf(const Evaluation& evaluation, const std::string& command) {
  std::string text = "`" + command + "`\n\n" + sums(evaluation) + "\n" + shares(evaluation);
  std::string rows;
  for (const Recording& recording : evaluation.recordings) rows += differencesOf(recording, evaluation);
  if (!rows.empty()) text += "\n| recording | at | who | what | because |\n|---|---|---|---|---|\n" + rows;
  return text;
}

std::string placedIn(const std::string& page, const std::string& text) {
  const std::string begin = std::string(kMarkBegin) + "\n";
  const std::string end = std::string(kMarkEnd) + "\n";
  const std::size_t from = page.find(begin);
  const std::size_t to = page.find(end);
  if (from == std::string::npos || to == std::string::npos || to < from || page.find(begin, from + 1) < page.size() ||
      page.find(end, to + 1) < page.size()) {
    throw std::runtime_error(std::string("needs one line \"") + kMarkBegin + "\" and below it one line \"" + kMarkEnd +
                             "\": the evaluation is put between them");
  }
  return page.substr(0, from + begin.size()) + "\n" + text + "\n" + page.substr(to);
}

}  // namespace evaluate
