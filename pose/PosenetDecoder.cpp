#include "pose/PosenetDecoder.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <numeric>

namespace PosenetDecoder {

namespace {

constexpr float kNoScore = -100000.0F;  // logit of a keypoint that was not found
constexpr float kNoPosition = -1.0F;

/// Whether a comes before b by decreasing value. A total order even with values that are not numbers.
bool isGreater(float a, float b) { return a > b || (std::isnan(b) && !std::isnan(a)); }

std::size_t cellIndex(int y, int x, int width, int channels) {
  return (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) *
         static_cast<std::size_t>(channels);
}

/// Whether no neighbour within the radius, clipped to the grid, has a greater score in the same channel.
bool isLocalMaximum(const float* scores, int height, int width, int channels, int y, int x, int channel, int radius) {
  const float score = scores[cellIndex(y, x, width, channels) + static_cast<std::size_t>(channel)];
  for (int ny = std::max(y - radius, 0); ny <= std::min(y + radius, height - 1); ++ny) {
    for (int nx = std::max(x - radius, 0); nx <= std::min(x + radius, width - 1); ++nx) {
      if (scores[cellIndex(ny, nx, width, channels) + static_cast<std::size_t>(channel)] > score) return false;
    }
  }
  return true;
}

Point clampToGrid(float y, float x, int height, int width) {
  return {clamp(y, 0.0F, static_cast<float>(height - 1)), clamp(x, 0.0F, static_cast<float>(width - 1))};
}

std::array<float, kNumKeypoints> inDecreasingOrder(const PoseKeypointScores& scores) {
  auto sorted = scores.keypoint;
  std::sort(sorted.begin(), sorted.end(), isGreater);
  return sorted;
}

float meanScore(const PoseKeypointScores& scores) {
  const auto sorted = inDecreasingOrder(scores);
  return std::accumulate(sorted.begin(), sorted.end(), 0.0F) / static_cast<float>(kNumKeypoints);
}

/// The poses found so far; unused slots follow the first `scores.size()` ones.
struct Candidates {
  explicit Candidates(int capacity)
      : poses(static_cast<std::size_t>(capacity)), keypointScores(static_cast<std::size_t>(capacity)) {}

  std::vector<PoseKeypoints> poses;
  std::vector<PoseKeypointScores> keypointScores;
  std::vector<float> scores;
};

/// Writes the poses of at least the threshold, best first.
int writePoses(const Candidates& found, float score_threshold, int stride, PoseKeypoints* pose_keypoints,
               PoseKeypointScores* pose_keypoint_scores, float* pose_scores) {
  std::vector<int> order;
  DecreasingArgSort(found.scores, &order);
  const auto scale = static_cast<float>(stride);
  int written = 0;
  for (const int index : order) {
    const auto source = static_cast<std::size_t>(index);
    if (found.scores[source] < score_threshold) break;
    for (std::size_t k = 0; k < kNumKeypoints; ++k) {
      const Point& cell = found.poses[source].keypoint[k];
      pose_keypoints[written].keypoint[k] = {cell.y * scale, cell.x * scale};
    }
    pose_keypoint_scores[written] = found.keypointScores[source];
    pose_scores[written] = found.scores[source];
    ++written;
  }
  return written;
}

}  // namespace

float Logodds(float x) { return static_cast<float>(-std::log(1.0 / (static_cast<double>(x) + 1e-6) - 1.0)); }

float Sigmoid(float x) { return 1.0F / (std::exp(-x) + 1.0F); }

float ComputeSquaredDistance(const Point& a, const Point& b) {
  const float dy = b.y - a.y;
  const float dx = b.x - a.x;
  return dy * dy + dx * dx;
}

float clamp(float v, float lo, float hi) {
  if (!(v > lo)) return lo;
  return v < hi ? v : hi;
}

void DecreasingArgSort(const float* values, int n, int* indices) {
  std::iota(indices, indices + n, 0);
  std::sort(indices, indices + n, [values](int a, int b) { return isGreater(values[a], values[b]); });
}

void DecreasingArgSort(const std::vector<float>& values, std::vector<int>* indices) {
  indices->resize(values.size());
  DecreasingArgSort(values.data(), static_cast<int>(values.size()), indices->data());
}

void BuildLinearInterpolation(float x, int n, int* x_floor, int* x_ceil, float* x_lerp) {
  const float inside = clamp(x, 0.0F, static_cast<float>(n - 1));
  *x_floor = static_cast<int>(std::floor(inside));
  *x_ceil = static_cast<int>(std::ceil(inside));
  *x_lerp = x - static_cast<float>(*x_floor);
}

void BuildBilinearInterpolation(float y, float x, int height, int width, int* y_floor, int* x_floor, int* y_ceil,
                                int* x_ceil, float* y_lerp, float* x_lerp) {
  BuildLinearInterpolation(y, height, y_floor, y_ceil, y_lerp);
  BuildLinearInterpolation(x, width, x_floor, x_ceil, x_lerp);
}

void SampleTensorAtMultipleChannels(const float* tensor, int height, int width, int num_channels, float y, float x,
                                    const int* channels, int count, float* result) {
  int y0 = 0;
  int x0 = 0;
  int y1 = 0;
  int x1 = 0;
  float ly = 0.0F;
  float lx = 0.0F;
  BuildBilinearInterpolation(y, x, height, width, &y0, &x0, &y1, &x1, &ly, &lx);
  const float* const topLeft = tensor + cellIndex(y0, x0, width, num_channels);
  const float* const topRight = tensor + cellIndex(y0, x1, width, num_channels);
  const float* const bottomLeft = tensor + cellIndex(y1, x0, width, num_channels);
  const float* const bottomRight = tensor + cellIndex(y1, x1, width, num_channels);
  for (int i = 0; i < count; ++i) {
    const int c = channels[i];
    result[i] = (1.0F - ly) * ((1.0F - lx) * topLeft[c] + lx * topRight[c]) +
                ly * ((1.0F - lx) * bottomLeft[c] + lx * bottomRight[c]);
  }
}

float SampleTensorAtSingleChannel(const float* tensor, int height, int width, int num_channels, const Point& point,
                                  int channel) {
  float result = 0.0F;
  SampleTensorAtMultipleChannels(tensor, height, width, num_channels, point.y, point.x, &channel, 1, &result);
  return result;
}

void BuildKeypointWithScoreQueue(const float* scores, const float* short_offsets, int height, int width,
                                 int num_keypoints, float score_threshold, int local_maximum_radius,
                                 KeypointQueue* queue) {
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const float* const cellScores = scores + cellIndex(y, x, width, num_keypoints);
      const float* const cellOffsets = short_offsets + cellIndex(y, x, width, 2 * num_keypoints);
      for (int k = 0; k < num_keypoints; ++k) {
        if (!(cellScores[k] >= score_threshold)) continue;
        if (!isLocalMaximum(scores, height, width, num_keypoints, y, x, k, local_maximum_radius)) continue;
        const Point point = clampToGrid(static_cast<float>(y) + cellOffsets[k],
                                        static_cast<float>(x) + cellOffsets[num_keypoints + k], height, width);
        queue->push({point, k, cellScores[k]});
      }
    }
  }
}

