#include "platform/workstation/trace/explain_trace.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <deque>
#include <filesystem>
#include <map>
#include <regex>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/workstation/trace/left_out.h"
#include "platform/workstation/trace/trace_story.h"

namespace workstation {
namespace {

constexpr std::int64_t kSecond_ns = 1'000'000'000;
constexpr std::int64_t kTenth_ns = kSecond_ns / 10;
constexpr std::int64_t kMinute_ns = kSecond_ns * 60;

std::tm localTime(std::int64_t ns) {
  const std::time_t seconds = ns / kSecond_ns;
  std::tm parts{};
  ::localtime_r(&seconds, &parts);
  return parts;
}

/// "   41.5 s" into a recording; "2026-03-01 14:03:07.5" of what was watched live, where the reader is.
std::string timeText(std::int64_t ns, bool replay) {
  char text[64];
  if (replay) {
    std::snprintf(text, sizeof text, "%.1f s", static_cast<double>(ns) / kSecond_ns);
  } else {
    const std::tm parts = localTime(ns);
    const std::size_t size = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    std::snprintf(text + size, sizeof text - size, ".%d", static_cast<int>(ns % kSecond_ns / kTenth_ns));
  }
  return text;
}

/// A moment that somebody asks for: so long after the beginning, or so late in a day.
class Asked {
 public:
  explicit Asked(const std::string& text) : m_text(text) {
    if (isTimeOfDay(text)) return;
    constexpr double kLongest_s = 1e8;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, m_seconds);
    if (error != std::errc() || end != last || !(m_seconds >= 0 && m_seconds <= kLongest_s)) {
      throw std::runtime_error("--at " + text +
                               ": is no time; allowed are seconds, as 41.5, and of what was watched live the time of "
                               "day, as 14:03, 14:03:07 or 14:03:07.5");
    }
  }

  struct Span {
    std::int64_t from_ns = 0;
    std::int64_t to_ns = 0;  ///< still part of it
  };

  /// What is asked for, as time of a cycle: of the day on which that cycle was. As long as what the text leaves open.
  [[nodiscard]] Span spanFor(std::int64_t cycle_ns, std::int64_t begin_ns) const {
    if (!m_is_of_day) {
      constexpr std::int64_t kRounded_ns = kTenth_ns / 2;  // times are told in tenths
      const std::int64_t from = begin_ns + std::llround(m_seconds * static_cast<double>(kSecond_ns));
      return {from, from + kRounded_ns};
    }
    std::tm day = localTime(cycle_ns);
    day.tm_hour = m_of_day[0];
    day.tm_min = m_of_day[1];
    day.tm_sec = m_of_day[2];
    day.tm_isdst = -1;
    const std::int64_t from = std::int64_t{::mktime(&day)} * kSecond_ns + m_of_day[3] * kTenth_ns;
    return {from, from + m_open_ns - 1};
  }
  [[nodiscard]] const std::string& text() const { return m_text; }

 private:
  /// "14:03", "14:03:07" or "14:03:07.5".
  bool isTimeOfDay(const std::string& text) {
    static const std::regex kForm("([01]?[0-9]|2[0-3]):([0-5][0-9])(?::([0-5][0-9])(?:[.]([0-9]))?)?");
    std::smatch parts;
    constexpr std::size_t kLongest = 10;
    if (text.size() > kLongest || !std::regex_match(text, parts, kForm)) return false;
    for (std::size_t i = 0; i < m_of_day.size(); ++i) {
      m_of_day.at(i) = parts[i + 1].matched ? std::stoi(parts[i + 1]) : 0;
    }
    m_open_ns = parts[4].matched ? kTenth_ns : parts[3].matched ? kSecond_ns : kMinute_ns;
    m_is_of_day = true;
    return true;
  }

