// Makes the program's tensors of the raw heads of another pose network, as the key "adapter" of its sidecar says:
//
// {"name": "movenet_multipose",
//  "scales": [{"cell": 20, "heads": ["by5/center", "by5/regression", "by5/heat", "by5/offset"]}, ...],
//  "eyes": {"fast": [0], "sharp": [0, 1]},
//  "rules": {"center_threshold": 0.15, "reach": 0.3, "twin_distance": 0.08, "same_distance": 0.2, "most_people": 10},
//  "confidence": {"gain": 1.0, "bias": 0.0}}
//
// The network looks at the picture once or at several scales: "cell" is the side of a head's cell in pixels of the
// picture, "heads" the network's outputs. "eyes", which may be left out, say which of the looks each of them makes, the
// one that is believed most first (eyes.h). "rules" say who counts as a person; a later scale adds whom the earlier
// ones overlooked, not somebody whose joints are closer to theirs than "same_distance" (the median, as a share of the
// larger person). "confidence" maps the logit of a joint's score: gain * logit + bias.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "platform/workstation/inference/people_decoder.h"
#include "platform/workstation/inference/tensor_quantizer.h"

namespace workstation {

inline constexpr size_t kPoseHeads = 4;
inline constexpr std::array<int, kPoseHeads> kPoseHeadChannels = {1, 34, 17, 34};  ///< center, regression, heat, offset
inline constexpr std::array<size_t, 3> kPoseTensorChannels = {17, 34, 64};
inline constexpr size_t kPoseCell = 16;  ///< pixels to a cell of the pose tensors
inline constexpr int kPoseTensors = 3;
inline constexpr int kCandidateTensors = 4;

/// One look at the picture.
struct AdapterScale {
  std::vector<std::string> heads;  ///< layers of the network: center, regression, heat, offset
  float cell = 0;                  ///< pixels of the picture
};

struct AdapterSettings {
  std::vector<AdapterScale> scales;                  ///< none without adapter
  std::map<std::string, std::vector<size_t>> looks;  ///< by the eyes' name, places in `scales`
  PeopleRules rules;
  float same_distance = 0;
  float confidence_gain = 1.0F;
  float confidence_bias = 0.0F;

  bool isSet() const { return !scales.empty(); }
};

/// One of the three tensors that a pose is read from: rows x columns cells, channel last.
struct PoseTensor {
  std::span<std::uint8_t> bytes;
  Quantization code;
};

/// Heat maps (17 channels, logits), short offsets (34: y of every point, then x) and mid offsets (64: y and x of the
/// tree's 16 edges away from the nose, then of the same back), offsets in pixels of the picture.
struct PoseTensors {
  PoseTensor heat;
  PoseTensor short_offsets;
  PoseTensor mid_offsets;
  int rows;
  int columns;
};

/// Writes people so that the multi-pose decoder finds them again, each joint with its score. Their points are in
/// pixels. Where two people's joints of a kind are close, a cell belongs to the nearer one.
void writePose(std::span<const DecodedPerson> people, const PoseTensors& tensors);

/// The four tensors of the person detector, all of as many candidates as there are scores; boxes are top, left, bottom,
/// right as shares of the picture's sides.
struct CandidateTensors {
  std::span<float> scores;
  std::span<float> boxes;
  std::span<float> count;
  std::span<float> classes;
};

/// Fills the candidates with the best people, then with candidates of score 0. A person's score is the mean of the
/// points'.
void writeCandidates(std::span<const DecodedPerson> people, float height, float width, const CandidateTensors& tensors);

/// The people of a run in pixels of the picture, with their confidence mapped; `heads` are those of the settings'
/// scales. Of somebody seen at several scales, every joint is the one that the network is surest of.
std::vector<DecodedPerson> findPeople(std::span<const PoseHeads> heads, const AdapterSettings& settings);

}  // namespace workstation
