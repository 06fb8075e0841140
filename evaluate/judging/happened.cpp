#include "evaluate/judging/happened.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <functional>
#include <optional>
#include <stdexcept>
#include <utility>

#include "platform/workstation/system/durable_file.h"

namespace evaluate {
namespace {

constexpr double kLongest_s = 7 * 86400.0;
constexpr std::size_t kMostBytes = std::size_t{1} << 20;
constexpr std::size_t kMostMistakes = 20;
constexpr int kBeds = 3;

constexpr const char* kAllowedLines =
    "allowed are \"length TIME\", \"FROM - TO STATE\" and \"TIME TEXT\", a time as 41.5 or 1:02.5";
constexpr const char* kAllowedStates =
    "allowed are in bed, out of bed (both also with 2 or 3 behind), fallen, nobody and carer present";

/// What is wrong with a line, and what is allowed instead.
struct Mistake : std::runtime_error {
  using std::runtime_error::runtime_error;
};

std::string secondsText(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%g s", seconds);
  return text;
}

/// Digits with at most one point between them; no sign, no exponent.
std::optional<double> plainNumber(std::string_view text) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (text.empty() || !isDigit(text.front()) || !isDigit(text.back())) return std::nullopt;
  if (text.find_first_not_of("0123456789.") != std::string_view::npos) return std::nullopt;
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

/// "41.5" or "1:02.5"; nothing for what is no time.
std::optional<double> timeFrom(std::string_view word) {
  const std::size_t colon = word.find(':');
  if (colon == std::string_view::npos) return plainNumber(word);
  const std::string_view minutes = word.substr(0, colon);
  const auto seconds = plainNumber(word.substr(colon + 1));
  const std::size_t whole_digits = std::min(word.find('.'), word.size()) - colon - 1;
  if (!seconds || *seconds >= 60 || whole_digits != 2 || minutes.find('.') != std::string_view::npos) {
    return std::nullopt;
  }
  const auto whole = plainNumber(minutes);
  return whole ? std::optional(*whole * 60 + *seconds) : std::nullopt;
}

std::vector<std::string> wordsOf(std::string_view line) {
  constexpr std::string_view kBlanks = " \t\r\v\f";
  std::vector<std::string> words;
  for (std::size_t at = line.find_first_not_of(kBlanks); at != std::string_view::npos;
       at = line.find_first_not_of(kBlanks, at)) {
    const std::size_t end = std::min(line.find_first_of(kBlanks, at), line.size());
    words.emplace_back(line.substr(at, end - at));
    at = end;
  }
  return words;
}

std::string joined(const std::vector<std::string>& words, std::size_t first) {
  std::string text;
  for (std::size_t i = first; i < words.size(); ++i) text += (text.empty() ? "" : " ") + words[i];
  return text;
}

/// An interval and the line where it stands.
struct ToldInterval {
  Interval interval;
  std::size_t line;
};
using Told = std::vector<ToldInterval>;

/// A state with the name that files have for it; "in bed 2" where it is of a bed.
std::string stateFrom(const std::string& text) {
  for (std::string state : {"in bed", "out of bed"}) {
    if (text == state || text == state + " 1") return state;
    for (int bed = 2; bed <= kBeds; ++bed) {
      if (text == state + " " + std::to_string(bed)) return text;
    }
  }
  if (text == "fallen" || text == "nobody" || text == "carer present") return text;
  throw Mistake("\"" + text + "\" is no state; " + kAllowedStates);
}

std::string bedState(const std::string& state, int bed) { return bed == 1 ? state : state + " " + std::to_string(bed); }

class Parser {
 public:
  explicit Parser(std::string name) : m_name(std::move(name)) {}

  Happened parse(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    std::size_t number = 0;
    while (!text.empty()) {
      const std::size_t end = std::min(text.find('\n'), text.size());
      takeLine(text.substr(0, end), ++number);
      text.remove_prefix(std::min(end + 1, text.size()));
    }
    if (!m_has_length && m_mistakes.empty())
      note(number + 1, "the length is missing; allowed is \"length TIME\" first");
    checkCombinations();
    if (!m_mistakes.empty()) throw std::runtime_error(allMistakes());
    return result();
  }

 private:
  void takeLine(std::string_view line, std::size_t number) {
    try {
      if (g_utf8_validate(line.data(), static_cast<gssize>(line.size()), nullptr) == FALSE) {
        throw Mistake("is no UTF-8 text; " + std::string(kAllowedLines));
      }
      const std::vector<std::string> words = wordsOf(line.substr(0, line.find('#')));
      if (!words.empty()) takeFact(words, number);
    } catch (const Mistake& mistake) {
      note(number, mistake.what());
    }
  }

  void takeFact(const std::vector<std::string>& words, std::size_t number) {
    if (words[0] == "length") return takeLength(words);
    if (!std::exchange(m_length_was_looked_for, true)) {
      throw Mistake("the length is missing; allowed is \"length TIME\" before everything else");
    }
    const double from = needTime(words[0]);
    if (words.size() > 1 && words[1] == "-") return takeInterval(from, words, number);
    if (words.size() < 2) throw Mistake("says nothing about its time; " + std::string(kAllowedLines));
    checkWithin(from);
    m_happened.moments.push_back({from, joined(words, 1)});
  }

