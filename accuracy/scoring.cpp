#include "accuracy/scoring.h"

#include <algorithm>
#include <cmath>
#include <tuple>

namespace {

/// Per keypoint, in the order of BodyParts: the standard deviation of human annotators, as a share of the body's scale
/// (COCO keypoint evaluation, cocodataset.org/#keypoints-eval; sigmas of its reference implementation).
constexpr std::array<double, BodyParts.size()> kSigmas = {.026, .025, .025, .035, .035, .079, .079, .072, .072,
                                                          .062, .062, .107, .107, .087, .087, .089, .089};
constexpr double kSimilarEnough = 0.5;
constexpr double kBoxToArea = 0.5;    ///< a body covers about half of its box
constexpr double kJointScore = 0.1;   ///< a joint below it lies nowhere in particular
constexpr double kBoxMargin = 0.1;    ///< of the box's longer side
constexpr double kReach_heads = 1.5;  ///< from the line between shoulders and hips, where no box is known
// Of an adult in heads: shoulders are 1/0.6 wide, ears 1/1.5 apart, nose to shoulders' middle 1/0.7.
constexpr double kHeadOfShoulders = 0.6;
constexpr double kHeadOfEars = 1.5;
constexpr double kHeadOfNeck = 0.7;
constexpr int kFindableJoints = 6;
constexpr double kFindableShare = 0.007;  ///< of the picture

std::size_t indexOf(BodyPart part) { return static_cast<std::size_t>(part); }

double distance(const Place& a, const Place& b) { return std::hypot(a.x - b.x, a.y - b.y); }

Place toPlace(const Point& point) { return {static_cast<double>(point.x), static_cast<double>(point.y)}; }

Place middleOf(const Place& a, const Place& b) { return {(a.x + b.x) / 2, (a.y + b.y) / 2}; }

/// The middle of two labelled joints.
std::optional<Place> between(const LabelledJoints& joints, BodyPart a, BodyPart b) {
  const LabelledJoint& first = joints[indexOf(a)];
  const LabelledJoint& second = joints[indexOf(b)];
  if (first.visibility == 0 || second.visibility == 0) return std::nullopt;
  return middleOf(first.at, second.at);
}

double span(const LabelledJoints& joints, BodyPart a, BodyPart b) {
  return between(joints, a, b) ? distance(joints[indexOf(a)].at, joints[indexOf(b)].at) : 0;
}

double headSize(const LabelledJoints& joints, const Place& mid) {
  const LabelledJoint& nose = joints[indexOf(BodyPart::Nose)];
  return std::max({kHeadOfShoulders * span(joints, BodyPart::LeftShoulder, BodyPart::RightShoulder),
                   kHeadOfEars * span(joints, BodyPart::LeftEar, BodyPart::RightEar),
                   nose.visibility == 0 ? 0 : kHeadOfNeck * distance(nose.at, mid)});
}

std::optional<Box> boxOf(const LabelledJoints& joints) {
  std::optional<Box> box;
  for (const LabelledJoint& joint : joints) {
    if (joint.visibility == 0) continue;
    if (!box) box = Box{joint.at.x, joint.at.y, 0, 0};
    const double right = std::max(box->x + box->width, joint.at.x);
    const double bottom = std::max(box->y + box->height, joint.at.y);
    box->x = std::min(box->x, joint.at.x);
    box->y = std::min(box->y, joint.at.y);
    box->width = right - box->x;
    box->height = bottom - box->y;
  }
  return box;
}

double areaOf(const LabelledPerson& person) {
  if (person.area > 0) return person.area;
  return person.box ? kBoxToArea * person.box->width * person.box->height : 0;
}

/// How far a place is from the line between two others.
double distanceToLine(const Place& place, const Place& from, const Place& to) {
  const double dx = to.x - from.x;
  const double dy = to.y - from.y;
  const double length2 = dx * dx + dy * dy;
  const double along = length2 > 0 ? ((place.x - from.x) * dx + (place.y - from.y) * dy) / length2 : 0;
  const double t = std::clamp(along, 0.0, 1.0);
  return distance(place, {from.x + t * dx, from.y + t * dy});
}

bool isOn(const Place& place, const LabelledPerson& person) {
  if (person.box) {
    const Box& box = *person.box;
    const double margin = kBoxMargin * std::max(box.width, box.height);
    return place.x >= box.x - margin && place.x <= box.x + box.width + margin && place.y >= box.y - margin &&
           place.y <= box.y + box.height + margin;
  }
  return person.mid &&
         distanceToLine(place, *person.mid, person.hip.value_or(*person.mid)) <= kReach_heads * person.head;
}

/// How many joints of the skeleton, those that were seen at all, fulfil the condition.
template <typename Condition>
long countJoints(const Skeleton& skeleton, Condition condition) {
  return std::count_if(skeleton.keypoints.begin(), skeleton.keypoints.end(), [&](const auto& entry) {
    return static_cast<double>(entry.second.score) > kJointScore && condition(toPlace(entry.second.point));
  });
}

/// How well a skeleton that finds a person fits: 1 is best, 0 the least.
double fit(const Skeleton& skeleton, const LabelledPerson& person) {
  double closeness = 0;
  if (skeleton.hasSuperior && person.mid && person.head > 0) {
    closeness = 1 - distance(toPlace(skeleton.superior), *person.mid) / (person.head / 2);
  }
  const double similarity = keypointSimilarity(person, skeleton);
  return std::max(closeness, (similarity - kSimilarEnough) / (1 - kSimilarEnough));
}

void assign(const LabelledPicture& truth, const Skeletons& skeletons, Verdict& verdict, std::vector<bool>& used) {
  struct Pair {
    double fit;
    std::size_t person;
    std::size_t skeleton;
  };
  std::vector<Pair> pairs;
  for (std::size_t p = 0; p < truth.people.size(); ++p) {
    for (std::size_t s = 0; s < skeletons.size(); ++s) {
      if (finds(skeletons[s], truth.people[p])) pairs.push_back({fit(skeletons[s], truth.people[p]), p, s});
    }
  }
  std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) { return a.fit > b.fit; });
  for (const Pair& pair : pairs) {
    if (verdict.isFound(pair.person) || used[pair.skeleton]) continue;
    verdict.finder[pair.person] = pair.skeleton;
    used[pair.skeleton] = true;
  }
}