AdjacencyList BuildAdjacencyList() {
  AdjacencyList list(kNumKeypoints);
  for (std::size_t i = 0; i < kEdgeList.size(); ++i) {
    const auto& [parent, child] = kEdgeList[i];
    list.child_ids[static_cast<std::size_t>(parent)].push_back(child);
    list.edge_ids[static_cast<std::size_t>(parent)].push_back(static_cast<int>(i));
  }
  return list;
}

Point FindDisplacedPosition(const float* short_offsets, const float* mid_offsets, int height, int width,
                            int num_keypoints, int num_edges, const Point& source, int edge_id, int target_id,
                            int mid_short_offset_refinement_steps) {
  std::array<float, 2> move = {};
  const std::array<int, 2> midChannels = {edge_id, num_edges + edge_id};
  SampleTensorAtMultipleChannels(mid_offsets, height, width, 4 * num_edges, source.y, source.x, midChannels.data(), 2,
                                 move.data());
  Point position = clampToGrid(source.y + move[0], source.x + move[1], height, width);

  const std::array<int, 2> shortChannels = {target_id, num_keypoints + target_id};
  for (int i = 0; i < mid_short_offset_refinement_steps; ++i) {
    SampleTensorAtMultipleChannels(short_offsets, height, width, 2 * num_keypoints, position.y, position.x,
                                   shortChannels.data(), 2, move.data());
    position = clampToGrid(position.y + move[0], position.x + move[1], height, width);
  }
  return position;
}

void BacktrackDecodePose(const float* scores, const float* short_offsets, const float* mid_offsets, int height,
                         int width, int num_keypoints, int num_edges, const KeypointWithScore& root,
                         const AdjacencyList& adjacency, int mid_short_offset_refinement_steps, PoseKeypoints* pose,
                         PoseKeypointScores* pose_scores) {
  const float rootScore = SampleTensorAtSingleChannel(scores, height, width, num_keypoints, root.point, root.id);
  KeypointQueue queue;
  queue.push({root.point, root.id, rootScore});
  std::vector<bool> decoded(static_cast<std::size_t>(num_keypoints), false);
  while (!queue.empty()) {
    const KeypointWithScore current = queue.top();
    queue.pop();
    const auto id = static_cast<std::size_t>(current.id);
    if (decoded[id]) continue;
    pose->keypoint[id] = current.point;
    pose_scores->keypoint[id] = current.score;
    decoded[id] = true;

    for (std::size_t j = 0; j < adjacency.child_ids[id].size(); ++j) {
      const int child = adjacency.child_ids[id][j];
      if (decoded[static_cast<std::size_t>(child)]) continue;
      const int entry = adjacency.edge_ids[id][j];
      const int edge = entry < num_edges ? entry : entry + num_edges;
      const Point position = FindDisplacedPosition(short_offsets, mid_offsets, height, width, num_keypoints, num_edges,
                                                   current.point, edge, child, mid_short_offset_refinement_steps);
      queue.push({position, child, SampleTensorAtSingleChannel(scores, height, width, num_keypoints, position, child)});
    }
  }
}