  void takeLength(const std::vector<std::string>& words) {
    const bool is_first = !std::exchange(m_length_was_looked_for, true);
    if (m_has_length || !is_first)
      throw Mistake("the length comes again or late; allowed is one, before everything else");
    if (words.size() != 2) throw Mistake("the length is no time; allowed is \"length TIME\"");
    const double length_s = needTime(words[1]);
    if (!(length_s > 0)) throw Mistake("a length of 0; allowed is the recording's");
    m_happened.length_s = length_s;
    m_has_length = true;
  }

  void takeInterval(double from, const std::vector<std::string>& words, std::size_t number) {
    if (words.size() < 4) throw Mistake("an interval lacks its end or its state; allowed is \"FROM - TO STATE\"");
    const double to = needTime(words[2]);
    const std::string state = stateFrom(joined(words, 3));
    if (from >= to) {
      throw Mistake("begins at " + secondsText(from) + " and ends at " + secondsText(to) +
                    "; allowed is an end after the beginning");
    }
    checkWithin(to);
    Told& told = m_states[state];
    if (!told.empty() && from < told.back().interval.end) {
      throw Mistake("begins before the \"" + state + "\" of line " + std::to_string(told.back().line) +
                    " ends; allowed are intervals in order, without overlaps");
    }
    told.push_back({{from, to}, number});
  }

  static double needTime(const std::string& word) {
    const auto time = timeFrom(word);
    if (!time) throw Mistake("\"" + word + "\" is no time; " + kAllowedLines);
    if (*time > kLongest_s) throw Mistake("\"" + word + "\" is too long; allowed are seven days");
    return *time;
  }

  void checkWithin(double time) const {
    if (!m_has_length || time <= m_happened.length_s) return;
    throw Mistake(secondsText(time) + " lies behind the recording's end; allowed are times up to its length, " +
                  secondsText(m_happened.length_s));
  }

  void checkCombinations() {
    for (int bed = 1; bed <= kBeds; ++bed) {
      const std::string in = bedState("in bed", bed);
      checkApart(in, bedState("out of bed", bed), "one of them at a time");
      checkApart(in, "nobody", "an empty room or somebody in it");
    }
    checkApart("fallen", "nobody", "an empty room or somebody in it");
    checkApart("carer present", "nobody", "an empty room or somebody in it");
  }

  /// The mistake is told where the later of the two lines stands.
  void checkApart(const std::string& one, const std::string& other, const std::string& allowed) {
    for (const ToldInterval& a : m_states[one]) {
      for (const ToldInterval& b : m_states[other]) {
        if (a.interval.begin >= b.interval.end || b.interval.begin >= a.interval.end) continue;
        const auto [first, last] = std::minmax(a.line, b.line);
        std::string text = "\"";
        text.append(one).append("\" and \"").append(other).append("\" at once, with line ");
        text.append(std::to_string(first)).append("; allowed is ").append(allowed);
        note(last, text);
      }
    }
  }

  void note(std::size_t line, const std::string& what) { m_mistakes.emplace_back(line, what); }

  std::string allMistakes() {
    std::stable_sort(m_mistakes.begin(), m_mistakes.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string lines;
    for (std::size_t i = 0; i < std::min(m_mistakes.size(), kMostMistakes); ++i) {
      const auto& [line, what] = m_mistakes[i];
      lines += (lines.empty() ? "" : "\n") + m_name + " line " + std::to_string(line) + ": " + what;
    }
    if (m_mistakes.size() > kMostMistakes) {
      lines += "\n" + m_name + ": and " + std::to_string(m_mistakes.size() - kMostMistakes) + " mistakes more";
    }
    return lines;
  }

  Intervals intervalsOf(const std::string& state) {
    Intervals intervals;
    for (const ToldInterval& told : m_states[state]) intervals.push_back(told.interval);
    return intervals;
  }

  Happened result() {
    for (int bed = 1; bed <= kBeds; ++bed) {
      m_happened.in_bed[bed] = intervalsOf(bedState("in bed", bed));
      m_happened.out_of_bed[bed] = intervalsOf(bedState("out of bed", bed));
    }
    m_happened.fallen = intervalsOf("fallen");
    m_happened.nobody = intervalsOf("nobody");
    m_happened.carer = intervalsOf("carer present");
    std::stable_sort(m_happened.moments.begin(), m_happened.moments.end(),
                     [](const Moment& a, const Moment& b) { return a.at < b.at; });
    return std::move(m_happened);
  }

  const std::string m_name;
  Happened m_happened;
  bool m_has_length = false;
  bool m_length_was_looked_for = false;
  std::map<std::string, Told> m_states;
  std::vector<std::pair<std::size_t, std::string>> m_mistakes;  ///< with their lines
};

}  // namespace

Happened parseHappened(std::string_view text, const std::string& name) { return Parser(name).parse(text); }

Happened readHappened(const std::filesystem::path& file) {
  const auto text = workstation::readFile(file, kMostBytes);
  if (!text) throw std::runtime_error(file.string() + ": there is no such file");
  return parseHappened(*text, file.string());
}

}  // namespace evaluate
