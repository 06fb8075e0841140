#include "platform/workstation/trace/explanation.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "platform/workstation/trace/left_out.h"

namespace workstation {
namespace {

const TraceTrack* trackOf(int id, const TraceCycle& cycle) {
  const auto found =
      std::find_if(cycle.tracks.begin(), cycle.tracks.end(), [id](const TraceTrack& track) { return track.id == id; });
  return found == cycle.tracks.end() ? nullptr : &*found;
}

int missingFor(int id, const TraceCycle& cycle) {
  const TraceTrack* track = trackOf(id, cycle);
  return track == nullptr ? 0 : track->missing;
}

const TracePerson* findPerson(int id, const TraceCycle& cycle) {
  const auto found =
      std::find_if(cycle.people.begin(), cycle.people.end(), [id](const TracePerson& one) { return one.id == id; });
  return found == cycle.people.end() ? nullptr : &*found;
}

std::string setting(const std::string& name, const Scene& scene) {
  const auto found = scene.settings.parameters.find(name);
  return found == scene.settings.parameters.end() ? "" : found->second;
}

std::string nameOf(int id) { return "person " + std::to_string(id); }

std::string fixed(double value, int decimals) {
  char text[352];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

/// "1.1 m" and "0.6 m", or pixels where the floor says nothing about lengths there.
std::pair<std::string, std::string> lengths(double value, double limit, std::optional<double> metre) {
  const bool metres = metre.value_or(0) >= 1;
  const double unit = metres ? *metre : 1;
  const char* name = metres ? " m" : " px";
  const auto [one, other] = sideBySide(value / unit, limit / unit, metres ? 1 : 0);
  return {one + name, other + name};
}

/// "38 px inside its outline"
std::string insideBy(double distance) {
  const std::string pixels = fixed(std::abs(distance), 0);
  return (pixels == "0" ? "on" : pixels + " px " + (distance <= 0 ? "inside" : "outside")) + " its outline";
}

std::optional<double> distanceTo(const char* kind, int area, const TracePerson& person) {
  for (const TraceAreaDistance& one : person.areas) {
    if (one.kind == kind && one.area == area) return one.distance;
  }
  return std::nullopt;
}

std::string countedText(const Scene& scene) {
  const std::string most = setting("MaxDisappeared", scene);
  return ", and counted where last seen" +
         (most.empty() ? "" : " for up to " + secondsOf(std::atoi(most.c_str()), scene));
}

/// "; not seen for 1.5 s, and counted where last seen for up to 4 s"
std::string missingText(int id, const Scene& scene) {
  return "; not seen for " + secondsOf(missingFor(id, scene.now), scene) + countedText(scene);
}

/// "shoulders are 38 px inside its outline"; of somebody missing, "place where last seen is ..."
std::string placeText(const TracePerson& person, double distance, const Scene& scene) {
  if (!person.n) return "place where last seen is " + insideBy(distance);
  const std::string word = placeWord(*person.n, scene.now);
  return word + (word == "shoulders" ? " are " : " is ") + insideBy(distance);
}

std::string areaName(const TracePerson& person) {
  return (person.footing == "bed" ? "bed " : "exclusion area ") + std::to_string(person.area);
}

bool isOnFloor(const TracePerson& person) { return person.footing != "bed" && person.footing != "exclusion"; }

bool isJudged(const TracePerson& person) { return person.findings + 1 >= person.depth; }

bool lies(const TracePerson& person) { return person.activity == "lying" || person.activity == "fallen"; }

/// What made the posture: the shoulders' place, or how short the torso looks.
std::string postureText(const TracePerson& person) {
  if (!person.off || !person.limit) return "";
  if (lies(person) && *person.off <= *person.limit && person.torso_to_legs && person.torso_to_legs_limit) {
    const auto [ratio, limit] = sideBySide(*person.torso_to_legs, *person.torso_to_legs_limit, 2);
    return "the torso look" + std::string(person.n ? "s " : "ed ") + ratio + " times as long as the legs (less than " +
           limit + " counts as lying)";
  }
  const auto [off, limit] = lengths(*person.off, *person.limit, person.metre);
  return "the shoulders " + std::string(person.n ? "are " : "were ") + off +
         " from where they would be if upright above these feet (" +
         (lies(person) ? "limit " + limit : "more than " + limit + " would count as lying") + ")";
}

/// An average: somebody who stands or lies still by now may have moved before.
std::string movementText(const TracePerson& person, const Scene& scene) {
  const std::string text = "over the last " + secondsOf(std::min(person.findings, person.depth), scene) + " the body ";
  if (!person.movement || !person.movement_limit) return text + "moved too much";
  const auto [speed, limit] = sideBySide(*person.movement, *person.movement_limit, 0);
  return text + "moved on average by " + speed + " % of its height a second (limit " + limit + " %)";
}

/// Why a finding allows no fall, of this one or one before.
std::string againstText(const std::string& rule, bool now) {
  struct Text {
    std::string_view rule;
    const char* now;
    const char* before;
  };
  // Nothing that is destroyed: a side thread may ask while the process ends.
  static constexpr std::array kTexts{
      Text{"bed", "is in a bed", "was in a bed"},
      Text{"exclusion", "is in an exclusion area", "was in an exclusion area"},
      Text{"unknown", "cannot be judged", "could not be judged yet"},
      Text{"standing", "stands", "stood"},
      Text{"sitting", "sits", "sat"},
      Text{"near edge", "reaches the picture's edge, where no fall is told", "reached the picture's edge"},
      Text{"moving", "moved", "moved"}};
  for (const Text& text : kTexts) {
    if (text.rule == rule) return now ? text.now : text.before;
  }
  return (now ? "is ruled out by \"" : "was ruled out by \"") + rule + "\"";
}

/// Somebody who lies and is not fallen: for how long, and what was before.
std::string lyingText(const TracePerson& person, const Scene& scene) {
  if (person.against && person.against->back == 0) {
    if (person.against->rule == "moving") return "lies on the floor; " + movementText(person, scene);
    return "lies on the floor but " + againstText(person.against->rule, true);
  }
  std::string text = "lies still on the floor, for " + secondsOf(person.lying_for, scene) + " of " +
                     secondsOf(person.needed, scene) + " so far";
  if (person.against) text += "; before that this person " + againstText(person.against->rule, false);
  return text;
}

/// No more findings are kept than `depth`.
std::string lyingForText(const TracePerson& person, const Scene& scene) {
  return secondsOf(person.lying_for, scene) + (person.lying_for == person.depth ? " or more" : "");
}

std::string fallenText(const TracePerson& person, const Scene& scene) {
  return "has lain still on the floor for " + lyingForText(person, scene) +
         (person.lying_for > person.needed ? " (" + secondsOf(person.needed, scene) + " make a fall)" : "");
}

std::string floorText(const TracePerson& person, const Scene& scene) {
  if (person.activity == "fallen") return fallenText(person, scene);
  if (person.activity == "lying") return lyingText(person, scene);
  if (person.activity == "standing" || person.activity == "sitting") {
    const bool moves = person.movement && person.movement_limit && *person.movement > *person.movement_limit;
    return (person.activity == "standing" ? "stands" : "sits") + (moves ? "; " + movementText(person, scene) : "");
  }
  if (!isJudged(person)) {
    return "is outside the beds, known for " + secondsOf(person.findings, scene) + ", and judged from " +
           secondsOf(person.depth - 1, scene) + " on";
  }
  return "is outside the beds, and whether this person stands or lies cannot be told";
}

/// Where and how somebody was who is not seen now.
std::string lastSeenText(const TracePerson& person, const Scene& scene) {
  if (!isOnFloor(person)) return "last seen in " + areaName(person);
  if (person.activity == "fallen") return "last seen lying still on the floor, for " + lyingForText(person, scene);
  if (person.activity == "lying") return "last seen lying on the floor";
  if (person.activity == "standing" || person.activity == "sitting") return "last seen " + person.activity;
  return "last seen outside the beds";
}

std::string notSeenText(const TracePerson& person, const Scene& scene) {
  const int cycles = missingFor(person.id, scene.now);
  return cycles > 0 ? "has not been seen for " + secondsOf(cycles, scene) : "is not seen";
}

bool isSwitchedOff(const std::string& event, const Scene& scene) {
  const std::string value = setting(event == kTracedFall ? "DetectFallenPersons" : "DetectPatientOutOfBed", scene);
  return !value.empty() && value != "true";
}

std::string nearestText(int area, const Scene& scene) {
  const TracePerson* nearest = nullptr;
  for (const TracePerson& person : scene.now.people) {
    const auto distance = distanceTo("bed", area, person);
    if (distance && (nearest == nullptr || *distance < *distanceTo("bed", area, *nearest))) nearest = &person;
  }
  if (scene.now.people.empty()) return "nobody is tracked";
  if (nearest == nullptr) return "nobody who is tracked is in it";
  const double distance = *distanceTo("bed", area, *nearest);
  if (distance <= 0 && nearest->footing == "bed") return nameOf(nearest->id) + " counts in " + areaName(*nearest);
  return "the nearest is " + nameOf(nearest->id) + ", whose " + placeText(*nearest, distance, scene);
}

/// Who is nearest to an empty bed, and who was seen in it and left out.
std::string emptyText(const TraceBed& bed, const Scene& scene) {
  const std::string left_out = leftOutInBed(bed.area, scene);
  return nearestText(bed.area, scene) + (left_out.empty() ? "" : "; " + left_out);
}

std::string occupiedText(const TraceBed& bed, const Scene& scene) {
  std::string text = "bed " + std::to_string(bed.area) + " counts as occupied";
  if (!bed.by) return text;
  text += " by " + nameOf(*bed.by);
  const TracePerson* person = findPerson(*bed.by, scene.now);
  const auto distance = person == nullptr ? std::nullopt : distanceTo("bed", bed.area, *person);
  if (!distance) return text;
  return text + ", whose " + placeText(*person, *distance, scene) + (person->n ? "" : missingText(*bed.by, scene));
}

/// For how long some bed has been empty; cycles that failed count for nothing.
std::string emptyForText(const Scene& scene) {
  const bool is_enough = scene.now.empty_cycles > scene.now.empty_limit;
  return (is_enough ? "" : "only ") + secondsOf(scene.now.empty_cycles, scene) + ", and more than " +
         secondsOf(scene.now.empty_limit, scene) + " raise the event";
}

std::string outOfBedText(const Scene& scene) {
  if (isSwitchedOff(kTracedOutOfBed, scene)) return "the event is switched off in the settings";
  const auto& beds = scene.now.beds;
  if (beds.empty()) return "no bed area is in use";
  std::vector<std::string> occupied;
  std::vector<std::string> empty;
  for (const TraceBed& bed : beds) (bed.occupied ? occupied : empty).push_back(bedText(bed, scene));
  if (empty.empty()) return listOf(occupied, "; ");
  if (beds.size() > 1) return "a bed has been empty for " + emptyForText(scene) + "; " + listOf(empty, "; ");
  return "bed " + std::to_string(beds[0].area) + " has been empty for " + emptyForText(scene) + "; " +
         emptyText(beds[0], scene);
}

std::string whatBecameOf(int id, const Scene& scene) {
  if (const TracePerson* person = findPerson(id, scene.now)) return personText(*person, scene);
  const auto& forgotten = scene.now.forgotten;
  if (std::find(forgotten.begin(), forgotten.end(), id) == forgotten.end())
    return nameOf(id) + " is not tracked any more";
  const std::string most = setting("MaxDisappeared", scene);
  if (most == "0") return nameOf(id) + " is no longer seen";
  return nameOf(id) + " has not been seen for more than " +
         (most.empty() ? "is allowed" : secondsOf(std::atoi(most.c_str()), scene)) + " and is forgotten";
}

std::string fallText(const Scene& scene) {
  if (isSwitchedOff(kTracedFall, scene)) return "the event is switched off in the settings";
  std::vector<std::string> texts;
  for (const TracePerson& person : scene.now.people) {
    if (person.activity == "fallen") texts.push_back(personText(person, scene));
  }
  if (!texts.empty()) return listOf(texts, "; ");
  if (scene.before != nullptr) {
    for (const TracePerson& person : scene.before->people) {
      if (person.activity == "fallen") texts.push_back(whatBecameOf(person.id, scene));
    }
    if (!texts.empty()) return listOf(texts, "; ");
  }
  if (scene.now.people.empty()) return "nobody is tracked";
  for (const TracePerson& person : scene.now.people) texts.push_back(shortPersonText(person, scene));
  return listOf(texts, "; ");
}

}  // namespace

std::string asSentence(std::string text) {
  if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text + ".";
}

std::string amountOf(std::int64_t count, const std::string& what) {
  return (count == 0 ? "no" : std::to_string(count)) + " " + what + (count == 1 ? "" : "s");
}

std::string secondsOf(int cycles, const Scene& scene) {
  const std::string text = fixed(cycles * scene.cycle_s, 1);
  return (text.ends_with(".0") ? text.substr(0, text.size() - 2) : text) + " s";
}

std::pair<std::string, std::string> sideBySide(double value, double limit, int decimals) {
  constexpr int kMostDecimals = 9;  // what single precision tells apart
  std::pair<std::string, std::string> texts;
  do {
    texts = {fixed(value, decimals), fixed(limit, decimals)};
  } while (texts.first == texts.second && value != limit && ++decimals <= kMostDecimals);
  return texts;
}

std::string listOf(const std::vector<std::string>& texts, const std::string& between) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : between) + text;
  return list.empty() ? "nothing" : list;
}

