// Who of the labelled people of a picture was found, and which skeletons belong to nobody.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "pose/skeleton.h"

/// All lengths and positions are pixels of the analysis picture.
struct Place {
  double x = 0;
  double y = 0;
};

struct LabelledJoint {
  Place at;
  int visibility = 0;  ///< 0 not labelled, 1 hidden, 2 visible
};

struct Box {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
};

using LabelledJoints = std::array<LabelledJoint, BodyParts.size()>;  ///< in the order of BodyParts

/// Somebody in a picture, as far as it is known.
struct LabelledPerson {
  std::optional<LabelledJoints> joints;
  std::optional<Box> box;
  double area = 0;           ///< that the body covers; 0 for not known
  std::optional<Place> mid;  ///< middle of the shoulders
  std::optional<Place> hip;
  double head = 0;        ///< the head's size; 0 for not known
  bool findable = false;  ///< shows enough for the recall to count
};

/// Somebody is there who counts neither way.
struct IgnoredCircle {
  Place centre;
  double radius = 0;
};

struct LabelledPicture {
  std::vector<LabelledPerson> people;
  std::vector<IgnoredCircle> ignored;
};

/// Completes what follows from the joints: the box around the labelled ones, the middle of the shoulders, the head's
/// size, the hips, and whether the person is findable in a picture of `picture_area` pixels.
void completeFromJoints(LabelledPerson& person, double picture_area);

/// Object keypoint similarity, 0 to 1, over the labelled joints; 0 where none is labelled.
double keypointSimilarity(const LabelledPerson& person, const Skeleton& skeleton);

/// Whether the skeleton's top lies within half a head of the middle of the shoulders, or its joints are similar enough.
bool finds(const Skeleton& skeleton, const LabelledPerson& person);

/// What the skeletons of one picture are worth.
struct Verdict {
  static constexpr std::size_t kNobody = static_cast<std::size_t>(-1);

  std::vector<std::size_t> finder;   ///< by person: the skeleton that finds it, or kNobody
  std::vector<std::size_t> doubles;  ///< skeletons on a person whom another one finds
  std::vector<std::size_t> astray;   ///< skeletons that touch somebody and find nobody
  std::vector<std::size_t> nobodys;  ///< false ones: they touch nobody

  [[nodiscard]] bool isFound(std::size_t person) const { return finder.at(person) != kNobody; }
};

/// Gives each person at most one skeleton and each skeleton at most one person, the closest pairs first.
Verdict judge(const LabelledPicture& truth, const Skeletons& skeletons);

/// An event begins or ends.
struct EventChange {
  double time_s = 0;
  std::string event;
  bool active = false;
};

/// A change of the reference beside the program's; one of the two may be missing.
struct ComparedChange {
  std::optional<EventChange> reference;
  std::optional<EventChange> program;

  [[nodiscard]] const EventChange& known() const { return reference ? *reference : program.value(); }
};

/// A change that comes later or earlier than this is another one.
inline constexpr double kLongestDelay_s = 15;

/// All changes of both, by time: each of the reference's with the nearest of the same kind that the program made.
std::vector<ComparedChange> compareChanges(const std::vector<EventChange>& reference,
                                           const std::vector<EventChange>& program);
