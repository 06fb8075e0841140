#include "analysis/tracker.h"

#include <syslog.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <set>
#include <utility>

#include "analysis/FindingsHistory.h"
#include "app/observer.h"

namespace {

float distanceOf(double dx, double dy) { return static_cast<float>(std::sqrt(dx * dx + dy * dy)); }

template <typename List, typename Distance>
t_all_distances allDistances(const List& existing, const List& inputs, Distance distance) {
  t_all_distances result;
  result.reserve(existing.size());
  for (const auto& known : existing) {
    t_distances_for_one_object row;
    row.reserve(inputs.size());
    for (const auto& input : inputs) {
      row.push_back(distance(known, input));
    }
    result.push_back(std::move(row));
  }
  return result;
}

/// The indices 0 to size - 1.
std::set<int> indicesOf(std::size_t size) {
  std::set<int> indices;
  for (int i = 0; i < static_cast<int>(size); ++i) {
    indices.insert(indices.end(), i);
  }
  return indices;
}

void tellTracked(int id, int column, const t_distances_for_one_object& distances) {
  const auto index = static_cast<std::size_t>(column);
  if (g_observer != nullptr) g_observer->personTracked(id, index, distances[index]);
}

void tellAppeared(int id, int column) {
  if (g_observer != nullptr) g_observer->personAppeared(id, static_cast<std::size_t>(column));
}

}  // namespace

int tracker::init(int maxDisappeared) {
  m_NextObjectId = 0;
  m_MaxDisappeared = maxDisappeared;
  return 0;
}

float tracker::compute_distance(const Skeleton& s0, const Skeleton& s1) const {
  return distanceOf(static_cast<double>(s0.superior.x) - s1.superior.x,
                    static_cast<double>(s0.superior.y) - s1.superior.y);
}

float tracker::compute_distance(rectangle oldOne, rectangle newOne) const {
  const auto [oldX, oldY] = oldOne.get_centroid();
  const auto [newX, newY] = newOne.get_centroid();
  return distanceOf(static_cast<double>(newX) - oldX, static_cast<double>(newY) - oldY);
}

t_all_distances tracker::compute_all_distances(const Skeletons& existing, const Skeletons& inputs) const {
  return allDistances(existing, inputs,
                      [this](const Skeleton& a, const Skeleton& b) { return compute_distance(a, b); });
}

t_all_distances tracker::compute_all_distances(const t_rectangle_list& existing, const t_rectangle_list& inputs) const {
  return allDistances(existing, inputs, [this](rectangle a, rectangle b) { return compute_distance(a, b); });
}

std::vector<int> tracker::min_argsort(const t_all_distances& distances) const {
  std::vector<std::pair<float, int>> minima;
  minima.reserve(distances.size());
  for (const auto& row : distances) {
    minima.emplace_back(*std::min_element(row.begin(), row.end()), static_cast<int>(minima.size()));
  }
  std::sort(minima.begin(), minima.end());
  std::vector<int> order;
  order.reserve(minima.size());
  for (const auto& [minimum, row] : minima) {
    order.push_back(row);
  }
  return order;
}

std::vector<int> tracker::argmin_rows(const t_all_distances& distances, const std::vector<int>& i_RowsOrder) const {
  std::vector<int> columns;
  columns.reserve(i_RowsOrder.size());
  for (const int rowIndex : i_RowsOrder) {
    const auto& row = distances[static_cast<std::size_t>(rowIndex)];
    columns.push_back(static_cast<int>(std::min_element(row.begin(), row.end()) - row.begin()));
  }
  return columns;
}

t_skeleton_objects_map tracker::track_skeletons(const Skeletons& skeletons) {
  if (skeletons.empty()) {
    no_detections();
    return m_Objects;
  }
  if (m_Objects.empty()) {
    register_new_objects(skeletons);
    return m_Objects;
  }
  const t_IDs ObjectIDs = list_object_keys();
  const t_all_distances D = compute_all_distances(list_object_values(), skeletons);
  const std::vector<int> Rows = min_argsort(D);
  const std::vector<int> Cols = argmin_rows(D, Rows);
  if (Rows.size() != Cols.size()) {
    syslog(LOG_ERR, "Error RowsSize != ColsSize");
    return m_Objects;
  }
  std::set<int> UnUsedRows = indicesOf(ObjectIDs.size());
  std::set<int> UnUsedCols = indicesOf(skeletons.size());
  for (std::size_t i = 0; i < Rows.size(); ++i) {
    // Each object proposes its nearest input only: when that is taken, the object goes without.
    if (!UnUsedRows.contains(Rows[i]) || !UnUsedCols.contains(Cols[i])) {
      continue;
    }
    const int ObjectId = ObjectIDs[static_cast<std::size_t>(Rows[i])];
    m_Objects[ObjectId] = skeletons[static_cast<std::size_t>(Cols[i])];
    m_Disappeared[ObjectId] = 0;
    tellTracked(ObjectId, Cols[i], D[static_cast<std::size_t>(Rows[i])]);
    UnUsedRows.erase(Rows[i]);
    UnUsedCols.erase(Cols[i]);
  }
  for (const int row : UnUsedRows) {
    age_one(ObjectIDs[static_cast<std::size_t>(row)]);
  }
  for (const int column : UnUsedCols) {
    register_one(skeletons[static_cast<std::size_t>(column)]);
    tellAppeared(m_NextObjectId - 1, column);
  }
  return m_Objects;
}

void tracker::no_detections() {
  for (const int id : list_object_keys()) {
    age_one(id);
  }
}

void tracker::age_one(int id) {
  const int cycles = ++m_Disappeared[id];
  if (cycles > m_MaxDisappeared) {
    de_register_one(id);
    if (g_observer != nullptr) g_observer->personForgotten(id);
  } else if (g_observer != nullptr) {
    g_observer->personMissing(id, cycles);
  }
}

void tracker::register_one(const Skeleton& skeleton) {
  m_Objects[m_NextObjectId] = skeleton;
  m_Disappeared[m_NextObjectId] = 0;
  ++m_NextObjectId;
}

void tracker::register_new_objects(const Skeletons& skeletons) {
  int column = 0;
  for (const Skeleton& skeleton : skeletons) {
    register_one(skeleton);
    tellAppeared(m_NextObjectId - 1, column++);
  }
}

void tracker::de_register_one(int id) {
  m_Objects.erase(id);
  m_Disappeared.erase(id);
  g_findingsHistory.remove(id);
}

t_IDs tracker::list_object_keys() const {
  t_IDs ids;
  ids.reserve(m_Objects.size());
  for (const auto& [id, skeleton] : m_Objects) {
    ids.push_back(id);
  }
  return ids;
}

Skeletons tracker::list_object_values() const {
  Skeletons skeletons;
  skeletons.reserve(m_Objects.size());
  for (const auto& [id, skeleton] : m_Objects) {
    skeletons.push_back(skeleton);
  }
  return skeletons;
}