  std::string m_text;
  double m_seconds = 0;
  bool m_is_of_day = false;
  std::array<int, 4> m_of_day{};  ///< hour, minute, second, tenth
  std::int64_t m_open_ns = 0;
};

/// The files of a directory that live runs wrote, in the order of time, which is that of their names.
std::vector<std::filesystem::path> filesOf(const std::filesystem::path& trace) {
  static const std::regex kName("trace-[0-9]{8}T[0-9]{6}Z[.]jsonl");
  std::error_code error;
  std::vector<std::filesystem::path> files;
  for (std::filesystem::directory_iterator entry(trace, error), end; entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename();
    if (std::regex_match(name, kName)) files.push_back(entry->path());
  }
  if (files.empty())
    throw std::runtime_error(trace.string() +
                             ": holds no trace; allowed is a folder with files as trace-20260301T120000Z.jsonl");
  std::sort(files.begin(), files.end());
  return files;
}

/// What a trouble's name means; empty for none by which nobody is watched.
std::string unwatchedWords(const std::string& why) {
  static const std::map<std::string, std::string> kWords{
      {"analysis-stands-still", "no picture was analysed"},
      {"camera-away", "the camera gave no picture"},
      {"picture-frozen", "the camera sent the same moment again and again"},
      {"too-dark", "it was too dark to see anybody"},
      {"lens-covered", "the lens was covered"},
      {"out-of-focus", "the picture was out of focus"},
      {"camera-moved", "the camera had been moved since the floor was calibrated"}};
  const auto known = kWords.find(why);
  return known == kWords.end() ? "" : known->second;
}

/// What somebody was, or a bed, from one cycle to another.
struct Stretch {
  std::string key;  ///< the same for as long as nothing changes that matters
  std::int64_t from_ns = 0;
  std::int64_t to_ns = 0;
  int cycles = 0;
  std::string text;  ///< of the last cycle

  void goOn(std::int64_t ns, std::string last) {
    to_ns = ns;
    ++cycles;
    text = std::move(last);
  }
};

void append(std::vector<Stretch>& stretches, const std::string& key, std::int64_t ns, const std::string& text) {
  if (stretches.empty() || stretches.back().key != key) stretches.push_back({key, ns, ns, 0, ""});
  stretches.back().goOn(ns, text);
}

/// The person's stretches in these cycles; a cycle without the person ends one.
std::vector<Stretch> stretchesOf(int id, const std::deque<TraceMoment>& moments) {
  std::vector<Stretch> stretches;
  for (const TraceMoment& moment : moments) {
    for (const TracePerson& one : moment.now->people) {
      if (one.id != id) continue;
      const bool is_ruled_out = one.activity == "lying" && one.against && one.against->back == 0;
      const std::string against = is_ruled_out ? one.against->rule : "";
      append(stretches, one.footing + std::to_string(one.area) + one.activity + against + (one.n ? "" : " missing"),
             moment.now->ns, personText(one, moment.scene()));
    }
  }
  return stretches;
}

std::vector<Stretch> bedStretches(int area, const std::deque<TraceMoment>& moments) {
  std::vector<Stretch> stretches;
  for (const TraceMoment& moment : moments) {
    for (const TraceBed& bed : moment.now->beds) {
      if (bed.area != area) continue;
      append(stretches, bed.occupied ? "by " + std::to_string(bed.by.value_or(-1)) : "empty", moment.now->ns,
             bedText(bed, moment.scene()));
    }
  }
  return stretches;
}

/// "; tracked for 13 s (26 cycles)"
std::string ageText(const TracePerson& person, const Scene& scene) {
  const auto& tracks = scene.now.tracks;
  const auto track =
      std::find_if(tracks.begin(), tracks.end(), [&](const TraceTrack& one) { return one.id == person.id; });
  if (track == tracks.end() || track->age == 0) return "";
  return "; tracked for " + secondsOf(track->age, scene) + " (" + amountOf(track->age, "cycle") + ")";
}

std::string areMissing(std::int64_t count, const char* what) {
  return amountOf(count, what) + (count == 1 ? " is" : " are") + " missing";
}

constexpr const char* kEndsWithout = "ends without its end line: ";
constexpr const char* kWhyNoEnd = "the program was killed or the disk was full";

class Explainer {
 public:
  explicit Explainer(const ExplainRequest& request) : m_request(request) {
    if (request.at) m_asked.emplace(*request.at);
  }

  std::string explain() {
    std::error_code error;
    if (std::filesystem::is_directory(m_request.trace, error)) {
      for (const auto& file : filesOf(m_request.trace)) readIfGood(file);
    } else {
      read(m_request.trace);
    }
    for (const TraceChange& change : m_story.rest()) note(change);
    if (m_cycles > 0) tellMissing("on");
    if (!m_unwatched.empty() && !m_unwatched.back().to_ns) tellUnwatched(m_unwatched.back());
    if (m_cycles == 0) {
      throw std::runtime_error(m_first_mistake.value_or(
          m_request.trace + ": holds no cycle; allowed is a trace of a run that has seen pictures"));
    }
    if (m_asked) {
      tellMoment();
    } else if (m_request.event) {
      tellEvent();
    } else {
      tellAll();
    }
    return m_out + m_notes;
  }

