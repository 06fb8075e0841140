#include "platform/workstation/trace/left_out.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>

namespace workstation {
namespace {

constexpr double kCountingScore = 0.1;  // a part of the upper body counts above it
constexpr std::size_t kLeftShoulder = 5;
constexpr std::size_t kRightShoulder = 6;
constexpr std::size_t kLeftHip = 11;
constexpr std::size_t kRightHip = 12;
constexpr std::size_t kLeftAnkle = 15;
constexpr std::size_t kRightAnkle = 16;
constexpr int kAreas = 3;
constexpr const char* kPossiblePerson = "possible person";  // to whoever reads why there is an alarm

/// A body that the cycle knows by its number, and the run that saw it where it was one alone.
struct Body {
  const TracePose* pose = nullptr;
  std::optional<int> rotation;
};

std::vector<Body> bodiesOf(const TraceCycle& cycle) {
  std::vector<Body> bodies;
  for (const TraceRun& run : cycle.runs) {
    for (const TracePose& pose : run.poses) bodies.push_back({&pose, run.rotation});
  }
  for (const TraceFusion& step : cycle.fusion) {
    if (step.made) bodies.push_back({&*step.made, std::nullopt});
  }
  return bodies;
}

Body bodyOf(int n, const TraceCycle& cycle) {
  for (const Body& body : bodiesOf(cycle)) {
    if (body.pose->n == n) return body;
  }
  return {};
}

TracePlace middle(const TracePoint& one, const TracePoint& other) {
  return {(one.at.x + other.at.x) / 2, (one.at.y + other.at.y) / 2};
}

double apart(const TracePlace& one, const TracePlace& other) { return std::hypot(one.x - other.x, one.y - other.y); }

/// The part that stands for a body's place when both shoulders do not.
std::optional<std::size_t> lonePart(const TracePoints& points) {
  for (const std::size_t part : {0, 1, 2, 3, 4, 6, 5}) {
    if (points.size() == kTraceParts && points[part].score > kCountingScore) return part;
  }
  return std::nullopt;
}

bool hasShoulders(const TracePoints& points) {
  return points.size() == kTraceParts && points[kLeftShoulder].score > kCountingScore &&
         points[kRightShoulder].score > kCountingScore;
}

std::optional<TracePlace> placeOf(const TracePoints& points) {
  if (hasShoulders(points)) return middle(points[kLeftShoulder], points[kRightShoulder]);
  const auto part = lonePart(points);
  return part ? std::optional(points[*part].at) : std::nullopt;
}

/// The outline of a bed area in use; empty when the settings do not tell.
std::vector<TracePlace> outlineOf(int area, const Scene& scene) {
  const auto& parameters = scene.settings.parameters;
  const std::string name = "Detection" + std::to_string(area);
  const auto active = parameters.find(name + "Active");
  std::vector<TracePlace> outline;
  if (active == parameters.end() || active->second != "true") return outline;
  for (const char* corner : {"0", "1", "2", "3"}) {
    const auto x = parameters.find(name + corner + "x");
    const auto y = parameters.find(name + corner + "y");
    if (x == parameters.end() || y == parameters.end()) return {};
    outline.push_back({std::strtod(x->second.c_str(), nullptr), std::strtod(y->second.c_str(), nullptr)});
  }
  return outline;
}

bool isInside(const TracePlace& place, const std::vector<TracePlace>& outline) {
  bool inside = false;
  for (std::size_t i = 0; i < outline.size(); ++i) {
    const TracePlace& from = outline[i];
    const TracePlace& to = outline[(i + 1) % outline.size()];
    if ((from.y > place.y) == (to.y > place.y)) continue;
    if (place.x < from.x + (to.x - from.x) * (place.y - from.y) / (to.y - from.y)) inside = !inside;
  }
  return inside;
}

bool isInBed(const TracePose& pose, int area, const Scene& scene) {
  const auto place = placeOf(pose.points);
  return place && isInside(*place, outlineOf(area, scene));
}

std::string whole(double value) {
  char text[352];
  std::snprintf(text, sizeof text, "%.0f", value);
  return text;
}

std::string both(const TraceRule& why, const std::string& before, const std::string& between, const std::string& after,
                 double factor = 1, int decimals = 2) {
  const double value = why.value.value_or(0) * factor;
  const auto [one, other] = sideBySide(value, why.limit.value_or(0) * factor, decimals);
  return before + one + between + other + after;
}

std::string scoreText(const TraceRule& why) {
  if (why.value.value_or(0) >= why.limit.value_or(0)) return both(why, "score ", " comes after one under ", "");
  return both(why, "score ", " under ", "");
}

/// With the numbers that decided.
std::string whyText(const TraceRule& why) {
  constexpr double kPercent = 100;
  if (why.rule == "pose score") return scoreText(why);
  if (why.rule == "no place") return "neither top nor feet of a body were found";
  if (why.rule == "too small") return both(why, "the body takes ", " % of the picture, less than ", " %", kPercent, 1);
  if (why.rule == "too large") return both(why, "the body takes ", " % of the picture, more than ", " %", kPercent, 0);
  if (why.rule == "turned") return "the body is head down in the picture that this run saw";
  if (why.rule == "upside down at the top") {
    return both(why, "the feet of a body upside down lie ", " px below the picture's top, less than ", " px", 1, 0);
  }
  if (why.rule == "not confirmed") {
    if (!why.value) return "not confirmed: the detector saw no person there";
    return both(why, "not confirmed: the detector's best score ", " is not above ", "");
  }
  if (why.rule == "score") return both(why, "its score ", " is not above ", "");
  if (why.rule == "no top") return "neither shoulders nor head were found";
  return "\"" + why.rule + "\"";
}

std::string bedsAround(const TracePose& pose, const Scene& scene) {
  std::string text;
  for (int area = 1; area <= kAreas; ++area) {
    if (isInBed(pose, area, scene)) text += ", inside bed " + std::to_string(area);
  }
  return text;
}

/// "skeleton 7 at (612, 340), inside bed 1"
std::string skeletonText(int n, const Scene& scene) {
  std::string text = n < 0 ? "a skeleton" : "skeleton " + std::to_string(n);
  const Body body = bodyOf(n, scene.now);
  if (body.pose == nullptr) return text;
  if (const auto place = placeOf(body.pose->points)) text += " at (" + whole(place->x) + ", " + whole(place->y) + ")";
  text += bedsAround(*body.pose, scene);
  if (body.rotation) text += ", seen by the run at " + std::to_string(*body.rotation) + " degrees";
  return text;
}

std::string whoIs(int n, const Scene& scene) {
  for (const TracePerson& person : scene.now.people) {
    if (n >= 0 && person.n == n) return "person " + std::to_string(person.id);
  }
  return n < 0 ? "another" : "skeleton " + std::to_string(n);
}

std::string coveredText(const TraceCovered& one, const Scene& scene) {
  const TraceRule shares{"", one.share, one.limit};
  return whoIs(one.by, scene) +
         " covers it: " + both(shares, "", " % of the smaller box in common, more than ", " %", 100, 0);
}

/// The body that a number ended in, once all of the fusion is done.
int fusedInto(int n, const TraceCycle& cycle) {
  for (const TraceFusion& step : cycle.fusion) {
    const bool involved = step.first == n || step.second == n;
    if (involved && step.made) n = step.made->n;
    if (involved && !step.made && step.dropped == n) n = step.first == n ? step.second : step.first;
  }
  return n;
}

/// Whose numbers left the list one by one, with why; those with too low a pose score only when asked for.
std::vector<std::pair<int, std::string>> leftOut(const Scene& scene) {
  std::vector<std::pair<int, std::string>> all;
  for (const Body& body : bodiesOf(scene.now)) {
    const auto& why = body.pose->dropped;
    if (why && why->rule != "pose score") all.emplace_back(body.pose->n, whyText(*why));
  }
  for (const TraceFusion& step : scene.now.fusion) {
    if (step.made) continue;
    const int other = step.dropped == step.first ? step.second : step.first;
    all.emplace_back(step.dropped, "taken for the same person as " + whoIs(fusedInto(other, scene.now), scene));
  }
  for (const TraceLeftOut& one : scene.now.filtered) all.emplace_back(one.n, whyText(one.why));
  for (const TraceCovered& one : scene.now.suppressed) all.emplace_back(one.n, coveredText(one, scene));
  return all;
}

/// Those of a run whose pose score is too low, as one: there are dozens, and hardly one of them is a person.
std::string lowScores(const std::vector<const TracePose*>& poses, const char* name) {
  if (poses.empty()) return "";
  const auto* const best = *std::max_element(
      poses.begin(), poses.end(), [](const TracePose* a, const TracePose* b) { return a->score < b->score; });
  return amountOf(static_cast<std::int64_t>(poses.size()), name) + " scored too low" +
         (poses.size() == 1 ? ": " : ", the best of them: ") + whyText(*best->dropped);
}

std::vector<const TracePose*> lowOf(const std::vector<TracePose>& poses) {
  std::vector<const TracePose*> low;
  for (const TracePose& pose : poses) {
    if (pose.dropped && pose.dropped->rule == "pose score") low.push_back(&pose);
  }
  return low;
}

bool isSeen(const TracePoint& one, const TracePoint& other) {
  constexpr double kSureScore = 0.3;
  return one.score > kSureScore && other.score > kSureScore;
}

double bodyLength(const TracePoints& points) {
  return apart(middle(points[kLeftShoulder], points[kRightShoulder]), middle(points[kLeftAnkle], points[kRightAnkle]));
}

/// Whether two views are too unlike each other to be of one body: both are sure of their shoulders, hips or ankles, and
/// those lie apart by three quarters of the body's length. Views of one body alone disagree by half of it at most, but
/// where one of them has it the wrong way round: its shoulders are where the other sees the feet.
bool areOfTwoPeople(const TracePoints& one, const TracePoints& other) {
  constexpr double kTooFar = 0.75;
  constexpr double kSame = 1.0 / 3;
  constexpr std::array<std::pair<std::size_t, std::size_t>, 3> kPairs = {
      {{kLeftShoulder, kRightShoulder}, {kLeftHip, kRightHip}, {kLeftAnkle, kRightAnkle}}};
  if (one.size() != kTraceParts || other.size() != kTraceParts) return false;
  const double length = std::max(bodyLength(one), bodyLength(other));
  const auto distance = [&](std::size_t pair_of_one, std::size_t pair_of_other) {
    const auto [left, right] = kPairs.at(pair_of_one);
    const auto [other_left, other_right] = kPairs.at(pair_of_other);
    return apart(middle(one[left], one[right]), middle(other[other_left], other[other_right]));
  };
  if (std::min(distance(0, 2), distance(2, 0)) < kSame * length) return false;
  for (std::size_t pair = 0; pair < kPairs.size(); ++pair) {
    const auto [left, right] = kPairs.at(pair);
    const bool sure = isSeen(one[left], one[right]) && isSeen(other[left], other[right]);
    if (sure && distance(pair, pair) > kTooFar * length) return true;
  }
  return false;
}

struct Origin {
  std::set<int> rotations;  ///< of the runs whose bodies ended in this one
  bool mixed = false;       ///< of two people, as it seems
};

/// Steps stand in their order, so that one look from the last to the first finds all.
Origin originOf(int n, const TraceCycle& cycle) {
  Origin origin;
  std::set<int> sources{n};
  for (auto step = cycle.fusion.rbegin(); step != cycle.fusion.rend(); ++step) {
    if (!step->made || !sources.contains(step->made->n)) continue;
    sources.insert({step->first, step->second});
    const Body first = bodyOf(step->first, cycle);
    const Body second = bodyOf(step->second, cycle);
    if (first.pose == nullptr || second.pose == nullptr) continue;
    origin.mixed = origin.mixed || areOfTwoPeople(first.pose->points, second.pose->points);
  }
  for (const int source : sources) {
    if (const auto rotation = bodyOf(source, cycle).rotation) origin.rotations.insert(*rotation);
  }
  return origin;
}

/// Of those who were seen inside the bed and fused: into whom, when that one's place is outside.
std::vector<std::string> fusedOutOfBed(int area, const Scene& scene) {
  std::vector<std::string> texts;
  for (const TraceRun& run : scene.now.runs) {
    for (const TracePose& pose : run.poses) {
      const int end = pose.dropped ? pose.n : fusedInto(pose.n, scene.now);
      const Body body = bodyOf(end, scene.now);
      if (end == pose.n || body.rotation || body.pose == nullptr) continue;
      if (!isInBed(pose, area, scene) || isInBed(*body.pose, area, scene)) continue;
      texts.push_back("fused into " + whoIs(end, scene) + ", who is outside");
    }
  }
  return texts;
}

}  // namespace

std::string placeWord(int n, const TraceCycle& cycle) {
  const Body body = bodyOf(n, cycle);
  if (body.pose == nullptr || hasShoulders(body.pose->points)) return "shoulders";
  const auto part = lonePart(body.pose->points);
  return !part ? "shoulders" : *part < kLeftShoulder ? "head" : "shoulder";
}

std::string originText(int n, const Scene& scene) {
  const Body body = bodyOf(n, scene.now);
  if (body.pose == nullptr) return "";
  const Origin origin = originOf(n, scene.now);
  std::vector<std::string> names;
  for (const int rotation : origin.rotations) names.push_back(std::to_string(rotation));
  char score[352] = "unknown";
  if (body.pose->score) std::snprintf(score, sizeof score, "%.2f", *body.pose->score);
  return "seen by the run" + std::string(names.size() == 1 ? "" : "s") + " at " + listOf(names, " and ") +
         " degrees, " + (body.rotation ? "score " : "scores together ") + score +
         (origin.mixed ? "; shoulders and ankles of two people may have been mixed" : "");
}

std::string leftOutInBed(int area, const Scene& scene) {
  std::vector<std::string> reasons = fusedOutOfBed(area, scene);
  for (const auto& [n, why] : leftOut(scene)) {
    const Body body = bodyOf(n, scene.now);
    if (body.pose != nullptr && isInBed(*body.pose, area, scene)) reasons.push_back(why);
  }
  std::vector<TracePose> low;
  for (const TraceRun& run : scene.now.runs) {
    for (const TracePose* pose : lowOf(run.poses)) {
      if (isInBed(*pose, area, scene)) low.push_back(*pose);
    }
  }
  std::string text;
  if (!reasons.empty()) {
    text = amountOf(static_cast<std::int64_t>(reasons.size()), kPossiblePerson) + " inside its outline " +
           (reasons.size() == 1 ? "was" : "were") + " left out: " + listOf(reasons, "; ");
  }
  const std::string scores = lowScores(lowOf(low), kPossiblePerson);
  if (scores.empty()) return text;
  return (text.empty() ? "inside its outline " : text + "; ") + scores;
}

std::vector<std::string> leftOutTexts(const Scene& scene) {
  std::vector<std::string> texts;
  if (scene.now.nobody_asked) texts.emplace_back("there was no picture to confirm people in: all count as confirmed");
  for (const auto& [n, why] : leftOut(scene)) texts.push_back(skeletonText(n, scene) + ": " + why);
  for (const TraceRun& run : scene.now.runs) {
    const std::string low = lowScores(lowOf(run.poses), "skeleton");
    if (!low.empty()) texts.push_back("the run at " + std::to_string(run.rotation) + " degrees: " + low);
  }
  return texts;
}

}  // namespace workstation
