#include "pose/BodypixPoseEstimator.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "app/initial_params.h"
#include "app/observer.h"
#include "pose/larod_helpers.h"

namespace {

constexpr std::size_t kLargestSide = 8192;  // pixels of a model's input that are believed

constexpr int kRefinementSteps = 5;
constexpr float kNmsRadius = 2.0F;  // cells

[[noreturn]] void fail(const std::string& text) {
  syslog(LOG_ERR, "%s", text.c_str());
  throw std::runtime_error(text);
}

/// Logs and throws a failed construction. Writing starts at the initial text's beginning, so its end shows behind a
/// shorter message.
[[noreturn]] void failConstruction(const std::string& message) {
  std::stringstream text("BodypixPoseEstimator::BodypixPoseEstimator error:");
  text << message;
  fail(text.str());
}

class File {
 public:
  explicit File(const std::string& path) : m_fd(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~File() {
    if (m_fd >= 0) close(m_fd);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  int fd() const { return m_fd; }

 private:
  int m_fd;
};

const larodTensorDims& dimsOf(const larodTensor* tensor) {
  LarodError error;
  const larodTensorDims* const dims = larodGetTensorDims(tensor, error.out());
  if (dims == nullptr) failConstruction(std::string("Failed to read tensor dimensions. ") + error.message());
  return *dims;
}

void bindTensorToFile(larodTensor* tensor, const MemoryMappedFile& file, const std::string& name) {
  LarodError error;
  if (!larodSetTensorFd(tensor, file.getFileDescriptor(), error.out())) {
    fail("Failed to set tensor file descriptor for " + name + ". " + error.message());
  }
}

template <std::size_t N>
void dequantize(const MemoryMappedFile& file, const Dequantizer& dequantizer, std::array<float, N>& values) {
  const uint8_t* const bytes = file.getBuffer();
  for (std::size_t i = 0; i < N; ++i) values[i] = dequantizer(bytes[i]);
}

std::unique_ptr<MemoryMappedFile> makeFile(const char* nameTemplate, std::size_t size) {
  return std::make_unique<MemoryMappedFile>(nameTemplate, static_cast<int>(size));
}

}  // namespace

// The delegation makes the object complete before anything is acquired, so that the destructor cleans up after a throw.
BodypixPoseEstimator::BodypixPoseEstimator(const std::string& modelFilepath) : BodypixPoseEstimator(Empty{}) {
  m_modelFilepath = modelFilepath;
  loadModel();
  createTensors();
  readDimensions();
  syslog(LOG_INFO, "BodypixPoseEstimator::BodypixPoseEstimator: model size %dx%d", m_modelWidth, m_modelHeight);
  createTensorFiles();
  bindTensors();

  LarodError error;
  m_larodJobRequest = larodCreateJobRequest(m_larodModel, m_larodInputTensorArray, m_numInputTensors,
                                            m_larodOutputTensorArray, m_numOutputTensors, nullptr, error.out());
  if (m_larodJobRequest == nullptr) {
    failConstruction(std::string("Failed to create larod job request. ") + error.message());
  }
  syslog(LOG_INFO, "Model loaded successfully");
}

BodypixPoseEstimator::~BodypixPoseEstimator() {
  larodDestroyJobRequest(&m_larodJobRequest);
  destroyTensors(m_larodConnection, m_larodInputTensorArray, m_numInputTensors);
  destroyTensors(m_larodConnection, m_larodOutputTensorArray, m_numOutputTensors);
  if (m_larodModel != nullptr) {
    LarodError error;
    if (!larodDeleteModel(m_larodConnection, m_larodModel, error.out())) {
      syslog(LOG_ERR, "Failed to delete larod model: %s", error.message());
    }
    larodDestroyModel(&m_larodModel);
  }
  if (m_larodConnection != nullptr) {
    LarodError error;
    if (!larodDisconnect(&m_larodConnection, error.out())) {
      syslog(LOG_ERR, "Failed to disconnect from larod: %s", error.message());
    }
  }
}

void BodypixPoseEstimator::loadModel() {
  LarodError connectError;
  if (!larodConnect(&m_larodConnection, connectError.out())) {
    failConstruction(std::string("Failed to create larod connection. ") + connectError.message());
  }
  const File file(m_modelFilepath);
  if (file.fd() < 0) {
    failConstruction("Failed to open model file " + m_modelFilepath + ". " + std::strerror(errno));
  }
  LarodError loadError;
  m_larodModel = larodLoadModel(m_larodConnection, file.fd(), g_InitialParams.l_LarodChipType, LAROD_ACCESS_PUBLIC,
                                m_modelFilepath.c_str(), nullptr, loadError.out());
  if (m_larodModel == nullptr) {
    failConstruction("Failed to load model " + m_modelFilepath + ". " + loadError.message());
  }
}

void BodypixPoseEstimator::createTensors() {
  LarodError inputError;
  m_larodInputTensorArray = larodCreateModelInputs(m_larodModel, &m_numInputTensors, inputError.out());
  if (m_larodInputTensorArray == nullptr) {
    failConstruction(std::string("Failed to create model input tensor array. ") + inputError.message());
  }
  LarodError outputError;
  m_larodOutputTensorArray = larodCreateModelOutputs(m_larodModel, &m_numOutputTensors, outputError.out());
  if (m_larodOutputTensorArray == nullptr) {
    failConstruction(std::string("Failed to create model output tensor array. ") + outputError.message());
  }
  if (m_numInputTensors != 1 || m_numOutputTensors != kPoseOutputs.size()) {
    failConstruction("Model " + m_modelFilepath + " has " + std::to_string(m_numInputTensors) + " inputs and " +
                     std::to_string(m_numOutputTensors) + " outputs, a pose model has 1 and " +
                     std::to_string(kPoseOutputs.size()) + ": name another file");
  }
}

void BodypixPoseEstimator::readDimensions() {
  const larodTensorDims& input = dimsOf(m_larodInputTensorArray[0]);
  const auto isSide = [](std::size_t side) { return side >= 1 && side <= kLargestSide; };
  if (input.len != 4 || !isSide(input.dims[1]) || !isSide(input.dims[2]) || input.dims[3] != 3) {
    failConstruction("Model " + m_modelFilepath +
                     " takes no RGB picture of batch, height, width, 3: name another file");
  }
  m_modelWidth = static_cast<int>(input.dims[2]);
  m_modelHeight = static_cast<int>(input.dims[1]);

  const larodTensorDims& grid = dimsOf(m_larodOutputTensorArray[0]);
  if (grid.len != 4 || grid.dims[1] > kCells || grid.dims[2] > kCells || grid.dims[1] * grid.dims[2] != kCells) {
    failConstruction("Model " + m_modelFilepath + " has not the output grid of " + std::to_string(kCells) +
                     " cells: name another file");
  }
  m_gridHeight = static_cast<int>(grid.dims[1]);
  m_gridWidth = static_cast<int>(grid.dims[2]);
}

void BodypixPoseEstimator::createTensorFiles() {
  const std::size_t inputSize = static_cast<std::size_t>(m_modelWidth) * static_cast<std::size_t>(m_modelHeight) * 3;
  m_BodypixInputImageFile = makeFile("/tmp/larod.in0-XXXXXX", inputSize);
  m_BodypixOutputHeatmapsFile = makeFile("/tmp/larod.out0-XXXXXX", kHeatmaps);
  m_BodypixOutputShortOffsetsFile = makeFile("/tmp/larod.out1-XXXXXX", kShortOffsets);
  m_BodypixOutputMidOffsetsFile = makeFile("/tmp/larod.out2-XXXXXX", kMidOffsets);
  m_BodypixOutputLongOffsetsFile = makeFile("/tmp/larod.out3-XXXXXX", kPoseOutputs[5].channels * kCells);
  m_BodypixOutputSegmentsFile = makeFile("/tmp/larod.out4-XXXXXX", kPoseOutputs[3].channels * kCells);
  m_BodypixOutputPartHeatmapsFile = makeFile("/tmp/larod.out5-XXXXXX", kPoseOutputs[4].channels * kCells);
}

void BodypixPoseEstimator::bindTensors() {
  bindTensorToFile(m_larodInputTensorArray[0], *m_BodypixInputImageFile, "Input Image");
  const std::array<const MemoryMappedFile*, kPoseOutputs.size()> files = {
      m_BodypixOutputHeatmapsFile.get(), m_BodypixOutputShortOffsetsFile.get(), m_BodypixOutputMidOffsetsFile.get(),
      m_BodypixOutputSegmentsFile.get(), m_BodypixOutputPartHeatmapsFile.get(), m_BodypixOutputLongOffsetsFile.get()};
  for (std::size_t i = 0; i < files.size(); ++i) {
    bindTensorToFile(m_larodOutputTensorArray[i], *files[i], std::string("Output ") + kPoseOutputs[i].name);
  }
}

void BodypixPoseEstimator::getModelSize(int& width, int& height) const {
  width = m_modelWidth;
  height = m_modelHeight;
}

bool BodypixPoseEstimator::runModel(ImageFrameSource& source, int rotation) {
  m_rotation = rotation;
  if (!source.getFrame(m_modelHeight, m_modelWidth, m_rotation, m_BodypixInputImageFile->getBuffer())) {
    syslog(LOG_ERR, "BodypixPoseEstimator::runModel Unable to getFrame");
    return false;
  }
  for (const auto* file :
       {&m_BodypixOutputHeatmapsFile, &m_BodypixOutputShortOffsetsFile, &m_BodypixOutputMidOffsetsFile,
        &m_BodypixOutputLongOffsetsFile, &m_BodypixOutputSegmentsFile, &m_BodypixOutputPartHeatmapsFile}) {
    (*file)->rewind();
  }
  LarodError error;
  if (!larodRunJob(m_larodConnection, m_larodJobRequest, error.out())) {
    syslog(LOG_ERR, "BodypixPoseEstimator::runModel Unable to run inference: %s", error.message());
    return false;
  }
  dequantize(*m_BodypixOutputHeatmapsFile, heatmapDequantizer, m_BodypixOutputHeatmapsDequantized);
  dequantize(*m_BodypixOutputShortOffsetsFile, shortOffsetDequantizer, m_BodypixOutputShortOffsetsDequantized);
  dequantize(*m_BodypixOutputMidOffsetsFile, midOffsetDequantizer, m_BodypixOutputMidOffsetsDequantized);
  decode();

  if (rotation == 90) unrotateKeypoints90();
  if (rotation == 180) unrotateKeypoints180();
  if (rotation == 270) unrotateKeypoints270();
  return true;
}

void BodypixPoseEstimator::decode() {
  m_PoseKeypoints = {};
  m_PoseKeypointScores = {};
  m_PoseScores = {};
  m_nDecoded = PosenetDecoder::DecodeAllPoses(
      m_BodypixOutputHeatmapsDequantized.data(), m_BodypixOutputShortOffsetsDequantized.data(),
      m_BodypixOutputMidOffsetsDequantized.data(), m_gridHeight, m_gridWidth, kMaxPoses, kDecoderThreshold,
      kRefinementSteps, kNmsRadius, kStride, m_PoseKeypoints.data(), m_PoseKeypointScores.data(), m_PoseScores.data());
  const auto* const firstBelow =
      std::find_if(m_PoseScores.begin(), m_PoseScores.end(), [this](float score) { return score < m_poseThreshold; });
  m_nPoses = firstBelow == m_PoseScores.end() ? m_nDecoded : static_cast<int>(firstBelow - m_PoseScores.begin());
}

const PosenetDecoder::Point& BodypixPoseEstimator::pointOf(int pose, BodyPart part) const {
  return m_PoseKeypoints[static_cast<std::size_t>(pose)].keypoint[static_cast<std::size_t>(part)];
}

Point BodypixPoseEstimator::getKeypoint(int pose, BodyPart part) const {
  const PosenetDecoder::Point& point = pointOf(pose, part);
  return {static_cast<int>(point.x), static_cast<int>(point.y)};
}

float BodypixPoseEstimator::getKeypointScore(int pose, BodyPart part) const {
  return m_PoseKeypointScores[static_cast<std::size_t>(pose)].keypoint[static_cast<std::size_t>(part)];
}

float BodypixPoseEstimator::getPoseScore(int pose) const { return m_PoseScores[static_cast<std::size_t>(pose)]; }

Keypoints BodypixPoseEstimator::getKeypoints(int pose) const {
  Keypoints keypoints;
  for (const BodyPart part : BodyParts) {
    keypoints.emplace(part, Keypoint(getKeypoint(pose, part), part, getKeypointScore(pose, part)));
  }
  return keypoints;
}

Edges BodypixPoseEstimator::getEdges(int pose) const {
  const auto keypoint = [&](BodyPart part) {
    return Keypoint(getKeypoint(pose, part), part, getKeypointScore(pose, part));
  };
  Edges edges;
  for (const auto& [a, b] : AllEdges) {
    if (getKeypointScore(pose, a) > m_keypointThreshold && getKeypointScore(pose, b) > m_keypointThreshold) {
      edges.emplace_back(keypoint(a), keypoint(b));
    }
  }
  return edges;
}

Skeleton BodypixPoseEstimator::getSkeleton(int pose) const {
  return {getKeypoints(pose), getEdges(pose), m_rotation, getPoseScore(pose)};
}

void BodypixPoseEstimator::tellObserver() const {
  Skeletons decoded;
  for (int pose = 0; pose < m_nDecoded; ++pose) decoded.push_back(getSkeleton(pose));
  const int counted = std::min(m_nPoses, m_nDecoded);
  g_observer->posesDecoded(m_rotation, m_modelWidth, m_modelHeight, decoded, static_cast<std::size_t>(counted),
                           m_poseThreshold);
}

Skeletons BodypixPoseEstimator::getSkeletons() const {
  if (g_observer != nullptr) tellObserver();
  Skeletons skeletons;
  for (int pose = 0; pose < m_nPoses; ++pose) {
    Skeleton skeleton = getSkeleton(pose);
    if (skeleton.isValid(m_modelWidth, m_modelHeight)) skeletons.push_back(std::move(skeleton));
  }
  return skeletons;
}

template <typename Turn>
void BodypixPoseEstimator::turnKeypoints(Turn turn) {
  for (auto& pose : m_PoseKeypoints) {
    for (auto& point : pose.keypoint) point = turn(point);
  }
}

void BodypixPoseEstimator::unrotateKeypoints90() {
  const auto width = static_cast<float>(m_modelWidth);
  turnKeypoints([=](const PosenetDecoder::Point& p) { return PosenetDecoder::Point{width - p.x, p.y}; });
}

void BodypixPoseEstimator::unrotateKeypoints180() {
  const auto width = static_cast<float>(m_modelWidth);
  const auto height = static_cast<float>(m_modelHeight);
  turnKeypoints([=](const PosenetDecoder::Point& p) { return PosenetDecoder::Point{height - p.y, width - p.x}; });
}

void BodypixPoseEstimator::unrotateKeypoints270() {
  const auto height = static_cast<float>(m_modelHeight);
  turnKeypoints([=](const PosenetDecoder::Point& p) { return PosenetDecoder::Point{p.x, height - p.y}; });
}

void BodypixPoseEstimator::logTensorInfo(const larodTensor* tensor, const std::string& tag) { logTensor(tensor, tag); }

void BodypixPoseEstimator::writeInputTensor(const std::string& path) const {
  writeGreymap(path, m_BodypixInputImageFile->getBuffer(), m_modelWidth, m_modelHeight);
}

void BodypixPoseEstimator::writePoseData(const std::string& prefix) const {
  std::ofstream keypoints(prefix + "_keypoints.txt");
  std::ofstream keypointScores(prefix + "_keypointScores.txt");
  std::ofstream poseScores(prefix + "_poseScores.txt");
  for (int pose = 0; pose < m_nPoses; ++pose) {
    for (const BodyPart part : BodyParts) {
      keypoints << pointOf(pose, part).y << ' ' << pointOf(pose, part).x << ' ';
      keypointScores << getKeypointScore(pose, part) << ' ';
    }
    keypoints << '\n';
    keypointScores << '\n';
    poseScores << getPoseScore(pose) << '\n';
  }
}