 private:
  /// One of many, which a damaged one does not take along.
  void readIfGood(const std::filesystem::path& file) {
    const std::uint64_t cycles = m_cycles;
    try {
      read(file);
      if (m_cycles == cycles && !m_has_end) m_notes += file.string() + ": holds no cycle\n";
    } catch (const TraceMistake& mistake) {
      if (!m_first_mistake) m_first_mistake = mistake.what();
      m_notes.append(mistake.what()).append("; the rest of this file is left out\n");
    }
  }

  void checkHeader(const TraceHeader& header) {
    if (m_headers++ > 0 && (header.replay || isReplay())) {
      throw std::runtime_error(m_request.trace + ": holds the trace of a recording beside another; name one file");
    }
  }

  void read(const std::filesystem::path& file) {
    TraceReader reader(file);
    while (auto line = reader.next()) {
      if (const auto* header = std::get_if<TraceHeader>(&*line)) checkHeader(*header);
      if (const auto* missing = std::get_if<TraceMissing>(&*line)) m_missing_lines += missing->lines;
      m_has_end = m_has_end || std::holds_alternative<TraceEnd>(*line);
      const bool is_cycle = std::holds_alternative<TraceCycle>(*line);
      if (const auto* settings = std::get_if<TraceSettings>(&*line)) compareSettings(*settings);
      if (const auto* watching = std::get_if<TraceWatching>(&*line)) takeWatching(*watching);
      const std::vector<TraceChange> changes = m_story.take(*std::move(line));
      if (is_cycle) takeCycle(m_story.moment());
      for (const TraceChange& change : changes) note(change);
    }
    m_is_cut_off = reader.isCutOff();
    if (m_is_cut_off) {
      m_notes +=
          file.string() + ": the last line is cut off, as in a run that was killed; what comes before it counts\n";
    }
  }

  /// Nobody was watched from one time on, though pictures were analysed; nothing for `to_ns`: to the end.
  struct Unwatched {
    std::int64_t from_ns = 0;
    std::optional<std::int64_t> to_ns;
    std::string why;
  };

  /// A time of another trouble begins where the one before ends.
  void takeWatching(const TraceWatching& watching) {
    if (!m_unwatched.empty() && !m_unwatched.back().to_ns) {
      m_unwatched.back().to_ns = watching.ns;
      tellUnwatched(m_unwatched.back());
    }
    if (!watching.active && !unwatchedWords(watching.why).empty()) {
      m_unwatched.push_back({watching.ns, std::nullopt, unwatchedWords(watching.why)});
    }
  }

  void tellUnwatched(const Unwatched& time) {
    m_lines.push_back("     " + timeText(time.from_ns, isReplay()) +
                      (time.to_ns ? " to " + timeText(*time.to_ns, isReplay()) : " on") +
                      ": nobody was watched: " + time.why + ".");
  }

  /// Why nobody was watched then, as a line; empty when somebody was.
  [[nodiscard]] std::string unwatchedAt(std::int64_t ns) const {
    for (const Unwatched& time : m_unwatched) {
      if (ns >= time.from_ns && (!time.to_ns || ns < *time.to_ns)) return "  Nobody was watched: " + time.why + ".\n";
    }
    return "";
  }

  void takeCycle(const TraceMoment& moment) {
    if (m_cycles++ == 0) m_first_ns = moment.now->ns;
    if (m_asked) lookFor(moment);
    countPace(*moment.now);
    tellMissing("to " + timeText(moment.now->ns, isReplay()));
    tellLost(*moment.now);
    m_has_end = false;
    m_last_ns = moment.now->ns;
    m_last_cycle = moment.now->number;
    m_missing_lines = 0;
    if (moment.now->failed) {
      ++m_failed;
      if (m_failed == 1) m_first_failed_ns = moment.now->ns;
    }
    constexpr std::size_t kMostKept = 240;  // two minutes
    if (moment.now->failed) return;
    m_kept.push_back(moment);
    if (m_kept.size() > kMostKept) m_kept.pop_front();
  }

  /// Numbers begin anew in each run.
  [[nodiscard]] bool isOfNewRun(const TraceCycle& cycle) const { return cycle.number <= m_last_cycle; }

