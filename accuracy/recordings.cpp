// Recordings through the program's own cycles, and through its rules alone on the true people.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>

#include "accuracy/commands.h"
#include "accuracy/program.h"
#include "accuracy/scoring.h"
#include "app/process_state.h"
#include "events/event_manager.h"
#include "events/event_names.h"
#include "platform/clock/clock.h"
#include "platform/support/owners.h"
#include "platform/workstation/decoding/recording_end.h"
#include "reference/truth.h"

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(EventChange, time_s, event, active)

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr std::array kPostures{Posture::kStanding, Posture::kInBed, Posture::kLyingOnFloor, Posture::kChanging};
constexpr std::array kPostureNames{"standing", "in bed", "lying on the floor", "changing"};

struct Count {
  int people = 0;
  int found = 0;
};

/// What the program made of one recording.
struct Outcome {
  double length_s = 0;                 ///< 0 where it cannot be told
  std::vector<std::size_t> skeletons;  ///< by picture
  std::vector<EventChange> changes;
  int judged = 0;  ///< pictures with a truth
  std::array<Count, kPostures.size()> postures;
  std::size_t doubles = 0;
  std::size_t nobodys = 0;
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Count, people, found)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Outcome, length_s, skeletons, changes, judged, postures, doubles, nobodys)

fs::path beside(const fs::path& recording, const char* ending) { return fs::path(recording).replace_extension(ending); }

workstation::LaunchRequest launchOf(const fs::path& recording, const RecordingsRequest& request) {
  workstation::LaunchRequest launch;
  launch.source = recording.string();
  const fs::path own = beside(recording, ".settings.json");
  if (request.settings) {
    launch.settings = *request.settings;
  } else if (fs::exists(own)) {
    launch.settings = own;
  }
  return launch;
}

double lengthOf(const fs::path& recording) {
  const GLibPtr<gchar> uri(g_filename_to_uri(fs::absolute(recording).c_str(), nullptr, nullptr));
  const auto end = uri ? workstation::findRecordingEnd(uri.get()) : std::nullopt;
  if (!end) return 0;
  return std::chrono::duration<double>(end->last_frame + end->frame_duration).count();
}

double now() { return std::chrono::duration<double>(ticker_clock::now().time_since_epoch()).count(); }

/// A person of the truth as a picture's labels would tell.
LabelledPerson labelled(const Skeleton& truth) {
  LabelledPerson person;
  person.joints.emplace();
  std::transform(BodyParts.begin(), BodyParts.end(), person.joints->begin(), [&](BodyPart part) {
    const Keypoint& joint = truth.keypoints.at(part);
    const int visibility = joint.score <= 0.0F ? 0 : joint.score < 1.0F ? 1 : 2;
    return LabelledJoint{{static_cast<double>(joint.point.x), static_cast<double>(joint.point.y)}, visibility};
  });
  completeFromJoints(person, static_cast<double>(g_StreamWidth) * g_StreamHeight);
  return person;
}

void judgePicture(const TruthPicture& truth, Outcome& outcome) {
  LabelledPicture picture;
  std::transform(truth.skeletons.begin(), truth.skeletons.end(), std::back_inserter(picture.people), labelled);
  const Verdict verdict = judge(picture, g_skeletons);
  ++outcome.judged;
  outcome.doubles += verdict.doubles.size();
  outcome.nobodys += verdict.nobodys.size();
  for (std::size_t p = 0; p < picture.people.size(); ++p) {
    if (!picture.people[p].findable) continue;
    Count& count = outcome.postures[static_cast<std::size_t>(truth.postures[p])];
    ++count.people;
    count.found += verdict.isFound(p) ? 1 : 0;
  }
}

void noteChanges(std::array<bool, kEvents.size()>& active, std::vector<EventChange>& changes) {
  for (std::size_t e = 0; e < kEvents.size(); ++e) {
    const bool is_active = g_EventManager->isEventStarted(kEvents[e]);
    if (is_active == active[e]) continue;
    active[e] = is_active;
    changes.push_back({now(), kEvents[e], is_active});
  }
}

Outcome watch(const fs::path& recording, const RecordingsRequest& request) {
  const workstation::LaunchPlan plan = takeOver(launchOf(recording, request), sourceTree());
  startProgram();
  std::ifstream truth(beside(recording, ".truth.jsonl"));
  Outcome outcome;
  outcome.length_s = lengthOf(recording);
  std::array<bool, kEvents.size()> active{};
  runCycles([&] {
    outcome.skeletons.push_back(g_skeletons.size());
    noteChanges(active, outcome.changes);
    if (std::string line; std::getline(truth, line)) {
      const TruthPicture picture = parseTruth(line);
      if (picture.time != ticker_clock::now()) throw std::runtime_error("the truth is not of the pictures' times");
      judgePicture(picture, outcome);
    }
    return true;
  });
  return outcome;
}

/// The changes that the rules make of the true people: those of the reference program, which lies beside this one.
std::vector<EventChange> referenceOf(const fs::path& recording, const RecordingsRequest& request) {
  workstation::LaunchRequest launch = launchOf(recording, request);
  launch.truth = beside(recording, ".truth.jsonl");
  launch.json = true;
  const workstation::LaunchPlan plan = takeOver(launch, sourceTree());
  const fs::path program = fs::read_symlink("/proc/self/exe").parent_path() / plan.program;
  std::FILE* out = popen(("'" + program.string() + "'").c_str(), "r");
  if (out == nullptr) throw std::runtime_error(program.string() + ": cannot be started");
  std::vector<EventChange> changes;
  std::array<char, 1024> line{};
  while (std::fgets(line.data(), line.size(), out) != nullptr) {
    const json change = json::parse(line.data());
    changes.push_back({change.at("t"), change.at("event"), change.at("active")});
  }
  if (pclose(out) != 0) throw std::runtime_error(program.string() + ": has failed");
  return changes;
}

