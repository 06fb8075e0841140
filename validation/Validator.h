// Confirms with a detection model, on the full-resolution picture, that a skeleton is a person.
#pragma once

#include <larod.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/support/spare_memory.h"
#include "pose/mmfile.h"
#include "pose/skeleton.h"
#include "video/VideoStreamSource.h"

/// One detection model. Unusable until init has returned true.
class Validator {
 public:
  /// One output of the model: floats, at least so many.
  struct Output {
    const char* name;
    int values;
  };
  static constexpr int kCandidates = 20;
  /// In the order in which every model has them.
  static constexpr std::array<Output, 4> kOutputs = {
      {{"scores", kCandidates}, {"locations", 4 * kCandidates}, {"Num of Detections", 1}, {"classes", kCandidates}}};
  static constexpr int kLargestSide = 640;  ///< pixels of the detector's input; its scratch picture is on the stack

  Validator() = default;
  ~Validator();
  Validator(const Validator&) = delete;
  Validator& operator=(const Validator&) = delete;

  /// Loads the model that the initial parameters name from the application's package and opens the full-resolution
  /// stream. False after a log line; throws when the stream (std::runtime_error) or a temporary file (const char*)
  /// cannot be made.
  bool init(const std::string& appName);

  /// Connects to the inference service and loads the open model file. False after a log line, disconnected.
  bool larodSetup();

  /// Removes the skeletons that are not confirmed in a new full-resolution picture. They are given in pixels of a
  /// picture of width x height. False after a log line, with the list unchanged, when there is no picture.
  bool validateAndRemove(Skeletons& skeletons, int width, int height);

  /// Runs the detector on the square around one skeleton. Only a skeleton turned by 180 degrees is written to the
  /// detector's input, turned upright; any other is judged on what the input held before.
  bool validateOne(Skeleton& skeleton, int width, int height);

  /// The best score of a person in the last run; minus infinity when it reports none, and before any run.
  float personScore() const;
  /// Whether the last run reports a person above the sensitivity.
  bool confirmPerson() const;

  /// The square to cut for a box, in full-resolution pixels: a quarter of the long side is added at both of its ends.
  /// The square is kept inside the picture. False after a log line when there is none.
  bool findBestCropParameters(int x, int y, int w, int h, int& cropX, int& cropY, int& cropW, int& cropH) const;

  /// A copy of a w x h rectangle of an interleaved picture, which it must lie in.
  static PictureBytes cropInterleaved(const unsigned char* src, int srcWidth, int srcHeight, int channels, int x, int y,
                                      int w, int h);

  /// Scales an RGB picture without interpolation (nearest pixel up and left).
  static void resizeImage(const unsigned char* src, unsigned char* dst, int srcHeight, int srcWidth, int dstHeight,
                          int dstWidth);

  /// Turns an RGB picture by reversing its bytes, so the channels come out as B, G, R.
  static void rotate180(const unsigned char* src, unsigned char* dst, int width, int height);

  /// Aids to look at a run by hand: an RGB picture as a greymap, a tensor's properties in the system log.
  static void writePixelBuffer(const std::string& path, const unsigned char* buffer, int width, int height);
  static void logTensorInfo(const larodTensor* tensor, const std::string& tag);

 private:
  bool openModelFile();
  void openFullResolutionStream();
  void createFiles();
  bool bindInput();
  bool bindOutputs();
  bool createJob();
  bool runJob();
  void fillInput(const Skeleton& skeleton, const unsigned char* crop, int cropW, int cropH);

  std::string m_app_name;
  std::string m_classificationModelFileName;
  std::string m_classificationModelPath;
  const float* m_OutputClasses = nullptr;
  const float* m_OutputScores = nullptr;
  const float* m_OutputLocations = nullptr;
  const std::string m_cropFileName = "/tmp/crop.test-XXXXXX";
  const std::string m_classificationInputFileName = "/tmp/Classification.in.test-XXXXXX";
  const std::string m_classificationOutputLocationsFileName = "/tmp/Classification.out0.test-XXXXXX";
  const std::string m_classificationOutputClassesFileName = "/tmp/Classification.out1.test-XXXXXX";
  const std::string m_classificationOutputScoresFileName = "/tmp/Classification.out2.test-XXXXXX";
  const std::string m_classificationOutputNumDetectionsFileName = "/tmp/Classification.out3.test-XXXXXX";
  std::unique_ptr<MemoryMappedFile> m_classificationInputFile;
  std::unique_ptr<MemoryMappedFile> m_classificationOutputLocationsFile;
  std::unique_ptr<MemoryMappedFile> m_classificationOutputClassesFile;
  std::unique_ptr<MemoryMappedFile> m_classificationOutputScoresFile;
  std::unique_ptr<MemoryMappedFile> m_classificationOutputNumDetectionsFile;
  std::unique_ptr<MemoryMappedFile> m_cropFile;
  const int m_Person = 0;  ///< class id
  int m_ClassificationModelWidth = 300;
  int m_ClassificationModelHeight = 300;
  unsigned int m_HQStreamWidth = 0;
  unsigned int m_HQStreamHeight = 0;
  larodConnection* m_larodConn = nullptr;
  larodModel* m_classificationModel = nullptr;
  larodJobRequest* m_classificationJob = nullptr;
  int m_classificationModelFd = -1;
  unsigned char* m_cropAddr = nullptr;  ///< the full-resolution picture, in m_cropFile
  larodChip m_larodChipType = LAROD_CHIP_INVALID;
  larodTensor** m_classificationInputTensors = nullptr;
  std::size_t m_classificationNumInputs = 0;
  larodTensor** m_classificationOutputTensors = nullptr;
  std::size_t m_classificationNumOutputs = 0;
  bool m_isPortrait = false;
  bool m_wasJudged = false;  ///< the detector ran on the last skeleton
};

extern Validator g_validator;

/// The full-resolution stream.
extern std::unique_ptr<VideoStreamSource> g_videoHQStreamSource;