  void countPace(const TraceCycle& cycle) {
    if (m_cycles == 1) return;
    if (isOfNewRun(cycle)) {
      m_lines.push_back("     " + timeText(m_last_ns, isReplay()) + " to " + timeText(cycle.ns, isReplay()) +
                        ": not running." +
                        (m_has_end ? "" : std::string(" The run before ") + kEndsWithout + kWhyNoEnd + "."));
    } else if (cycle.number == m_last_cycle + 1 && cycle.ns > m_last_ns) {
      m_steps_ns += static_cast<double>(cycle.ns - m_last_ns);
      ++m_steps;
    }
  }

  /// Where lines were left out since the last cycle.
  void tellMissing(const std::string& until) {
    if (m_missing_lines == 0) return;
    m_lines.push_back("     " + (m_cycles > 1 ? timeText(m_last_ns, isReplay()) + " " : "") + until + ": " +
                      areMissing(m_missing_lines, "line") + ": the disk was full or did not answer.");
  }

  /// An event that began or ended in cycles that are missing.
  void tellLost(const TraceCycle& cycle) {
    if (m_cycles == 1 || isOfNewRun(cycle)) m_active.clear();
    for (const TraceEventState& state : cycle.events) {
      const auto before = m_active.find(state.name);
      if (before != m_active.end() && before->second != state.active && !state.changed) {
        m_lines.push_back("     " + timeText(m_last_ns, isReplay()) + " to " + timeText(cycle.ns, isReplay()) + ": " +
                          state.name + (state.active ? " began" : " ended") + " in what is missing.");
      }
      m_active[state.name] = state.active;
    }
  }

  /// The last cycle not after the time that is asked for, known once a later one comes. A time of day is one of each
  /// day: with the next day's, that of the day before is over.
  void lookFor(const TraceMoment& moment) {
    const Asked::Span wanted = m_asked->spanFor(moment.now->ns, isReplay() ? 0 : m_first_ns);
    if (m_candidate && (moment.now->ns > wanted.to_ns || wanted.from_ns != m_wanted.from_ns)) {
      m_found_note = m_candidate->now->ns < m_wanted.from_ns ? holeBefore(*moment.now) : "";
      m_found = std::exchange(m_candidate, std::nullopt);
    }
    if (moment.now->ns > wanted.to_ns) return;
    m_candidate = moment;
    m_wanted = wanted;
  }

  /// Says so when cycles are missing between the last and this one; empty when none are.
  [[nodiscard]] std::string holeBefore(const TraceCycle& cycle) const {
    const bool stopped = isOfNewRun(cycle);
    if (!stopped && cycle.number == m_last_cycle + 1) return "";
    const auto missing = static_cast<std::int64_t>(cycle.number - m_last_cycle - 1);
    return "No cycle between " + timeText(m_last_ns, isReplay()) + " and " + timeText(cycle.ns, isReplay()) + ": " +
           (m_missing_lines > 0 ? areMissing(m_missing_lines, "line")
            : stopped           ? "not running"
                                : areMissing(missing, "cycle")) +
           ". The cycle before:\n";
  }

  void note(const TraceChange& change) {
    ++m_changes;
    const std::uint64_t number = isReplay() ? m_changes : change.seq.value_or(m_last_number + 1);
    m_first_number = m_changes == 1 ? number : m_first_number;
    m_last_number = number;
    const bool has_line = isReplay() || change.seq;
    const std::string line = timeText(change.ns, isReplay()) + "  " + changeText(change) +
                             (has_line ? "" : " (Its own line is missing; a cycle tells it.)");
    if (!m_request.event) m_lines.push_back("  " + std::to_string(number) + "  " + line);
    if (m_request.event != number) return;
    m_out = std::to_string(number) + "  " + line + "\n";
    tellHistory(change);
  }

  static std::string changeText(const TraceChange& change) {
    return change.name + (change.active ? ": " : " ended: ") + change.because + ".";
  }

  /// What those were, and where, whom the change is about.
  void tellHistory(const TraceChange& change) {
    if (m_kept.empty()) return;
    const TraceMoment& last = m_kept.back();
    const TraceCycle& about = change.active || last.before == nullptr ? *last.now : *last.before;
    m_out += "What led to it:\n";
    if (change.name == kTracedOutOfBed) {
      for (const TraceBed& bed : last.now->beds) {
        tellStretches("bed " + std::to_string(bed.area), bedStretches(bed.area, m_kept));
      }
    }
    for (const TracePerson& one : about.people) {
      if (change.name == kTracedFall && one.activity != "fallen") continue;
      tellStretches("person " + std::to_string(one.id), stretchesOf(one.id, m_kept));
    }
  }

