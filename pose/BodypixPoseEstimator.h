// Runs one pose model on the inference service and turns its output into skeletons.
#pragma once

#include <larod.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "pose/PosenetDecoder.h"
#include "pose/mmfile.h"
#include "pose/skeleton.h"
#include "video/VideoStreamSource.h"

/// Linear quantization of a model output: a byte q stands for (q - zero point) * scale * factor.
class Dequantizer {
 public:
  constexpr Dequantizer(uint8_t zeroPoint, float scale, float factor)
      : _zeroPoint(zeroPoint), _modelScale(scale), _scale(scale * factor) {}

  constexpr float operator()(uint8_t quantized) const {
    return static_cast<float>(static_cast<int>(quantized) - _zeroPoint) * _scale;
  }

  /// What the model must write its bytes with.
  constexpr int zeroPoint() const { return _zeroPoint; }
  constexpr float modelScale() const { return _modelScale; }

 private:
  int _zeroPoint;
  float _modelScale;
  float _scale;
};

/// Logits, and offsets that leave the model in pixels and are turned into cells of 16 pixels.
inline constexpr Dequantizer heatmapDequantizer(210, 0.08174263F, 1.0F);
inline constexpr Dequantizer shortOffsetDequantizer(142, 0.7368203F, 0.0625F);
inline constexpr Dequantizer midOffsetDequantizer(123, 1.4407082F, 0.0625F);

/// One output of a pose model: bytes, so many channels for each cell of its grid.
struct PoseOutput {
  const char* name;
  std::size_t channels;
  const Dequantizer* code;  ///< null for an output that nobody reads
};

/// In the order in which every pose model has them.
inline constexpr std::array<PoseOutput, 6> kPoseOutputs = {{{"Heatmaps", 17, &heatmapDequantizer},
                                                            {"Short Offsets", 34, &shortOffsetDequantizer},
                                                            {"Mid Offsets", 64, &midOffsetDequantizer},
                                                            {"Segments", 1, nullptr},
                                                            {"Part Heatmaps", 24, nullptr},
                                                            {"Long Offsets", 34, nullptr}}};

/// One pose model, loaded for good. A large object: keep it on the heap. Keypoints are in pixels of the upright
/// picture, scores 0 to 1.
class BodypixPoseEstimator {
 public:
  using BodyPart = ::BodyPart;
  using enum ::BodyPart;
  static constexpr const EdgeSpecificationVector& AllEdges = ::AllEdges;
  static constexpr std::size_t kCells = 3726;        ///< of the output grid: 81 x 46 or 46 x 81
  static constexpr int kStride = 16;                 ///< pixels of the input from cell to cell
  static constexpr float kDecoderThreshold = 0.01F;  ///< the decoder returns no pose with a lower score

  /// Connects to the service, loads the model and binds its tensors to temporary files. Throws std::runtime_error after
  /// logging the same text, or a const char* when a file cannot be made.
  explicit BodypixPoseEstimator(const std::string& modelFilepath);
  ~BodypixPoseEstimator();
  BodypixPoseEstimator(const BodypixPoseEstimator&) = delete;
  BodypixPoseEstimator& operator=(const BodypixPoseEstimator&) = delete;

  /// The model's input size in pixels.
  void getModelSize(int& width, int& height) const;
  /// Poses below this score end the list of a run.
  void setPoseThreshold(float threshold) { m_poseThreshold = threshold; }
  /// Edges are drawn between keypoints that score above this.
  void setKeypointThreshold(float threshold) { m_keypointThreshold = threshold; }

  /// Finds the people in the source's picture turned by `rotation` degrees. False after a log line, with the results of
  /// the previous run kept.
  bool runModel(ImageFrameSource& source, int rotation);

