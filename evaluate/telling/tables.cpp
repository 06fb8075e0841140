#include "evaluate/telling/tables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

namespace evaluate {
namespace {

using nlohmann::ordered_json;

using Row = std::vector<std::string>;

constexpr std::size_t kWho = 2;  // recording, who looked
/// The first ones are text.
constexpr std::size_t kTexts = kWho + 1;

Row headRow() {
  Row row{"recording", "who looked"};
  row.insert(row.end(), kSumHead.begin(), kSumHead.end());
  return row;
}

void addRow(const std::string& recording, const std::string& who, Event event, const Sum& sum, std::vector<Row>& rows) {
  Row& row = rows.emplace_back(Row{recording, who});
  for (std::string& cell : cellsOf(event, sum)) row.push_back(std::move(cell));
}

void addRows(const Evaluation& evaluation, const Recording& recording, std::vector<Row>& rows) {
  std::string name = recording.name;
  for (const auto& [column, outcome] : recording.outcomes) {
    std::string who = evaluation.columns[column].name();
    for (std::size_t e = 0; e < kEvents.size(); ++e) {
      addRow(std::exchange(name, ""), std::exchange(who, ""), kEvents[e], outcome.sums[e], rows);
    }
  }
}

void addTotals(const Evaluation& evaluation, const std::string& group, std::vector<Row>& rows) {
  for (std::size_t column = 0; column < evaluation.columns.size(); ++column) {
    if (evaluation.count(column, group) == 0) continue;
    std::string name = groupText(evaluation, group, column);
    std::string who = evaluation.columns[column].name();
    for (const Event event : kEvents) {
      addRow(std::exchange(name, ""), std::exchange(who, ""), event, evaluation.sum(column, event, group), rows);
    }
  }
}

std::string aligned(const std::vector<Row>& rows) {
  std::array<std::size_t, kWho + kSumHead.size()> widths{};
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string text;
  for (const Row& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string space(widths[i] - row[i].size(), ' ');
      line += (i == 0 ? "" : "  ") + (i < kTexts ? row[i] + space : space + row[i]);
    }
    text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
  }
  return text;
}

std::string differencesText(const Evaluation& evaluation, const Recording& recording) {
  std::string text;
  for (const auto& [column, outcome] : recording.outcomes) {
    for (const ToldDifference& told : outcome.differences) {
      // What the rules make of the true people as well is told once.
      if (evaluation.columns[column].sees_truth && told.also_in_counterpart) continue;
      text += "  " + clockText(told.difference.ask) + "  " + evaluation.columns[column].name() + ": " +
              describe(told.difference) + (told.also_in_counterpart ? ", with true people as well" : "") + ". " +
              told.because + "\n";
    }
  }
  return text.empty() ? "" : recording.name + "\n" + text;
}

ordered_json jsonOf(const Intervals& intervals) {
  ordered_json list = ordered_json::array();
  for (const Interval& one : intervals) list.push_back({one.begin, one.end});
  return list;
}

ordered_json jsonOf(std::optional<double> number) { return number ? ordered_json(*number) : ordered_json(); }

ordered_json jsonOf(const Sum& sum) {
  return {{"needed", sum.needed},
          {"found", sum.found},
          {"missed", sum.missed()},
          {"false", sum.false_alarms},
          {"false_a_day", sum.falseADay()},
          {"gaps", sum.gaps},
          {"gaps_s", sum.gaps_s},
          {"too_long", sum.outlasting},
          {"delay_median_s", jsonOf(sum.medianDelay())},
          {"delay_worst_s", jsonOf(sum.worstDelay())}};
}

ordered_json jsonOf(const ToldDifference& told) {
  const Difference& difference = told.difference;
  return {{"event", nameOf(difference.event)},
          {"kind", nameOf(difference.kind)},
          {"from", difference.when.begin},
          {"to", difference.when.end},
          {"at", difference.ask},
          {"also_in_counterpart", told.also_in_counterpart},
          {"because", told.because}};
}

ordered_json jsonOf(const Column& column) {
  return {{"by", column.sees_truth ? "true people" : "networks"}, {"settings", column.settings}, {"set", column.set}};
}

ordered_json jsonOf(const Outcome& outcome, const Column& column) {
  ordered_json object = jsonOf(column);
  for (std::size_t e = 0; e < kEvents.size(); ++e) {
    object["events"][nameOf(kEvents[e])] = jsonOf(outcome.sums[e]);
    object["events"][nameOf(kEvents[e])]["alarms"] = jsonOf(outcome.alarms[e]);
  }
  object["differences"] = ordered_json::array();
  for (const ToldDifference& told : outcome.differences) object["differences"].push_back(jsonOf(told));
  return object;
}

}  // namespace