  /// The heading names the one; so the sentences need not.
  void tellStretches(const std::string& name, const std::vector<Stretch>& stretches) {
    constexpr std::size_t kMost = 8;
    if (!stretches.empty()) m_out += "  " + asSentence(name).substr(0, name.size()) + "\n";
    for (std::size_t i = stretches.size() > kMost ? stretches.size() - kMost : 0; i < stretches.size(); ++i) {
      const Stretch& one = stretches[i];
      m_out += "    " + timeText(one.from_ns, isReplay());
      if (one.cycles > 1) m_out += " to " + timeText(one.to_ns, isReplay()) + ", at the end";
      m_out += ": " + (one.text.starts_with(name + " ") ? one.text.substr(name.size() + 1) : one.text) + ".\n";
    }
  }

  void tellEvent() const {
    if (!m_out.empty()) return;
    throw std::runtime_error(
        m_request.trace + ": has no change " + std::to_string(*m_request.event) + "; " +
        (m_changes == 0 ? "no event began or ended"
                        : "allowed are " + std::to_string(m_first_number) + " to " + std::to_string(m_last_number)));
  }

  void tellMoment() {
    const bool reached = m_candidate && m_wanted.from_ns - m_candidate->now->ns <= kSecond_ns;
    if (m_candidate && (reached || !m_found)) {
      m_found = m_candidate;
      m_found_note = reached ? "" : "The trace ends at " + timeText(m_last_ns, isReplay()) + ". The cycle before:\n";
    }
    if (!m_found) {
      throw std::runtime_error(m_request.trace + ": has no cycle at " + m_asked->text() + "; allowed is " +
                               timeText(m_first_ns, isReplay()) + " to " + timeText(m_last_ns, isReplay()));
    }
    const Scene scene = m_found->scene();
    m_out = m_found_note + timeText(scene.now.ns, isReplay()) + ", cycle " + std::to_string(scene.now.number) + "\n";
    m_out += unwatchedAt(scene.now.ns);
    if (scene.now.failed) {
      m_out +=
          "  The cycle failed: there was no picture or no network. Nothing was decided, and all stayed as it was.\n";
      return;
    }
    std::string said;
    for (const TraceEventState& state : scene.now.events) {
      const std::string because = becauseText(state.name, scene);
      said += because;
      m_out += "  " + state.name + (state.active ? " is active: " : ", no alarm: ") + because + ".\n";
    }
    for (const TraceBed& bed : scene.now.beds) {
      if (said.find("bed " + std::to_string(bed.area)) == std::string::npos) {
        m_out += "  " + asSentence(bedText(bed, scene)) + "\n";
      }
    }
    tellPeople(scene);
  }

  void tellPeople(const Scene& scene) {
    for (const TracePerson& one : scene.now.people) {
      const std::string origin = one.n ? originText(*one.n, scene) : "";
      m_out += "  " + asSentence(personText(one, scene) + ageText(one, scene) + (origin.empty() ? "" : "; " + origin)) +
               "\n";
    }
    for (const int id : scene.now.forgotten)
      m_out += "  Person " + std::to_string(id) + " has been missing for too long and is forgotten.\n";
    const std::vector<std::string> left_out = leftOutTexts(scene);
    if (!left_out.empty()) m_out += "Left out:\n";
    for (const std::string& text : left_out) m_out.append("  ").append(asSentence(text)).append("\n");
  }

  void compareSettings(const TraceSettings& settings) {
    if (m_cycles == 0) return;
    const auto& before = m_story.moment().settings->parameters;
    std::vector<std::string> changed;
    for (const auto& [name, value] : settings.parameters) {
      const auto old = before.find(name);
      if (old == before.end()) continue;
      if (old->second == value) continue;
      changed.push_back(name);
      changed.back().append(" from ").append(old->second).append(" to ").append(value);
    }
    if (changed.empty()) return;
    m_lines.push_back("     after " + timeText(m_last_ns, isReplay()) +
                      "  Settings were changed: " + listOf(changed, ", ") + ".");
  }