  /// Keypoint of a pose below 20, truncated to whole pixels.
  Point getKeypoint(int pose, BodyPart part) const;
  float getKeypointScore(int pose, BodyPart part) const;
  float getPoseScore(int pose) const;
  /// All 17 keypoints, whatever their scores.
  Keypoints getKeypoints(int pose) const;
  Edges getEdges(int pose) const;
  Skeleton getSkeleton(int pose) const;
  /// The valid skeletons of the last run, by decreasing score. An observer is told of every pose.
  Skeletons getSkeletons() const;

  /// Turn all keypoints from the turned picture back into the upright one.
  void unrotateKeypoints90();
  void unrotateKeypoints180();
  void unrotateKeypoints270();

  /// Aids to look at a run by hand: a tensor's properties in the system log; the input picture as a greymap; the poses
  /// as the text files prefix + "_keypoints.txt", "_keypointScores.txt" (a line a pose) and "_poseScores.txt".
  static void logTensorInfo(const larodTensor* tensor, const std::string& tag);
  void writeInputTensor(const std::string& path) const;
  void writePoseData(const std::string& prefix) const;

 private:
  static constexpr int kMaxPoses = 20;
  static constexpr std::size_t kHeatmaps = kPoseOutputs[0].channels * kCells;
  static constexpr std::size_t kShortOffsets = kPoseOutputs[1].channels * kCells;
  static constexpr std::size_t kMidOffsets = kPoseOutputs[2].channels * kCells;

  struct Empty {};
  explicit BodypixPoseEstimator(Empty /*tag*/) {}

  void loadModel();
  void createTensors();
  void readDimensions();
  void createTensorFiles();
  void bindTensors();
  void decode();
  void tellObserver() const;
  const PosenetDecoder::Point& pointOf(int pose, BodyPart part) const;
  template <typename Turn>
  void turnKeypoints(Turn turn);

  std::string m_modelFilepath;
  int m_modelWidth = 0;
  int m_modelHeight = 0;
  float m_poseThreshold = 0.0F;
  float m_keypointThreshold = 0.0F;
  int m_nPoses = 0;
  int m_nDecoded = 0;  ///< with those that score too little for a pose
  int m_rotation = 0;
  int m_gridHeight = 0;  ///< cells of the output grid
  int m_gridWidth = 0;
  larodConnection* m_larodConnection = nullptr;
  larodModel* m_larodModel = nullptr;
  larodJobRequest* m_larodJobRequest = nullptr;
  larodTensor** m_larodInputTensorArray = nullptr;
  std::size_t m_numInputTensors = 0;
  larodTensor** m_larodOutputTensorArray = nullptr;
  std::size_t m_numOutputTensors = 0;
  std::unique_ptr<MemoryMappedFile> m_BodypixInputImageFile;
  std::unique_ptr<MemoryMappedFile> m_BodypixOutputHeatmapsFile;
  std::unique_ptr<MemoryMappedFile> m_BodypixOutputShortOffsetsFile;
  std::unique_ptr<MemoryMappedFile> m_BodypixOutputMidOffsetsFile;
  std::unique_ptr<MemoryMappedFile> m_BodypixOutputLongOffsetsFile;
  std::unique_ptr<MemoryMappedFile> m_BodypixOutputSegmentsFile;
  std::unique_ptr<MemoryMappedFile> m_BodypixOutputPartHeatmapsFile;
  std::array<float, kHeatmaps> m_BodypixOutputHeatmapsDequantized = {};
  std::array<float, kShortOffsets> m_BodypixOutputShortOffsetsDequantized = {};
  std::array<float, kMidOffsets> m_BodypixOutputMidOffsetsDequantized = {};
  std::array<PosenetDecoder::PoseKeypoints, kMaxPoses> m_PoseKeypoints = {};
  std::array<PosenetDecoder::PoseKeypointScores, kMaxPoses> m_PoseKeypointScores = {};
  std::array<float, kMaxPoses> m_PoseScores = {};
};

/// The model whose input matches the upright picture, and the one for the picture turned by a quarter.
extern std::unique_ptr<BodypixPoseEstimator> g_bodypixPoseEstimatorNS;
extern std::unique_ptr<BodypixPoseEstimator> g_bodypixPoseEstimatorEW;
