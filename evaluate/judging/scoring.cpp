#include "evaluate/judging/scoring.h"

#include <algorithm>
#include <cmath>

#include "platform/workstation/trace/explanation.h"

namespace evaluate {
namespace {

double lengthOf(const Interval& interval) { return interval.end - interval.begin; }

Interval common(const Interval& a, const Interval& b) { return {std::max(a.begin, b.begin), std::min(a.end, b.end)}; }

/// In order; what touches is one.
Intervals unionOf(Intervals all) {
  std::sort(all.begin(), all.end(), [](const Interval& a, const Interval& b) { return a.begin < b.begin; });
  Intervals merged;
  for (const Interval& one : all) {
    if (merged.empty() || one.begin > merged.back().end) {
      merged.push_back(one);
    } else {
      merged.back().end = std::max(merged.back().end, one.end);
    }
  }
  return merged;
}

Intervals intersectionOf(const Intervals& some, const Intervals& others) {
  Intervals both;
  for (const Interval& one : some) {
    for (const Interval& other : others) {
      const Interval shared = common(one, other);
      if (shared.begin < shared.end) both.push_back(shared);
    }
  }
  return both;
}

/// What is left of the whole.
Intervals without(const Interval& whole, const Intervals& taken) {
  Intervals rest;
  double begin = whole.begin;
  for (const Interval& one : taken) {
    if (one.begin > begin && begin < whole.end) rest.push_back({begin, std::min(one.begin, whole.end)});
    begin = std::max(begin, one.end);
  }
  if (begin < whole.end) rest.push_back({begin, whole.end});
  return rest;
}

Intervals intervalsOf(const std::map<int, Intervals>& beds, int bed) {
  const auto found = beds.find(bed);
  return found == beds.end() ? Intervals() : found->second;
}

Truth outOfBedTruth(const Happened& happened, const std::set<int>& beds) {
  Intervals left;
  Intervals all_in{{0, happened.length_s}};
  for (const int bed : beds) {
    const Intervals out = intervalsOf(happened.out_of_bed, bed);
    left.insert(left.end(), out.begin(), out.end());
    all_in = intersectionOf(all_in, unionOf(intervalsOf(happened.in_bed, bed)));
  }
  return {unionOf(left), unionOf(all_in), kOutOfBedTakes_s, happened.length_s};
}

/// Begins when nothing was to be told, a little before and after as well.
bool isFalse(const Interval& alarm, const Truth& truth) {
  const double since = std::max(0.0, alarm.begin - kShortly_s);
  const double until = std::min(truth.length_s, alarm.begin + kImprecision_s);
  return std::any_of(truth.none.begin(), truth.none.end(),
                     [&](const Interval& none) { return none.begin <= since && until <= none.end; });
}

/// The first alarm about the cause.
const Interval* findAlarm(const Interval& cause, const Intervals& alarms) {
  const auto found = std::find_if(alarms.begin(), alarms.end(), [&cause](const Interval& alarm) {
    return alarm.begin <= cause.end + kShortly_s && alarm.end > cause.begin + kImprecision_s;
  });
  return found == alarms.end() ? nullptr : &*found;
}

/// The moment at which the rules must have told the cause.
double dueAt(const Interval& cause, double takes_s) {
  return std::min(cause.end, cause.begin + takes_s + kImprecision_s);
}

void noteGaps(Event event, const Interval& cause, double found_at, const Intervals& alarms, Score& score) {
  for (const Interval& gap : without({std::max(cause.begin, found_at), cause.end}, unionOf(alarms))) {
    if (gap.begin < cause.end - kShortly_s) score.differences.push_back({Kind::kGap, event, gap, gap.begin});
  }
}

void noteCause(Event event, const Interval& when, const Truth& truth, const Intervals& alarms, Score& score) {
  Cause cause{when, lengthOf(when) >= truth.takes_s + 2 * kImprecision_s, {}, {}};
  const Interval* alarm = findAlarm(when, alarms);
  if (alarm != nullptr) {
    cause.found_at = alarm->begin;
    const double delay_s = alarm->begin - when.begin;
    if (delay_s >= -kImprecision_s) cause.delay_s = std::max(0.0, delay_s);
  }
  score.causes.push_back(cause);
  if (!cause.needed) return;
  if (alarm == nullptr) {
    score.differences.push_back({Kind::kMissed, event, when, dueAt(when, truth.takes_s)});
  } else {
    noteGaps(event, when, alarm->begin, alarms, score);
  }
}

void noteAlarm(Event event, const Interval& alarm, const Truth& truth, Score& score) {
  if (isFalse(alarm, truth)) {
    score.differences.push_back({Kind::kFalse, event, alarm, alarm.begin});
    return;
  }
  for (const Interval& none : truth.none) {
    const Interval shared = common(alarm, none);
    if (lengthOf(shared) <= kOutlasting_s) continue;
    score.differences.push_back({Kind::kOutlasting, event, shared, shared.begin + kOutlasting_s});
  }
}

void sortByTime(std::vector<Difference>& differences) {
  std::stable_sort(differences.begin(), differences.end(),
                   [](const Difference& a, const Difference& b) { return a.when.begin < b.when.begin; });
}

}  // namespace

const char* nameOf(Event event) {
  return event == Event::kFall ? workstation::kTracedFall : workstation::kTracedOutOfBed;
}

const char* nameOf(Kind kind) {
  switch (kind) {
    case Kind::kMissed:
      return "missed";
    case Kind::kFalse:
      return "false";
    case Kind::kGap:
      return "gap";
    case Kind::kOutlasting:
      return "too long";
    case Kind::kLater:
      break;
  }
  return "later";
}

Truth truthOf(Event event, const Happened& happened, const std::set<int>& beds) {
  if (event == Event::kOutOfBed) return outOfBedTruth(happened, beds);
  const Intervals fallen = unionOf(happened.fallen);
  return {fallen, without({0, happened.length_s}, fallen), kFallTakes_s, happened.length_s};
}

Score score(Event event, const Truth& truth, const Intervals& alarms) {
  Score score{event, {}, {}};
  for (const Interval& cause : truth.causes) noteCause(event, cause, truth, alarms, score);
  for (const Interval& alarm : alarms) noteAlarm(event, alarm, truth, score);
  sortByTime(score.differences);
  return score;
}

void compareWith(const Score& reference, Score& score) {
  for (std::size_t i = 0; i < std::min(score.causes.size(), reference.causes.size()); ++i) {
    const Cause& with_true_people = reference.causes[i];
    const Cause& cause = score.causes[i];
    if (!cause.needed || !with_true_people.found_at) continue;
    const double since = std::max(cause.when.begin, *with_true_people.found_at);
    if (cause.found_at && *cause.found_at - since > kLater_s) {
      score.differences.push_back({Kind::kLater, score.event, {since, *cause.found_at}, since});
    }
    for (Difference& difference : score.differences) {
      const bool is_this = difference.kind == Kind::kMissed && difference.when.begin == cause.when.begin;
      if (is_this) difference.ask = std::min(since, cause.when.end);
    }
  }
  sortByTime(score.differences);
}

bool hasAlike(const Score& other, const Difference& difference) {
  constexpr double kNear_s = 5;
  return std::any_of(other.differences.begin(), other.differences.end(), [&](const Difference& one) {
    return one.kind == difference.kind && one.event == difference.event &&
           one.when.begin <= difference.when.end + kNear_s && difference.when.begin <= one.when.end + kNear_s;
  });
}

double Sum::falseADay() const {
  constexpr double kDay_s = 86400;
  return length_s > 0 ? false_alarms * kDay_s / length_s : 0;
}

std::optional<double> Sum::medianDelay() const {
  if (delays_s.empty()) return std::nullopt;
  std::vector<double> sorted = delays_s;
  std::sort(sorted.begin(), sorted.end());
  const std::size_t half = sorted.size() / 2;
  return sorted.size() % 2 == 1 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
}

std::optional<double> Sum::worstDelay() const {
  if (delays_s.empty()) return std::nullopt;
  return *std::max_element(delays_s.begin(), delays_s.end());
}

Sum sumOf(const Score& score, double length_s) {
  Sum sum;
  sum.length_s = length_s;
  for (const Cause& cause : score.causes) {
    if (!cause.needed) continue;
    ++sum.needed;
    if (cause.found_at) ++sum.found;
    if (cause.delay_s) sum.delays_s.push_back(*cause.delay_s);
  }
  for (const Difference& difference : score.differences) {
    sum.false_alarms += difference.kind == Kind::kFalse ? 1 : 0;
    sum.outlasting += difference.kind == Kind::kOutlasting ? 1 : 0;
    if (difference.kind != Kind::kGap) continue;
    ++sum.gaps;
    sum.gaps_s += lengthOf(difference.when);
  }
  return sum;
}

Sum operator+(Sum one, const Sum& other) {
  one.length_s += other.length_s;
  one.needed += other.needed;
  one.found += other.found;
  one.false_alarms += other.false_alarms;
  one.gaps += other.gaps;
  one.gaps_s += other.gaps_s;
  one.outlasting += other.outlasting;
  one.delays_s.insert(one.delays_s.end(), other.delays_s.begin(), other.delays_s.end());
  return one;
}

}  // namespace evaluate