/// The person with most of the skeleton's joints; somebody found where there are two; kNobody where none is touched.
std::size_t touched(const LabelledPicture& truth, const Skeleton& skeleton, const Verdict& verdict) {
  std::tuple<long, bool> most{0, false};
  std::size_t whom = Verdict::kNobody;
  for (std::size_t p = 0; p < truth.people.size(); ++p) {
    const std::tuple<long, bool> here{
        countJoints(skeleton, [&](const Place& place) { return isOn(place, truth.people[p]); }), verdict.isFound(p)};
    if (std::get<0>(here) == 0 || here <= most) continue;
    most = here;
    whom = p;
  }
  return whom;
}

bool isIgnored(const LabelledPicture& truth, const Skeleton& skeleton) {
  return std::any_of(truth.ignored.begin(), truth.ignored.end(), [&](const IgnoredCircle& circle) {
    return countJoints(skeleton, [&](const Place& place) { return distance(place, circle.centre) <= circle.radius; }) >
           0;
  });
}

}  // namespace

void completeFromJoints(LabelledPerson& person, double picture_area) {
  const LabelledJoints& joints = person.joints.value();
  if (!person.box) person.box = boxOf(joints);
  if (!person.mid) person.mid = between(joints, BodyPart::LeftShoulder, BodyPart::RightShoulder);
  if (!person.hip) person.hip = between(joints, BodyPart::LeftHip, BodyPart::RightHip);
  if (person.head <= 0 && person.mid) person.head = headSize(joints, *person.mid);
  const auto labelled =
      std::count_if(joints.begin(), joints.end(), [](const auto& joint) { return joint.visibility > 0; });
  person.findable = person.mid && labelled >= kFindableJoints &&
                    person.box->width * person.box->height >= kFindableShare * picture_area;
}

double keypointSimilarity(const LabelledPerson& person, const Skeleton& skeleton) {
  const double area = areaOf(person);
  if (!person.joints || area <= 0) return 0;
  double sum = 0;
  int labelled = 0;
  for (const BodyPart part : BodyParts) {
    const LabelledJoint& joint = (*person.joints)[indexOf(part)];
    if (joint.visibility == 0) continue;
    ++labelled;
    const auto seen = skeleton.keypoints.find(part);
    if (seen == skeleton.keypoints.end()) continue;
    const double d = distance(joint.at, toPlace(seen->second.point));
    const double k = 2 * kSigmas[indexOf(part)];
    sum += std::exp(-d * d / (2 * area * k * k));
  }
  return labelled == 0 ? 0 : sum / labelled;
}

bool finds(const Skeleton& skeleton, const LabelledPerson& person) {
  const bool is_close =
      skeleton.hasSuperior && person.mid && distance(toPlace(skeleton.superior), *person.mid) <= person.head / 2;
  return is_close || keypointSimilarity(person, skeleton) >= kSimilarEnough;
}

Verdict judge(const LabelledPicture& truth, const Skeletons& skeletons) {
  Verdict verdict;
  verdict.finder.assign(truth.people.size(), Verdict::kNobody);
  std::vector<bool> used(skeletons.size());
  assign(truth, skeletons, verdict, used);
  for (std::size_t s = 0; s < skeletons.size(); ++s) {
    if (used[s]) continue;
    if (const std::size_t whom = touched(truth, skeletons[s], verdict); whom != Verdict::kNobody) {
      (verdict.isFound(whom) ? verdict.doubles : verdict.astray).push_back(s);
    } else if (!isIgnored(truth, skeletons[s])) {
      verdict.nobodys.push_back(s);
    }
  }
  return verdict;
}

std::vector<ComparedChange> compareChanges(const std::vector<EventChange>& reference,
                                           const std::vector<EventChange>& program) {
  std::vector<ComparedChange> compared;
  std::vector<EventChange> left = program;
  for (const EventChange& change : reference) {
    const auto delay = [&](const EventChange& other) {
      const bool is_same = other.event == change.event && other.active == change.active;
      return is_same ? std::abs(other.time_s - change.time_s) : kLongestDelay_s + 1;
    };
    const auto nearest =
        std::min_element(left.begin(), left.end(), [&](const auto& a, const auto& b) { return delay(a) < delay(b); });
    compared.push_back({change, std::nullopt});
    if (nearest == left.end() || delay(*nearest) > kLongestDelay_s) continue;
    compared.back().program = *nearest;
    left.erase(nearest);
  }
  for (const EventChange& change : left) compared.push_back({std::nullopt, change});
  std::stable_sort(compared.begin(), compared.end(),
                   [](const auto& a, const auto& b) { return a.known().time_s < b.known().time_s; });
  return compared;
}
