// Turns the grids of a pose model into poses of several people: part-based decoding with a tree of displacements and
// non-maximum suppression (Papandreou et al., PersonLab, ECCV 2018, section 3.1).
//
// All grids are floats of height x width cells, channel last: channel c of cell (y, x) is at
// (y * width + x) * channels + c. Offsets and positions inside the decoder are in cells.
//   scores         17 channels: the logit of each keypoint type
//   short offsets  34 channels: k is the y and 17 + k the x offset from a cell towards keypoint k near it
//   mid offsets    64 channels: for a forward edge e, e is the y and 16 + e the x displacement from parent to child;
//                  for the same edge backward, 32 + e and 48 + e
// No grid content is harmful: numbers that are not finite make poses without a score, never an access out of bounds.
#pragma once

#include <array>
#include <cstddef>
#include <queue>
#include <utility>
#include <vector>

namespace PosenetDecoder {

enum KeypointType : int {
  kNose,
  kLeftEye,
  kRightEye,
  kLeftEar,
  kRightEar,
  kLeftShoulder,
  kRightShoulder,
  kLeftElbow,
  kRightElbow,
  kLeftWrist,
  kRightWrist,
  kLeftHip,
  kRightHip,
  kLeftKnee,
  kRightKnee,
  kLeftAnkle,
  kRightAnkle
};

inline constexpr int kNumKeypoints = 17;
inline constexpr int kNumEdges = 16;
inline constexpr int kLocalMaximumRadius = 1;  ///< cells

/// (parent, child) pairs of the body tree rooted at the nose, then the same pairs reversed.
inline constexpr std::array<std::pair<int, int>, std::size_t{2}* kNumEdges> kEdgeList = {{
    {kNose, kLeftEye},          {kLeftEye, kLeftEar},        {kNose, kRightEye},       {kRightEye, kRightEar},
    {kNose, kLeftShoulder},     {kLeftShoulder, kLeftElbow}, {kLeftElbow, kLeftWrist}, {kLeftShoulder, kLeftHip},
    {kLeftHip, kLeftKnee},      {kLeftKnee, kLeftAnkle},     {kNose, kRightShoulder},  {kRightShoulder, kRightElbow},
    {kRightElbow, kRightWrist}, {kRightShoulder, kRightHip}, {kRightHip, kRightKnee},  {kRightKnee, kRightAnkle},
    {kLeftEye, kNose},          {kLeftEar, kLeftEye},        {kRightEye, kNose},       {kRightEar, kRightEye},
    {kLeftShoulder, kNose},     {kLeftElbow, kLeftShoulder}, {kLeftWrist, kLeftElbow}, {kLeftHip, kLeftShoulder},
    {kLeftKnee, kLeftHip},      {kLeftAnkle, kLeftKnee},     {kRightShoulder, kNose},  {kRightElbow, kRightShoulder},
    {kRightWrist, kRightElbow}, {kRightHip, kRightShoulder}, {kRightKnee, kRightHip},  {kRightAnkle, kRightKnee},
}};

/// A position, y first: cells inside the decoder, input-image pixels in its results.
struct Point {
  float y = 0.0F;
  float x = 0.0F;
};

struct PoseKeypoints {
  std::array<Point, kNumKeypoints> keypoint;
};

struct PoseKeypointScores {
  std::array<float, kNumKeypoints> keypoint;
};

/// A candidate for the keypoint of type `id`.
struct KeypointWithScore {
  Point point;
  int id = 0;
  float score = 0.0F;  ///< logit
};

struct KeypointWithScoreComparator {
  bool operator()(const KeypointWithScore& a, const KeypointWithScore& b) const { return a.score < b.score; }
};

/// Pops the highest score first.
using KeypointQueue =
    std::priority_queue<KeypointWithScore, std::vector<KeypointWithScore>, KeypointWithScoreComparator>;

/// The children of each keypoint type, and the entries of kEdgeList that lead to them.
struct AdjacencyList {
  explicit AdjacencyList(int num_keypoints)
      : child_ids(static_cast<std::size_t>(num_keypoints)), edge_ids(static_cast<std::size_t>(num_keypoints)) {}