std::string number(const char* format, double value) {
  char text[32];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string describe(const ComparedChange& change) {
  const EventChange& known = change.known();
  std::string text = known.event + (known.active ? " begins " : " ends ");
  if (!change.program) return text + "missed (" + number("%.1f", known.time_s) + ")";
  text += number("%.1f", change.program->time_s);
  if (!change.reference) return text + " (false)";
  return text + number(" (%+.1f)", change.program->time_s - change.reference->time_s);
}

/// The events with their times; beside the reference's delay where there is one.
std::string eventsText(const Outcome& outcome, const std::optional<std::vector<EventChange>>& reference) {
  std::string text;
  const auto add = [&text](const std::string& part) { text += (text.empty() ? "" : "; ") + part; };
  if (reference) {
    for (const ComparedChange& change : compareChanges(*reference, outcome.changes)) add(describe(change));
  } else {
    for (const EventChange& change : outcome.changes) {
      add(change.event + (change.active ? " begins " : " ends ") + number("%.1f", change.time_s));
    }
  }
  return text.empty() ? "none" : text;
}

/// When the fall was told, counted from the moment when somebody lies still.
std::string fallText(const Outcome& outcome, double still_from_end_s) {
  const double still_s = outcome.length_s - still_from_end_s;
  std::string before;
  for (const EventChange& change : outcome.changes) {
    if (change.event != kFallEvent || !change.active) continue;
    if (change.time_s < still_s) {
      before += number(", one %.1f s before it", still_s - change.time_s);
    } else {
      return number("after %.1f s", change.time_s - still_s) + before;
    }
  }
  return "missed" + before;
}

/// A digit for each picture; + for ten and more.
std::string skeletonsText(const Outcome& outcome) {
  std::string text;
  for (const std::size_t count : outcome.skeletons) text += count > 9 ? '+' : static_cast<char>('0' + count);
  return text;
}

std::string share(const Count& count) {
  return count.people == 0 ? "-" : std::to_string(count.found) + " of " + std::to_string(count.people);
}

struct Table {
  bool has_truth;
  std::optional<double> still_from_end_s;

  void head() const {
    std::string names = "| recording | pictures |";
    for (const char* posture : kPostureNames) names += has_truth ? std::string(" ") + posture + " |" : "";
    names += has_truth ? " doubles | false a picture |" : " skeletons, a digit a picture |";
    names += " events, s |";
    if (still_from_end_s) names += " Fall Detected, from lying still |";
    std::puts(names.c_str());
    const auto columns = std::count(names.begin(), names.end(), '|') - 1;
    for (long i = 0; i < columns; ++i) std::fputs("|---", stdout);
    std::puts("|");
  }

  void row(const std::string& name, const Outcome& outcome, const std::string& events) const {
    std::string text = "| " + name + " | " + std::to_string(outcome.skeletons.size()) + " |";
    for (const Count& count : outcome.postures) text += has_truth ? " " + share(count) + " |" : "";
    if (has_truth) {
      text += " " + std::to_string(outcome.doubles) + " |";
      text += number(" %.2f |", static_cast<double>(outcome.nobodys) / std::max(1, outcome.judged));
    } else {
      text += " " + skeletonsText(outcome) + " |";
    }
    text += " " + events + " |";
    if (still_from_end_s) text += " " + fallText(outcome, *still_from_end_s) + " |";
    std::puts(text.c_str());
    std::fflush(stdout);
  }
};

void add(const Outcome& outcome, Outcome& sum) {
  sum.skeletons.insert(sum.skeletons.end(), outcome.skeletons.begin(), outcome.skeletons.end());
  for (std::size_t p = 0; p < kPostures.size(); ++p) {
    sum.postures[p].people += outcome.postures[p].people;
    sum.postures[p].found += outcome.postures[p].found;
  }
  sum.judged += outcome.judged;
  sum.doubles += outcome.doubles;
  sum.nobodys += outcome.nobodys;
}

}  // namespace

void measureRecordings(const RecordingsRequest& request) {
  const auto hasTruth = [](const fs::path& recording) { return fs::exists(beside(recording, ".truth.jsonl")); };
  const Table table{std::any_of(request.files.begin(), request.files.end(), hasTruth), request.still_from_end_s};
  table.head();
  Outcome sum;
  for (const fs::path& recording : request.files) {
    try {
      const Outcome outcome = runApart([&] { return json(watch(recording, request)); });
      std::optional<std::vector<EventChange>> reference;
      if (hasTruth(recording)) reference = runApart([&] { return json(referenceOf(recording, request)); });
      table.row(recording.stem().string(), outcome, eventsText(outcome, reference));
      add(outcome, sum);
    } catch (const std::exception& error) {
      const std::string what = error.what();
      const bool is_named = what.find(recording.string()) != std::string::npos;
      throw std::runtime_error(is_named ? what : recording.string() + ": " + what);
    }
  }
  if (table.has_truth && request.files.size() > 1) {
    Table{true, std::nullopt}.row("all", sum, "");
  }
}
