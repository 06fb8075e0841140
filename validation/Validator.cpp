#include "validation/Validator.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>

#include "app/calibration_params.h"
#include "app/initial_params.h"
#include "app/observer.h"
#include "config/parameter_controller.h"
#include "platform/support/package_path.h"
#include "pose/larod_helpers.h"

std::unique_ptr<VideoStreamSource> g_videoHQStreamSource;

namespace {

constexpr int kChannels = 3;
constexpr float kNoScore = -std::numeric_limits<float>::infinity();  // of a picture without a person
constexpr unsigned int kLongSide = 1920;                             // pixels of the full-resolution picture
constexpr unsigned int kShortSide = 1080;

/// The detector's outputs are floats. The service makes the file as long as they are; all fit the one mapped page.
const float* floatsOf(const MemoryMappedFile& file) { return reinterpret_cast<const float*>(file.getBuffer()); }

}  // namespace

Validator::~Validator() {
  larodDestroyJobRequest(&m_classificationJob);
  destroyTensors(m_larodConn, m_classificationInputTensors, m_classificationNumInputs);
  destroyTensors(m_larodConn, m_classificationOutputTensors, m_classificationNumOutputs);
  if (m_classificationModel != nullptr) {
    LarodError error;
    larodDeleteModel(m_larodConn, m_classificationModel, error.out());
    larodDestroyModel(&m_classificationModel);
  }
  if (m_larodConn != nullptr) {
    LarodError error;
    larodDisconnect(&m_larodConn, error.out());
  }
  if (m_classificationModelFd >= 0) close(m_classificationModelFd);
}

bool Validator::init(const std::string& appName) {
  syslog(LOG_INFO, "Validator::init()");
  m_app_name = appName;
  m_larodChipType = g_InitialParams.l_LarodChipType;
  m_classificationModelFileName = g_InitialParams.s_mobilenetModelFileName;
  const unsigned int width = g_InitialParams.i_mobilenetModelWidth;
  const unsigned int height = g_InitialParams.i_mobilenetModelHeight;
  if (width < 1 || width > kLargestSide || height < 1 || height > kLargestSide) {
    syslog(LOG_ERR, "Parameters mobilenetModelWidth and mobilenetModelHeight are %u and %u: set both to 1 to %d", width,
           height, kLargestSide);
    return false;
  }
  m_ClassificationModelWidth = static_cast<int>(width);
  m_ClassificationModelHeight = static_cast<int>(height);

  if (!openModelFile()) return false;
  syslog(LOG_INFO, "Setting up larod connection with chip %d", m_larodChipType);
  if (!larodSetup()) return false;
  openFullResolutionStream();
  createFiles();
  if (!bindInput() || !bindOutputs() || !createJob()) return false;
  syslog(LOG_INFO, "Validator::init() completed successfully");
  return true;
}

bool Validator::openModelFile() {
  m_classificationModelPath =
      packagePath("/mnt/flash/usr/local/packages/" + m_app_name + "/" + m_classificationModelFileName);
  m_classificationModelFd = open(m_classificationModelPath.c_str(), O_RDONLY | O_CLOEXEC);
  if (m_classificationModelFd < 0) {
    syslog(LOG_ERR, "Unable to open mobilenet model file %s: %s", m_classificationModelPath.c_str(),
           std::strerror(errno));
    return false;
  }
  return true;
}

bool Validator::larodSetup() {
  LarodError connectError;
  if (!larodConnect(&m_larodConn, connectError.out())) {
    syslog(LOG_ERR, "%s: Could not connect to larod: %s", "larodSetup", connectError.message());
    return false;
  }
  LarodError disconnectError;
  if (m_larodChipType == LAROD_CHIP_INVALID) {
    syslog(LOG_ERR, "Chip type is invalid");
    larodDisconnect(&m_larodConn, disconnectError.out());
    return false;
  }
  LarodError loadError;
  m_classificationModel = larodLoadModel(m_larodConn, m_classificationModelFd, m_larodChipType, LAROD_ACCESS_PUBLIC,
                                         m_classificationModelFileName.c_str(), nullptr, loadError.out());
  if (m_classificationModel == nullptr) {
    syslog(LOG_INFO, "%s: Unable to load model: %s", "larodSetup", loadError.message());
    larodDisconnect(&m_larodConn, disconnectError.out());
    return false;
  }
  syslog(LOG_INFO, "mobilenet Model loaded successfully");
  return true;
}