std::string tableOf(const Evaluation& evaluation) {
  std::vector<Row> rows{headRow()};
  for (const Recording& recording : evaluation.recordings) addRows(evaluation, recording, rows);
  if (evaluation.recordings.size() > 1) {
    for (const std::string& group : evaluation.groups()) addTotals(evaluation, group, rows);
  }
  std::string text = evaluation.recordings.empty() ? "" : aligned(rows);
  std::string differences;
  for (const Recording& recording : evaluation.recordings) differences += differencesText(evaluation, recording);
  return text + (differences.empty() ? "" : "\n" + differences);
}

std::string jsonOf(const Evaluation& evaluation) {
  ordered_json object = {{"recordings", ordered_json::array()}, {"all", ordered_json::array()}};
  for (const Recording& recording : evaluation.recordings) {
    ordered_json entry = {
        {"name", recording.name}, {"length_s", recording.happened.length_s}, {"columns", ordered_json::array()}};
    for (const auto& [column, outcome] : recording.outcomes) {
      entry["columns"].push_back(jsonOf(outcome, evaluation.columns[column]));
    }
    object["recordings"].push_back(std::move(entry));
  }
  for (const std::string& group : evaluation.groups()) {
    for (std::size_t column = 0; column < evaluation.columns.size(); ++column) {
      if (evaluation.count(column, group) == 0) continue;
      ordered_json entry = jsonOf(evaluation.columns[column]);
      for (const Event event : kEvents) entry["events"][nameOf(event)] = jsonOf(evaluation.sum(column, event, group));
      if (group.empty()) {
        object["all"].push_back(std::move(entry));
      } else {
        object["folders"][group].push_back(std::move(entry));
      }
    }
  }
  object["problems"] = evaluation.problems;
  return object.dump(1, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

std::vector<std::string> cellsOf(Event event, const Sum& sum) {
  const std::string unit = sum.delays_s.empty() ? "" : " s";
  return {nameOf(event),
          std::to_string(sum.found) + " of " + std::to_string(sum.needed),
          std::to_string(sum.missed()),
          std::to_string(sum.false_alarms),
          numberText(sum.falseADay()),
          std::to_string(sum.gaps) + (sum.gaps > 0 ? " (" + numberText(sum.gaps_s) + " s)" : ""),
          std::to_string(sum.outlasting),
          numberText(sum.medianDelay()) + unit,
          numberText(sum.worstDelay()) + unit};
}

std::string groupText(const Evaluation& evaluation, const std::string& group, std::size_t column) {
  return (group.empty() ? "all" : group) + " (" + std::to_string(evaluation.count(column, group)) + ")";
}

std::string numberText(std::optional<double> number) {
  char text[32] = "-";
  if (number) std::snprintf(text, sizeof text, "%.1f", *number);
  return text;
}

std::string clockText(double seconds) {
  char text[48];
  const long tenths = std::lround(seconds * 10);
  std::snprintf(text, sizeof text, "%ld:%04.1f", tenths / 600, static_cast<double>(tenths % 600) / 10);
  return text;
}

std::string describe(const Difference& difference) {
  const Interval& when = difference.when;
  const std::string length = numberText(when.end - when.begin) + " s";
  const std::string span = clockText(when.begin) + " to " + clockText(when.end);
  const std::string event = nameOf(difference.event);
  switch (difference.kind) {
    case Kind::kMissed:
      return event + " missed, for what happened from " + span;
    case Kind::kFalse:
      return event + " without a cause, from " + span;
    case Kind::kGap:
      return event + " has a gap of " + length + " while its cause lasts, from " + span;
    case Kind::kOutlasting:
      return event + " goes on for " + length + " after its cause, from " + span;
    case Kind::kLater:
      break;
  }
  return event + " " + length + " later than with true people, at " + clockText(when.end);
}

}  // namespace evaluate