bool PassKeypointNMS(const std::vector<PoseKeypoints>& poses, int num_poses, const KeypointWithScore& candidate,
                     float squared_radius) {
  return std::none_of(poses.begin(), poses.begin() + num_poses, [&](const PoseKeypoints& pose) {
    const Point& taken = pose.keypoint[static_cast<std::size_t>(candidate.id)];
    return ComputeSquaredDistance(candidate.point, taken) <= squared_radius;
  });
}

void FindOverlappingKeypoints(const PoseKeypoints& pose1, const PoseKeypoints& pose2, float squared_radius,
                              std::vector<bool>* mask) {
  for (std::size_t k = 0; k < mask->size(); ++k) {
    if (ComputeSquaredDistance(pose1.keypoint[k], pose2.keypoint[k]) <= squared_radius) (*mask)[k] = true;
  }
}

void PerformSoftKeypointNMS(const std::vector<int>& decreasing_indices, const std::vector<PoseKeypoints>& poses,
                            const std::vector<PoseKeypointScores>& pose_scores, int num_keypoints,
                            float squared_nms_radius, int topk, std::vector<float>* instance_scores) {
  instance_scores->resize(decreasing_indices.size());
  std::vector<int> order(static_cast<std::size_t>(num_keypoints));
  for (std::size_t i = 0; i < decreasing_indices.size(); ++i) {
    const auto current = static_cast<std::size_t>(decreasing_indices[i]);
    std::vector<bool> mask(static_cast<std::size_t>(num_keypoints), false);
    for (std::size_t j = 0; j < i; ++j) {
      const auto better = static_cast<std::size_t>(decreasing_indices[j]);
      FindOverlappingKeypoints(poses[current], poses[better], squared_nms_radius, &mask);
    }
    const auto& keypointScores = pose_scores[current].keypoint;
    DecreasingArgSort(keypointScores.data(), num_keypoints, order.data());
    float sum = 0.0F;
    for (int k = 0; k < topk; ++k) {
      const auto keypoint = static_cast<std::size_t>(order[static_cast<std::size_t>(k)]);
      if (!mask[keypoint]) sum += keypointScores[keypoint];
    }
    (*instance_scores)[current] = sum / static_cast<float>(topk);
  }
}

int DecodeAllPoses(const float* scores, const float* short_offsets, const float* mid_offsets, int height, int width,
                   int max_detections, float score_threshold, int mid_short_offset_refinement_steps, float nms_radius,
                   int stride, PoseKeypoints* pose_keypoints, PoseKeypointScores* pose_keypoint_scores,
                   float* pose_scores) {
  KeypointQueue roots;
  BuildKeypointWithScoreQueue(scores, short_offsets, height, width, kNumKeypoints, Logodds(score_threshold),
                              kLocalMaximumRadius, &roots);
  const AdjacencyList adjacency = BuildAdjacencyList();
  const float squaredRadius = nms_radius * nms_radius;

  Candidates found(max_detections);
  for (int counter = 0; counter < max_detections && !roots.empty();) {
    const KeypointWithScore root = roots.top();
    roots.pop();
    if (!PassKeypointNMS(found.poses, counter, root, squaredRadius)) continue;

    PoseKeypoints& pose = found.poses[static_cast<std::size_t>(counter)];
    PoseKeypointScores& keypointScores = found.keypointScores[static_cast<std::size_t>(counter)];
    pose.keypoint.fill({kNoPosition, kNoPosition});
    keypointScores.keypoint.fill(kNoScore);
    BacktrackDecodePose(scores, short_offsets, mid_offsets, height, width, kNumKeypoints, kNumEdges, root, adjacency,
                        mid_short_offset_refinement_steps, &pose, &keypointScores);
    std::transform(keypointScores.keypoint.begin(), keypointScores.keypoint.end(), keypointScores.keypoint.begin(),
                   Sigmoid);
    const float mean = meanScore(keypointScores);
    if (!(score_threshold <= mean)) continue;
    found.scores.push_back(mean);
    ++counter;
  }

  std::vector<int> order;
  DecreasingArgSort(found.scores, &order);
  PerformSoftKeypointNMS(order, found.poses, found.keypointScores, kNumKeypoints, squaredRadius, kNumKeypoints,
                         &found.scores);
  return writePoses(found, score_threshold, stride, pose_keypoints, pose_keypoint_scores, pose_scores);
}

}  // namespace PosenetDecoder