void Validator::openFullResolutionStream() {
  const int rotation = g_ParameterController.get_rotation();
  m_isPortrait = rotation == 90 || rotation == 270;
  m_HQStreamWidth = m_isPortrait ? kShortSide : kLongSide;
  m_HQStreamHeight = m_isPortrait ? kLongSide : kShortSide;
  g_videoHQStreamSource = std::make_unique<VideoStreamSource>(kShortSide, kLongSide, rotation);
}

// The outputs' sizes count values, not bytes; the service writes through the descriptors and lengthens the files.
void Validator::createFiles() {
  const int pictureSize = static_cast<int>(m_HQStreamWidth * m_HQStreamHeight) * kChannels;
  const int inputSize = m_ClassificationModelWidth * m_ClassificationModelHeight * kChannels;
  m_cropFile = std::make_unique<MemoryMappedFile>(m_cropFileName, pictureSize);
  m_classificationInputFile = std::make_unique<MemoryMappedFile>(m_classificationInputFileName, inputSize);
  m_classificationOutputScoresFile =
      std::make_unique<MemoryMappedFile>(m_classificationOutputScoresFileName, kOutputs[0].values);
  m_classificationOutputLocationsFile =
      std::make_unique<MemoryMappedFile>(m_classificationOutputLocationsFileName, kOutputs[1].values);
  m_classificationOutputNumDetectionsFile =
      std::make_unique<MemoryMappedFile>(m_classificationOutputNumDetectionsFileName, kOutputs[2].values);
  m_classificationOutputClassesFile =
      std::make_unique<MemoryMappedFile>(m_classificationOutputClassesFileName, kOutputs[3].values);
}

bool Validator::bindInput() {
  LarodError error;
  m_classificationInputTensors = larodCreateModelInputs(m_classificationModel, &m_classificationNumInputs, error.out());
  if (m_classificationInputTensors == nullptr) {
    syslog(LOG_INFO, "Failed retrieving m_ClassificationInputTensors input tensors: %s", error.message());
    return false;
  }
  if (m_classificationNumInputs != 1) {
    syslog(LOG_INFO, "Classification Model has %zu inputs, need 1 input tensor.", m_classificationNumInputs);
    return false;
  }
  LarodError bindError;
  if (!larodSetTensorFd(m_classificationInputTensors[0], m_classificationInputFile->getFileDescriptor(),
                        bindError.out())) {
    syslog(LOG_INFO, "Failed setting Classification input tensor fd: %s", bindError.message());
    return false;
  }
  return true;
}

bool Validator::bindOutputs() {
  LarodError error;
  m_classificationOutputTensors =
      larodCreateModelOutputs(m_classificationModel, &m_classificationNumOutputs, error.out());
  if (m_classificationOutputTensors == nullptr) {
    syslog(LOG_INFO, "Failed retrieving output tensors: %s", error.message());
    return false;
  }
  if (m_classificationNumOutputs != kOutputs.size()) {
    syslog(LOG_INFO, "Classification Model has %zu outputs, need %zu output tensor.", m_classificationNumOutputs,
           kOutputs.size());
    return false;
  }
  const std::array<const MemoryMappedFile*, kOutputs.size()> files = {
      m_classificationOutputScoresFile.get(), m_classificationOutputLocationsFile.get(),
      m_classificationOutputNumDetectionsFile.get(), m_classificationOutputClassesFile.get()};
  for (std::size_t i = 0; i < files.size(); ++i) {
    LarodError bindError;
    if (!larodSetTensorFd(m_classificationOutputTensors[i], files[i]->getFileDescriptor(), bindError.out())) {
      syslog(LOG_ERR, "Failed setting %s (%zu) tensor fd: %s", kOutputs[i].name, i, bindError.message());
      return false;
    }
  }
  return true;
}

