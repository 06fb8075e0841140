// Alarms beside what happened: which were found, missed or false, and how late they came.
#pragma once

#include <array>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "evaluate/judging/happened.h"

namespace evaluate {

enum class Event { kOutOfBed, kFall };
inline constexpr std::array kEvents{Event::kOutOfBed, Event::kFall};
/// As traces, pages and staff know it.
const char* nameOf(Event event);

/// What a bed must be empty for: more than ten cycles of half a second.
inline constexpr double kOutOfBedTakes_s = 5.5;
/// What the rules need to judge a fall: eleven findings that are known, then six that lie still, a finding a cycle.
inline constexpr double kFallTakes_s = 8.5;
/// Who tells what happened has a stopwatch and opinions: each of his times may be wrong by so much.
inline constexpr double kImprecision_s = 1;
/// An alarm that begins so shortly after its cause is about it: the imprecision, a cycle, and getting up or lying down.
inline constexpr double kShortly_s = 3;
/// Longer without a cause an alarm goes on for no good reason: the rules look at eleven findings together, and somebody
/// who is not seen any more stays for eight cycles.
inline constexpr double kOutlasting_s = 10;
/// So much later than with true people is told as a difference.
inline constexpr double kLater_s = 1.5;

/// What the rules had to tell of one event.
struct Truth {
  Intervals causes;  ///< when it had to be told
  Intervals none;    ///< when nothing was to be told; between both, either is right
  double takes_s = 0;
  double length_s = 0;
};

/// `beds` are those in use: when none of them is said to be left, and of one of them nothing is said, both answers are
/// right. A bed that is not in use counts for nothing.
Truth truthOf(Event event, const Happened& happened, const std::set<int>& beds);

enum class Kind { kMissed, kFalse, kGap, kOutlasting, kLater };
/// "missed"; as a table's head has it.
const char* nameOf(Kind kind);

/// Something that is not as it was to be.
struct Difference {
  Kind kind;
  Event event;
  Interval when;   ///< of the cause that was missed, the alarm, the gap, what is too long, or of how much it is later
  double ask = 0;  ///< the moment at which to ask why
};

/// A cause and what became of it.
struct Cause {
  Interval when;
  bool needed = false;             ///< long enough for the rules
  std::optional<double> found_at;  ///< when its alarm began
  /// The alarm's beginning after the cause's; none where it was active before.
  std::optional<double> delay_s;
};

struct Score {
  Event event;
  std::vector<Cause> causes;
  std::vector<Difference> differences;  ///< in the order of time
};

/// `alarms`: when the event was active, in order; what still was at the recording's end ends there.
Score score(Event event, const Truth& truth, const Intervals& alarms);

/// Adds what was found more than kLater_s later than with true people, and asks of what was missed when it was found
/// with them. Both scores are of the same causes.
void compareWith(const Score& reference, Score& score);

/// Whether the other has the same difference, at about the same time.
bool hasAlike(const Score& other, const Difference& difference);

/// Scores in numbers, of one recording or several.
struct Sum {
  double length_s = 0;
  int needed = 0;
  int found = 0;
  int false_alarms = 0;
  int gaps = 0;
  double gaps_s = 0;
  int outlasting = 0;
  std::vector<double> delays_s;

  [[nodiscard]] int missed() const { return needed - found; }
  [[nodiscard]] double falseADay() const;
  [[nodiscard]] std::optional<double> medianDelay() const;
  [[nodiscard]] std::optional<double> worstDelay() const;
};

Sum sumOf(const Score& score, double length_s);
Sum operator+(Sum one, const Sum& other);

}  // namespace evaluate
