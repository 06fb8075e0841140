// What happened in the room, told from the script: intervals and moments.
#include <algorithm>
#include <cmath>
#include <map>
#include <sstream>

#include "simulator/stories/scenario.h"

namespace simulator {
namespace {

constexpr float kHelpReach = 1.6F;  ///< metres between the hips of somebody fallen and of who helps

/// Seconds of the recording.
struct Span {
  float from = 0, to = 0;
};
using Spans = std::vector<Span>;

bool isFallen(const Key& key) { return isOnFloor(key.posture) && key.helpless; }
bool isInBed(const Key& key) {
  return key.posture == Posture::kInBed || key.posture == Posture::kSitUp || key.countsAsInBed == true;
}
bool isOff(const Key& key) { return !isOnBed(key.posture) || key.countsAsInBed == false; }
bool isThere(const Key& /*key*/) { return true; }

/// In order, without what lies outside the recording; what touches is one.
Spans joined(Spans spans, float length) {
  std::sort(spans.begin(), spans.end(), [](const Span& a, const Span& b) { return a.from < b.from; });
  Spans result;
  for (const Span& span : spans) {
    const Span kept{std::max(span.from, 0.0F), std::min(span.to, length)};
    if (kept.from >= kept.to) continue;
    if (!result.empty() && kept.from <= result.back().to) {
      result.back().to = std::max(result.back().to, kept.to);
    } else {
      result.push_back(kept);
    }
  }
  return result;
}

/// The rest of the recording.
Spans without(const Spans& spans, float length) {
  Spans result;
  float from = 0;
  for (const Span& span : spans) {
    result.push_back({from, span.from});
    from = span.to;
  }
  result.push_back({from, length});
  return joined(result, length);
}

/// While somebody stays in what `is` says: from one key for which it holds to the next, or to the end.
void addSpans(const Actor& actor, bool (*is)(const Key&), float length, Spans& spans) {
  for (std::size_t i = 0; i < actor.keys.size(); ++i) {
    const bool last = i + 1 == actor.keys.size();
    if (!is(actor.keys[i]) || (!last && !is(actor.keys[i + 1]))) continue;
    const float end = actor.leaves() ? actor.keys[i].time : length;
    spans.push_back({actor.keys[i].time, last ? end : actor.keys[i + 1].time});
  }
}

/// Tells a scenario's states and moments.
class Teller {
 public:
  explicit Teller(const Scenario& scenario) : m_scenario(scenario), m_length(scenario.seconds) {}

  std::string tell() {
    if (!m_scenario.description.empty()) m_text << "# " << m_scenario.description << '\n';
    m_text << "length " << seconds(m_length) << "\n\n";
    for (const Actor& actor : m_scenario.actors) tellBed(actor);
    tellRoom();
    for (const Actor& actor : m_scenario.actors) {
      if (actor.comes()) note(actor.keys.front().time, nameOf(actor) + " comes");
      noteChanges(actor);
      if (actor.leaves()) note(actor.keys.back().time, nameOf(actor) + " goes");
    }
    if (!m_moments.empty()) m_text << '\n';
    for (const auto& [time, what] : m_moments) m_text << seconds(time) << "  " << what << '\n';
    return m_text.str();
  }

 private:
  /// With hundredths at most.
  static std::string seconds(float time) {
    std::ostringstream text;
    text << std::round(static_cast<double>(time) * 100) / 100;
    return text.str();
  }

  std::string nameOf(const Actor& actor) const {
    if (!actor.patient) return "a carer";
    return "the patient" + (m_scenario.scene.room.beds.size() > 1 ? " of bed " + std::to_string(actor.bed + 1) : "");
  }

  void write(const Spans& spans, const std::string& state) {
    for (const Span& span : joined(spans, m_length)) {
      const std::string from = seconds(span.from), to = seconds(span.to);
      if (from != to) m_text << from << " - " << to << "  " << state << '\n';
    }
  }

  /// Who has not come yet or has gone is out of bed, too.
  void tellBed(const Actor& actor) {
    if (!actor.patient) return;
    const std::string number = actor.bed == 0 ? "" : std::string(" ").append(std::to_string(actor.bed + 1));
    Spans in, out, there;
    addSpans(actor, isInBed, m_length, in);
    addSpans(actor, isOff, m_length, out);
    addSpans(actor, isThere, m_length, there);
    const Spans away = without(joined(there, m_length), m_length);
    out.insert(out.end(), away.begin(), away.end());
    write(in, "in bed" + number);
    write(out, "out of bed" + number);
  }

  void tellRoom() {
    Spans fallen, anybody, carers;
    for (const Actor& actor : m_scenario.actors) {
      addSpans(actor, isFallen, m_length, fallen);
      addSpans(actor, isThere, m_length, anybody);
      if (!actor.patient) addSpans(actor, isThere, m_length, carers);
    }
    write(fallen, "fallen");
    write(without(joined(anybody, m_length), m_length), "nobody");
    write(carers, "carer present");
  }

  void note(float time, const std::string& what) {
    if (time <= m_length) m_moments.emplace(time, what);
  }

  void noteChanges(const Actor& actor) {
    const std::string who = nameOf(actor);
    bool left = isOff(actor.keys.front());
    for (std::size_t i = 1; i < actor.keys.size(); ++i) {
      const Key& from = actor.keys[i - 1];
      const Key& to = actor.keys[i];
      if (actor.patient && !isOff(from) && isOff(to)) note(to.time, who + " leaves the bed");
      left = left || isOff(to);
      if (isFallen(to) && !isFallen(from))
        note(to.time, who + (from.posture == Posture::kStand ? " falls" : " slides down"));
      if (isFallen(from) && !isFallen(to))
        note(from.time, who + (isHelped(actor, from.time) ? " is helped up" : " gets up"));
      if (!actor.patient || !isInBed(to) || !left) continue;
      note(to.time, who + " is back in bed");
      left = false;
    }
  }

  bool isHelped(const Actor& fallen, float time) const {
    const Scene scene = m_scenario.at(time);
    const auto self = std::find_if(scene.people.begin(), scene.people.end(),
                                   [&](const Person& person) { return person.id == fallen.id; });
    return self != scene.people.end() &&
           std::any_of(scene.people.begin(), scene.people.end(), [&](const Person& other) {
             return other.id != fallen.id &&
                    glm::distance(glm::vec2(other.pose.root), glm::vec2(self->pose.root)) < kHelpReach;
           });
  }

  const Scenario& m_scenario;
  float m_length;
  std::ostringstream m_text;
  std::multimap<float, std::string> m_moments;
};

}  // namespace

std::string happenedText(const Scenario& scenario) { return Teller(scenario).tell(); }

}  // namespace simulator