bool Validator::createJob() {
  LarodError error;
  m_classificationJob = larodCreateJobRequest(m_classificationModel, m_classificationInputTensors, 1,
                                              m_classificationOutputTensors, kOutputs.size(), nullptr, error.out());
  if (m_classificationJob == nullptr) {
    syslog(LOG_ERR, "Failed to create job request: %s", error.message());
    return false;
  }
  return true;
}

bool Validator::validateAndRemove(Skeletons& skeletons, int width, int height) {
  g_videoHQStreamSource->setDirty();
  m_cropFile->rewind();
  m_cropAddr = m_cropFile->getBuffer();
  if (!g_videoHQStreamSource->getFrame(static_cast<int>(m_HQStreamHeight), static_cast<int>(m_HQStreamWidth), 0,
                                       m_cropAddr)) {
    syslog(LOG_ERR, "Validator::validateOne Unable to getFrame");
    if (g_observer != nullptr) g_observer->confirmationFailed();
    return false;
  }
  Skeletons kept;
  for (std::size_t i = 0; i < skeletons.size(); ++i) {
    m_wasJudged = false;
    const bool confirmed = validateOne(skeletons[i], width, height);
    if (g_observer != nullptr) g_observer->personChecked(i, m_wasJudged ? personScore() : kNoScore, confirmed);
    if (confirmed) kept.push_back(skeletons[i]);
  }
  if (kept.size() < skeletons.size()) skeletons = std::move(kept);
  return true;
}

bool Validator::validateOne(Skeleton& skeleton, int width, int height) {
  const float scaleX = static_cast<float>(m_HQStreamWidth) / static_cast<float>(width);
  const float scaleY = static_cast<float>(m_HQStreamHeight) / static_cast<float>(height);
  const Point& from = skeleton.boundingBox.topLeft;
  const Point& to = skeleton.boundingBox.bottomRight;
  const auto scaled = [](int length, float scale) { return static_cast<int>(static_cast<float>(length) * scale); };
  int cropX = 0;
  int cropY = 0;
  int cropW = 0;
  int cropH = 0;
  if (!findBestCropParameters(scaled(from.x, scaleX), scaled(from.y, scaleY), scaled(to.x - from.x, scaleX),
                              scaled(to.y - from.y, scaleY), cropX, cropY, cropW, cropH)) {
    syslog(LOG_ERR, "validateOne failed to find valid crop parameters");
    return false;
  }
  const auto crop = cropInterleaved(m_cropAddr, static_cast<int>(m_HQStreamWidth), static_cast<int>(m_HQStreamHeight),
                                    kChannels, cropX, cropY, cropW, cropH);
  fillInput(skeleton, crop.data(), cropW, cropH);
  if (!runJob()) return false;
  m_wasJudged = true;
  m_OutputLocations = floatsOf(*m_classificationOutputLocationsFile);
  m_OutputClasses = floatsOf(*m_classificationOutputClassesFile);
  m_OutputScores = floatsOf(*m_classificationOutputScoresFile);
  return confirmPerson();
}

void Validator::fillInput(const Skeleton& skeleton, const unsigned char* crop, int cropW, int cropH) {
  std::array<unsigned char, std::size_t{kLargestSide} * kLargestSide * kChannels> scratch;
  resizeImage(crop, scratch.data(), cropH, cropW, m_ClassificationModelHeight, m_ClassificationModelWidth);
  int rotation = 0;
  skeleton.getRotation(rotation);
  if (rotation == 180) {
    rotate180(scratch.data(), m_classificationInputFile->getBuffer(), m_ClassificationModelWidth,
              m_ClassificationModelHeight);
  }
}

