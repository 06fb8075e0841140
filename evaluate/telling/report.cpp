#include "evaluate/telling/report.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "evaluate/telling/tables.h"
#include "platform/support/owners.h"

namespace evaluate {
namespace {

constexpr const char* kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; img-src data:; style-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>Evaluation</title>
<style>
:root { --paper: #fff; --ink: #1c2430; --soft: #5a6675; --line: #d5dbe3; --lane: #eef1f5; --bed: #4f7fb8;
  --out: #c98a16; --fallen: #b3261e; --other: #7b8794; --alarm: #6a4fb0; --wrong: #b3261e; }
@media (prefers-color-scheme: dark) { :root { --paper: #12161c; --ink: #e4e8ee; --soft: #a2adba; --line: #37404c;
  --lane: #1e252e; --bed: #6f9fd8; --out: #e0a840; --fallen: #f2736a; --other: #8d99a6; --alarm: #a890ec;
  --wrong: #ff8a80; } }
body { margin: 0 auto; max-width: 72rem; padding: 1.5rem; background: var(--paper); color: var(--ink);
  font: 1rem/1.45 system-ui, sans-serif; }
h1 { font-size: 1.6rem; margin: 0 0 .3rem; } h2 { font-size: 1.2rem; margin: 2.5rem 0 .5rem; }
.soft { color: var(--soft); } .wide { overflow-x: auto; }
.private { border: 1px solid var(--wrong); border-radius: .4rem; padding: .5rem .8rem; }
table { border-collapse: collapse; font-variant-numeric: tabular-nums; width: 100%; }
th, td { text-align: right; padding: .25rem .6rem; border-bottom: 1px solid var(--line); white-space: nowrap; }
th { font-weight: 600; color: var(--soft); } .text { text-align: left; }
.lane { display: grid; grid-template-columns: 13rem 1fr; gap: .6rem; align-items: center; margin: 2px 0; }
.lane > span { text-align: right; font-size: .85rem; color: var(--soft); overflow-wrap: anywhere; line-height: 1.15; }
.bar { position: relative; height: 1.25rem; background: var(--lane); border-radius: .2rem; }
.bar i { position: absolute; top: 0; bottom: 0; min-width: 2px; border-radius: .2rem; }
.bar a { position: absolute; top: 0; bottom: 0; transform: translateX(-50%); min-width: 1.1rem; text-align: center;
  font-size: .75rem; line-height: 1.25rem; font-weight: 700; color: var(--paper); background: var(--wrong);
  border-radius: .2rem; text-decoration: none; }
.bar b { position: absolute; font-weight: 400; font-size: .75rem; color: var(--soft); transform: translateX(-50%); }
.bar u { position: absolute; top: .15rem; bottom: .15rem; width: 2px; background: var(--ink); }
.axis .bar { background: none; height: 1.1rem; }
.bed { background: var(--bed); } .out { background: var(--out); } .fallen { background: var(--fallen); }
.other { background: var(--other); } .alarm { background: var(--alarm); }
ol { list-style: none; padding: 0; }
li { display: grid; grid-template-columns: 13rem 1fr; gap: .6rem; padding: .6rem 0; border-top: 1px solid var(--line); }
li:target { background: var(--lane); }
li img { width: 100%; border-radius: .3rem; } li p { margin: 0 0 .3rem; overflow-wrap: anywhere; }
@media (max-width: 40rem) { .lane, li { grid-template-columns: 1fr; } .lane > span { text-align: left; } }
@media print { li { break-inside: avoid; } }
</style>
</head>
<body>
)";

std::string escaped(const std::string& text) {
  const GLibMemory<gchar> valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
  const GLibMemory<gchar> safe(g_markup_escape_text(valid.get(), -1));
  return safe.get();
}

std::string tag(const std::string& name, const std::string& attributes, const std::string& content) {
  return "<" + name + (attributes.empty() ? "" : " " + attributes) + ">" + content + "</" + name + ">";
}

/// "41.3%" of the recording.
std::string percent(double seconds, double length_s) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f%%", 100 * std::clamp(seconds / length_s, 0.0, 1.0));
  return text;
}

struct Cell {
  std::string text;
  bool is_text = false;
};

std::string row(const std::vector<Cell>& cells, const char* kind) {
  std::string content;
  for (const Cell& cell : cells) content += tag(kind, cell.is_text ? "class=\"text\"" : "", escaped(cell.text));
  return tag("tr", "", content) + "\n";
}

std::string rowOf(const std::string& who, Event event, const Sum& sum) {
  std::vector<Cell> cells{{who, true}};
  for (const std::string& cell : cellsOf(event, sum)) cells.push_back({cell, cells.size() == 1});
  return row(cells, "td");
}

std::string table(const std::string& rows) {
  std::vector<Cell> cells{{"who looked", true}};
  for (const char* cell : kSumHead) cells.push_back({cell, cells.size() == 1});
  const std::string head = row(cells, "th");
  return tag("div", "class=\"wide\"", tag("table", "", head + rows)) + "\n";
}

/// The rows of a timeline, each as long as the recording.
class Timeline {
 public:
  explicit Timeline(double length_s) : m_length_s(length_s) {}

  /// `name` stands in the bars' tips as well.
  void add(const std::string& name, const std::string& look, const Intervals& intervals,
           const std::string& marks = "") {
    std::string bars;
    for (const Interval& one : intervals) {
      bars += tag("i",
                  "class=\"" + look + "\" style=\"left:" + percent(one.begin, m_length_s) +
                      ";width:" + percent(one.end - one.begin, m_length_s) + "\" title=\"" + escaped(name) + ", " +
                      clockText(one.begin) + " to " + clockText(one.end) + "\"",
                  "");
    }
    addLane(name, bars + marks, "lane");
  }

  void addMoments(const std::vector<Moment>& moments) {
    std::string ticks;
    for (const Moment& moment : moments) {
      ticks += tag("u",
                   "style=\"left:" + percent(moment.at, m_length_s) + "\" title=\"" + clockText(moment.at) + " " +
                       escaped(moment.text) + "\"",
                   "");
    }
    addLane("moments", ticks, "lane");
  }

  void addAxis() {
    constexpr std::array kSteps{5.0, 10.0, 30.0, 60.0, 300.0, 600.0, 1800.0, 3600.0, 10800.0, 43200.0, 86400.0};
    constexpr double kMostTicks = 10;
    const auto fits = [this](double step) { return m_length_s / step <= kMostTicks; };
    const auto found = std::find_if(kSteps.begin(), kSteps.end(), fits);
    const double step = found == kSteps.end() ? kSteps.back() : *found;
    std::string ticks;
    for (int i = 0; i * step <= m_length_s; ++i) {
      const std::string clock = clockText(i * step);
      ticks += tag("b", "style=\"left:" + percent(i * step, m_length_s) + "\"", clock.substr(0, clock.size() - 2));
    }
    addLane("", ticks, "lane axis");
  }

  /// A number that leads to the difference's entry.
  [[nodiscard]] std::string mark(double at, int number) const {
    const std::string name = std::to_string(number);
    return tag("a", "href=\"#d" + name + "\" style=\"left:" + percent(at, m_length_s) + "\"", name);
  }

  [[nodiscard]] const std::string& html() const { return m_html; }

 private:
  void addLane(const std::string& name, const std::string& content, const std::string& look) {
    m_html +=
        tag("div", "class=\"" + look + "\"", tag("span", "", escaped(name)) + tag("div", "class=\"bar\"", content));
    m_html += "\n";
  }

  const double m_length_s;
  std::string m_html;
};

void addHappened(const Happened& happened, Timeline& timeline) {
  const auto of_bed = [](const std::string& state, int bed) {
    return bed == 1 ? state : state + " " + std::to_string(bed);
  };
  for (const auto& [bed, intervals] : happened.in_bed) {
    if (!intervals.empty()) timeline.add(of_bed("in bed", bed), "bed", intervals);
    const auto out = happened.out_of_bed.find(bed);
    if (out != happened.out_of_bed.end() && !out->second.empty()) {
      timeline.add(of_bed("out of bed", bed), "out", out->second);
    }
  }
  if (!happened.fallen.empty()) timeline.add("fallen", "fallen", happened.fallen);
  if (!happened.carer.empty()) timeline.add("carer present", "other", happened.carer);
  if (!happened.nobody.empty()) timeline.add("nobody", "other", happened.nobody);
  if (!happened.moments.empty()) timeline.addMoments(happened.moments);
}

/// A difference with its number on the page and who it is of.
struct Numbered {
  const ToldDifference* told;
  std::size_t column;
  int number;
};

std::string entryOf(const Numbered& one, const Evaluation& evaluation) {
  const ToldDifference& told = *one.told;
  std::string picture;
  if (told.jpeg.empty()) {
    picture = tag("span", "class=\"soft\"", "no picture");
  } else {
    const GLibMemory<gchar> code(g_base64_encode(reinterpret_cast<const guchar*>(told.jpeg.data()), told.jpeg.size()));
    picture = "<img alt=\"the recording at " + clockText(told.difference.ask) + "\" src=\"data:image/jpeg;base64," +
              code.get() + "\">";
  }
  const std::string what = tag("b", "", std::to_string(one.number) + ".") + " " +
                           escaped(evaluation.columns[one.column].name() + ": " + describe(told.difference) + ".");
  const bool is_of_networks = !evaluation.columns[one.column].sees_truth;
  const std::string both = is_of_networks && told.also_in_counterpart ? " The same with true people." : "";
  const std::string why =
      tag("span", "class=\"soft\"", "At " + clockText(told.difference.ask) + ":") + " " + escaped(told.because);
  return tag("li", "id=\"d" + std::to_string(one.number) + "\"",
             tag("div", "", picture) + tag("div", "", tag("p", "", what + both) + tag("p", "", why))) +
         "\n";
}

class Page {
 public:
  explicit Page(const Evaluation& evaluation) : m_evaluation(evaluation) {}

  std::string html(const std::string& folder) {
    std::string page = kHead;
    page += tag("h1", "", "What the program told, beside what happened") + "\n";
    page += tag("p", "class=\"soft\"",
                escaped(folder) + ": " + std::to_string(m_evaluation.recordings.size()) +
                    " recordings. \"Networks\" is the program; \"true people\" is the same rules on the people "
                    "themselves, where the recording tells them. Each time is minutes and seconds.") +
            "\n";
    page += tag("p", "class=\"private\"",
                "This page holds pictures from the recordings. Where they show patients, it is personal data: "
                "keep it as you keep the recordings, and delete it with them.") +
            "\n";
    page += totals() + problems();
    for (const Recording& recording : m_evaluation.recordings) page += section(recording);
    return page + "</body>\n</html>\n";
  }

 private:
  [[nodiscard]] std::string totals() const {
    std::string html;
    for (const std::string& group : m_evaluation.groups()) {
      std::string rows;
      for (std::size_t column = 0; column < m_evaluation.columns.size(); ++column) {
        const std::ptrdiff_t count = m_evaluation.count(column, group);
        if (count == 0) continue;
        const std::string who = m_evaluation.columns[column].name() + " (" + std::to_string(count) + ")";
        for (const Event event : kEvents) rows += rowOf(who, event, m_evaluation.sum(column, event, group));
      }
      if (!rows.empty()) html += tag("h2", "", group.empty() ? "All recordings" : escaped(group)) + "\n" + table(rows);
    }
    return html;
  }

  [[nodiscard]] std::string problems() const {
    std::string lines;
    for (const std::string& problem : m_evaluation.problems) lines += tag("p", "", escaped(problem)) + "\n";
    return lines.empty() ? "" : tag("h2", "", "What could not be evaluated") + "\n" + lines;
  }

  std::string section(const Recording& recording) {
    Timeline timeline(recording.happened.length_s);
    addHappened(recording.happened, timeline);
    std::string rows;
    std::vector<Numbered> all;
    // The true people's lanes stand next to what happened.
    for (const bool sees_truth : {true, false}) {
      for (const auto& [column, outcome] : recording.outcomes) {
        if (m_evaluation.columns[column].sees_truth == sees_truth) addColumn(column, outcome, timeline, all);
      }
    }
    for (const auto& [column, outcome] : recording.outcomes) {
      const std::string who = m_evaluation.columns[column].name();
      for (std::size_t e = 0; e < kEvents.size(); ++e) rows += rowOf(who, kEvents[e], outcome.sums[e]);
    }
    timeline.addAxis();
    return tag("h2", "", escaped(recording.name)) + "\n" + timeline.html() + listOf(all) + table(rows);
  }

  void addColumn(std::size_t column, const Outcome& outcome, Timeline& timeline, std::vector<Numbered>& all) {
    for (std::size_t e = 0; e < kEvents.size(); ++e) {
      std::string marks;
      for (const ToldDifference& told : outcome.differences) {
        if (told.difference.event != kEvents[e]) continue;
        all.push_back({&told, column, ++m_number});
        marks += timeline.mark(told.difference.ask, m_number);
      }
      timeline.add(m_evaluation.columns[column].name() + ": " + nameOf(kEvents[e]), "alarm", outcome.alarms[e], marks);
    }
  }

  [[nodiscard]] std::string listOf(std::vector<Numbered> all) const {
    if (all.empty()) return tag("p", "", "The program told what happened, and nothing else.") + "\n";
    std::stable_sort(all.begin(), all.end(), [](const Numbered& a, const Numbered& b) {
      return a.told->difference.ask < b.told->difference.ask;
    });
    std::string entries;
    for (const Numbered& one : all) entries += entryOf(one, m_evaluation);
    return tag("ol", "", entries) + "\n";
  }

  const Evaluation& m_evaluation;
  int m_number = 0;
};

}  // namespace

std::string reportOf(const Evaluation& evaluation, const std::string& folder) { return Page(evaluation).html(folder); }

}  // namespace evaluate