  std::vector<std::vector<int>> child_ids;
  std::vector<std::vector<int>> edge_ids;
};

/// The logit of a probability, kept finite at 0.
float Logodds(float x);
float Sigmoid(float x);
float ComputeSquaredDistance(const Point& a, const Point& b);
/// v limited to [lo, hi]; lo for a v that is not a number.
float clamp(float v, float lo, float hi);

/// Writes the indices 0 .. n - 1 by decreasing value; what is not a number comes last, equal values in any order.
void DecreasingArgSort(const float* values, int n, int* indices);
void DecreasingArgSort(const std::vector<float>& values, std::vector<int>* indices);

/// The cells beside x in a row of n cells, and the fraction between them. A position outside extrapolates from the
/// border: the fraction then leaves [0, 1].
void BuildLinearInterpolation(float x, int n, int* x_floor, int* x_ceil, float* x_lerp);
/// BuildLinearInterpolation of y in height and of x in width.
void BuildBilinearInterpolation(float y, float x, int height, int width, int* y_floor, int* x_floor, int* y_ceil,
                                int* x_ceil, float* y_lerp, float* x_lerp);
/// Writes the interpolated value of each of the `count` listed channels at (y, x).
void SampleTensorAtMultipleChannels(const float* tensor, int height, int width, int num_channels, float y, float x,
                                    const int* channels, int count, float* result);
float SampleTensorAtSingleChannel(const float* tensor, int height, int width, int num_channels, const Point& point,
                                  int channel);

/// Queues every local maximum of at least `score_threshold` (a logit) within a square of `local_maximum_radius` cells,
/// at its place moved by the short offsets.
void BuildKeypointWithScoreQueue(const float* scores, const float* short_offsets, int height, int width,
                                 int num_keypoints, float score_threshold, int local_maximum_radius,
                                 KeypointQueue* queue);

AdjacencyList BuildAdjacencyList();

/// Where the keypoint `target_id` lies, seen from `source` along edge `edge_id` (32 .. 47 for backward edges), after
/// the given number of corrections by the short offsets. Stays inside the grid.
Point FindDisplacedPosition(const float* short_offsets, const float* mid_offsets, int height, int width,
                            int num_keypoints, int num_edges, const Point& source, int edge_id, int target_id,
                            int mid_short_offset_refinement_steps);

/// Completes one pose from a root keypoint along the body tree, best candidate first. Scores are logits; what the tree
/// does not reach is left as it was.
void BacktrackDecodePose(const float* scores, const float* short_offsets, const float* mid_offsets, int height,
                         int width, int num_keypoints, int num_edges, const KeypointWithScore& root,
                         const AdjacencyList& adjacency, int mid_short_offset_refinement_steps, PoseKeypoints* pose,
                         PoseKeypointScores* pose_scores);

/// Whether none of the first num_poses poses has its keypoint of the candidate's type within the radius.
bool PassKeypointNMS(const std::vector<PoseKeypoints>& poses, int num_poses, const KeypointWithScore& candidate,
                     float squared_radius);

/// Sets mask[k] for each keypoint k that lies within the radius of the same keypoint in the other pose.
void FindOverlappingKeypoints(const PoseKeypoints& pose1, const PoseKeypoints& pose2, float squared_radius,
                              std::vector<bool>* mask);

/// Scores each pose anew: the mean over topk of its best keypoint scores, those that overlap a better pose counting 0.
void PerformSoftKeypointNMS(const std::vector<int>& decreasing_indices, const std::vector<PoseKeypoints>& poses,
                            const std::vector<PoseKeypointScores>& pose_scores, int num_keypoints,
                            float squared_nms_radius, int topk, std::vector<float>* instance_scores);

/// Decodes up to max_detections poses of at least score_threshold (a probability), by decreasing score. The outputs
/// hold max_detections entries each; positions are in input-image pixels (cells times stride), scores 0 to 1. Returns
/// the number of poses written. nms_radius is in cells.
int DecodeAllPoses(const float* scores, const float* short_offsets, const float* mid_offsets, int height, int width,
                   int max_detections, float score_threshold, int mid_short_offset_refinement_steps, float nms_radius,
                   int stride, PoseKeypoints* pose_keypoints, PoseKeypointScores* pose_keypoint_scores,
                   float* pose_scores);

}  // namespace PosenetDecoder