  void tellAll() {
    const TraceHeader& header = *m_story.moment().header;
    m_out = m_request.trace + ": " + (isReplay() ? "a recording" : "watched live") + ", " +
            amountOf(static_cast<std::int64_t>(m_cycles), "cycle") + " from " + timeText(m_first_ns, isReplay()) +
            " to " + timeText(m_last_ns, isReplay()) + ", by " + header.program + ".\n";
    m_out += paceText() + settingsText();
    if (m_failed > 0) {
      m_out += asSentence(amountOf(static_cast<std::int64_t>(m_failed), "cycle") + " failed, the first at " +
                          timeText(m_first_failed_ns, isReplay()) + ": no picture or no network") +
               "\n";
    }
    if (m_story.gaps() > 0)
      m_out += asSentence(amountOf(static_cast<std::int64_t>(m_story.gaps()), "cycle") +
                          (m_story.gaps() == 1 ? " is missing: it was never written"
                                               : " are missing: they were never written")) +
               "\n";
    for (const std::string& line : m_lines) m_out.append(line).append("\n");
    if (m_changes == 0) m_out += "No event began or ended; --at TIME tells why.\n";
    if (m_has_end || m_is_cut_off) return;
    m_notes += m_request.trace + ": " + kEndsWithout + kWhyNoEnd +
               (isReplay() ? "\n" : "; or it is running still, or goes on in another file\n");
  }

  /// Empty when the cycles came about as fast as they were meant to.
  [[nodiscard]] std::string paceText() const {
    constexpr double kPerMillisecond = 1e6;
    constexpr double kMuch = 0.1;
    const double meant_ms = m_story.moment().header->period_ms;
    if (m_steps == 0 || meant_ms <= 0) return "";
    const double average_ms = m_steps_ns / static_cast<double>(m_steps) / kPerMillisecond;
    if (std::abs(average_ms - meant_ms) <= kMuch * meant_ms) return "";
    char text[128];
    std::snprintf(text, sizeof text, "Cycles were on average %.2f s apart, not %.2f s.\n", average_ms / 1000,
                  meant_ms / 1000);
    return text;
  }

  [[nodiscard]] std::string settingsText() const;
  [[nodiscard]] bool isReplay() const { return m_story.moment().header->replay; }

  ExplainRequest m_request;
  std::optional<Asked> m_asked;
  TraceStory m_story;
  std::deque<TraceMoment> m_kept;  ///< complete cycles
  std::optional<TraceMoment> m_candidate;
  std::optional<TraceMoment> m_found;
  std::string m_found_note;
  Asked::Span m_wanted;  ///< the candidate's
  std::optional<std::string> m_first_mistake;
  int m_headers = 0;
  std::int64_t m_missing_lines = 0;      ///< since the last cycle
  bool m_has_end = false;                ///< since the last cycle
  bool m_is_cut_off = false;             ///< the last file
  std::map<std::string, bool> m_active;  ///< events, after the last cycle
  std::vector<Unwatched> m_unwatched;
  std::uint64_t m_last_cycle = 0;
  double m_steps_ns = 0;
  std::uint64_t m_steps = 0;
  std::vector<std::string> m_lines;
  std::string m_out;
  std::string m_notes;
  std::uint64_t m_cycles = 0;
  std::uint64_t m_failed = 0;
  std::uint64_t m_changes = 0;
  std::uint64_t m_first_number = 0;
  std::uint64_t m_last_number = 0;
  std::int64_t m_first_ns = 0;
  std::int64_t m_last_ns = 0;
  std::int64_t m_first_failed_ns = 0;
};

/// "0.38" of "0.379999995", as single precision is written down.
std::string shortNumber(const std::string& text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return text;
  char number[32];
  std::snprintf(number, sizeof number, "%.4g", value);
  return number;
}

/// Of the settings what decides, as it was in the end.
std::string Explainer::settingsText() const {
  const auto& parameters = m_story.moment().settings->parameters;
  const auto value = [&parameters](const std::string& name) {
    const auto found = parameters.find(name);
    return found == parameters.end() ? std::string() : found->second;
  };
  const auto areas = [&value](const std::string& kind) {
    std::vector<std::string> used;
    for (const char* area : {"1", "2", "3"}) {
      if (value(kind + area + "Active") == "true") used.emplace_back(area);
    }
    return used.empty() ? "none" : listOf(used, ", ");
  };
  if (parameters.empty()) return "";
  std::string text = "Settings at the end: Sensitivity " + shortNumber(value("Sensitivity")) + ", MaxDisappeared " +
                     value("MaxDisappeared") + "; beds in use: " + areas("Detection") +
                     "; exclusion areas in use: " + areas("Exclusion");
  if (value("DetectPatientOutOfBed") != "true") text += "; Patient Out of Bed is switched off";
  if (value("DetectFallenPersons") != "true") text += "; Fall Detected is switched off";
  if (value("FeetOnFloor") != "true") text += "; FeetOnFloor is off";
  return text + ".\n";
}

}  // namespace

std::string explainTrace(const ExplainRequest& request) { return Explainer(request).explain(); }

}  // namespace workstation
