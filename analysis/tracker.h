// Gives every person a stable identity from one analysis cycle to the next.
#pragma once

#include <map>
#include <vector>

#include "app/common_structs.h"
#include "pose/skeleton.h"

/// Object id to the latest skeleton matched to it.
using t_skeleton_objects_map = std::map<int, Skeleton>;
/// Object id to the number of consecutive cycles without a match.
using t_disappeared_map = std::map<int, int>;
using t_IDs = std::vector<int>;
/// One row of the distance matrix, in pixels: one known object to every new detection.
using t_distances_for_one_object = std::vector<float>;
/// Rows are known objects, columns new detections.
using t_all_distances = std::vector<t_distances_for_one_object>;
using t_rectangle_list = std::vector<rectangle>;

/// Matches the skeletons of a cycle to the known persons by the distance of their superior points: greedily, nearest
/// first, without a limit on the distance. Ids count up from 0 and are never used twice.
class tracker {
 public:
  /// Starts the ids at 0 and sets after how many consecutive cycles without a match a person is still kept. Always 0.
  int init(int maxDisappeared);
  void set_max_disappeared(int maxDisappeared) { m_MaxDisappeared = maxDisappeared; }

  /// Matches this cycle's skeletons; returns everybody known afterwards, those missing in this cycle included. A person
  /// who is dropped leaves the findings history too.
  t_skeleton_objects_map track_skeletons(const Skeletons& skeletons);

  /// Distance in pixels of the superior points (whether set or not) or of the rectangles' centroids.
  float compute_distance(const Skeleton& s0, const Skeleton& s1) const;
  float compute_distance(rectangle oldOne, rectangle newOne) const;
  t_all_distances compute_all_distances(const Skeletons& existing, const Skeletons& inputs) const;
  t_all_distances compute_all_distances(const t_rectangle_list& existing, const t_rectangle_list& inputs) const;

  /// The rows in ascending order of their minimum; equal minima by row.
  std::vector<int> min_argsort(const t_all_distances& distances) const;
  /// For each row named, in that order, the column of its first minimum.
  std::vector<int> argmin_rows(const t_all_distances& distances, const std::vector<int>& i_RowsOrder) const;

  /// One cycle more without a match for everybody.
  void no_detections();
  void register_one(const Skeleton& skeleton);
  void register_new_objects(const Skeletons& skeletons);
  void de_register_one(int id);
  /// In ascending order of the ids, like list_object_values.
  t_IDs list_object_keys() const;
  Skeletons list_object_values() const;

 private:
  /// Counts a cycle without a match; drops the person when these are too many.
  void age_one(int id);

  t_skeleton_objects_map m_Objects;
  t_disappeared_map m_Disappeared;
  int m_NextObjectId = 0;
  int m_MaxDisappeared = 0;
};

extern tracker g_Tracker;