std::string shortPersonText(const TracePerson& person, const Scene& scene) {
  std::string text = nameOf(person.id) + " ";
  if (!person.n) return text + notSeenText(person, scene) + "; " + lastSeenText(person, scene);
  return text + (isOnFloor(person) ? floorText(person, scene) : "is in " + areaName(person));
}

std::string personText(const TracePerson& person, const Scene& scene) {
  std::string text = person.n ? "" : notSeenText(person, scene) + countedText(scene) + "; ";
  if (isOnFloor(person)) {
    text += person.n ? floorText(person, scene) : lastSeenText(person, scene);
    const std::string posture = person.activity == "unknown" ? "" : postureText(person);
    if (!posture.empty()) text += "; " + posture;
  } else {
    text += person.n ? "is in " + areaName(person) : lastSeenText(person, scene);
    if (const auto distance = distanceTo(person.footing.c_str(), person.area, person)) {
      text += ": the " + placeText(person, *distance, scene);
    }
    if (person.footing == "exclusion") text += ", where no fall is told";
  }
  return nameOf(person.id) + " " + text;
}

std::string bedText(const TraceBed& bed, const Scene& scene) {
  if (bed.occupied) return occupiedText(bed, scene);
  return "bed " + std::to_string(bed.area) + " is empty: " + emptyText(bed, scene);
}

std::optional<TraceEventState> stateOf(const std::string& event, const TraceCycle& cycle) {
  const auto found = std::find_if(cycle.events.begin(), cycle.events.end(),
                                  [&event](const TraceEventState& state) { return state.name == event; });
  return found == cycle.events.end() ? std::nullopt : std::optional(*found);
}

std::string becauseText(const std::string& event, const Scene& scene) {
  if (scene.now.failed) return "the cycle failed: nothing was decided, and all stays as it was";
  if (event == kTracedOutOfBed) return outOfBedText(scene);
  if (event == kTracedFall) return fallText(scene);
  return "the trace tells nothing about it";
}

}  // namespace workstation