bool Validator::runJob() {
  for (const auto* file : {&m_classificationOutputLocationsFile, &m_classificationOutputClassesFile,
                           &m_classificationOutputScoresFile, &m_classificationOutputNumDetectionsFile}) {
    (*file)->rewind();
  }
  LarodError error;
  if (!larodRunJob(m_larodConn, m_classificationJob, error.out())) {
    syslog(LOG_ERR, "Unable to run job on model %s: %s (%d)", m_classificationModelPath.c_str(), error.message(),
           error.code());
    return false;
  }
  return true;
}

float Validator::personScore() const {
  float best = kNoScore;
  if (m_OutputScores == nullptr) return best;
  for (int i = 0; i < kCandidates; ++i) {
    if (std::trunc(m_OutputClasses[i]) == static_cast<float>(m_Person)) best = std::max(best, m_OutputScores[i]);
  }
  return best;
}

bool Validator::confirmPerson() const { return personScore() > g_CalibrationParams.f_Sensitivity; }

bool Validator::findBestCropParameters(int x, int y, int w, int h, int& cropX, int& cropY, int& cropW,
                                       int& cropH) const {
  const int streamWidth = static_cast<int>(m_HQStreamWidth);
  const int streamHeight = static_cast<int>(m_HQStreamHeight);
  cropX = x - w / 4;
  cropY = y - h / 4;
  int side = 0;
  if (w <= h) {
    side = h + 2 * (h / 4);
    cropX = w / 2 + (x - w / 4) - side / 2;
  } else {
    side = w + 2 * (w / 4);
    cropY = h / 2 + (y - h / 4) - side / 2;
  }
  const int shortSide = std::min(streamWidth, streamHeight);
  if (shortSide < side) side = shortSide - 1;
  cropW = side;
  cropH = side;
  if (cropX + cropW >= streamWidth) cropX = streamWidth - cropW - 1;
  if (cropY + cropH >= streamHeight) cropY = streamHeight - cropH - 1;
  cropX = std::max(cropX, 0);
  cropY = std::max(cropY, 0);
  if (side > 0 && cropX + cropW <= streamWidth && cropY + cropH <= streamHeight) return true;
  syslog(LOG_INFO, "Invalid crop square: x1=%d, y1=%d, x2=%d, y2=%d from a stream of: %dx%d", cropX, cropY,
         cropX + cropW, cropY + cropH, streamWidth, streamHeight);
  return false;
}

PictureBytes Validator::cropInterleaved(const unsigned char* src, int srcWidth, int /*srcHeight*/, int channels, int x,
                                        int y, int w, int h) {
  const std::size_t rowBytes = static_cast<std::size_t>(w) * static_cast<std::size_t>(channels);
  PictureBytes crop(rowBytes * static_cast<std::size_t>(h));
  for (int row = 0; row < h; ++row) {
    const std::ptrdiff_t start = (std::ptrdiff_t{y + row} * srcWidth + x) * channels;
    std::memcpy(crop.data() + static_cast<std::size_t>(row) * rowBytes, src + start, rowBytes);
  }
  return crop;
}

void Validator::resizeImage(const unsigned char* src, unsigned char* dst, int srcHeight, int srcWidth, int dstHeight,
                            int dstWidth) {
  const float sy = static_cast<float>(srcHeight) / static_cast<float>(dstHeight);
  const float sx = static_cast<float>(srcWidth) / static_cast<float>(dstWidth);
  for (int i = 0; i < dstHeight; ++i) {
    const int row = static_cast<int>(static_cast<float>(i) * sy);
    for (int j = 0; j < dstWidth; ++j, dst += kChannels) {
      const int column = static_cast<int>(static_cast<float>(j) * sx);
      std::memcpy(dst, src + (std::ptrdiff_t{row} * srcWidth + column) * kChannels, kChannels);
    }
  }
}

void Validator::rotate180(const unsigned char* src, unsigned char* dst, int width, int height) {
  std::reverse_copy(src, src + std::ptrdiff_t{width} * height * kChannels, dst);
}

void Validator::writePixelBuffer(const std::string& path, const unsigned char* buffer, int width, int height) {
  writeGreymap(path, buffer, width, height);
}

void Validator::logTensorInfo(const larodTensor* tensor, const std::string& tag) { logTensor(tensor, tag); }
