// What a run of the pose model costs through the inference service, beside the bare network and beside the usual way
// into OpenCV's dnn module (blobFromImage makes a planar float picture of the packed bytes).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <larod.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <opencv2/dnn.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "pose/mmfile.h"

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr std::array<int, 6> kOutputBytes = {63342, 126684, 238464, 3726, 89424, 126684};
const std::string kModel = MODEL_DIRECTORY "/pose_landscape.onnx";

cv::Mat noise(int rows, int columns, int type) {
  cv::Mat picture(rows, columns, type);
  cv::RNG random(7);
  random.fill(picture, cv::RNG::UNIFORM, 0, 255);
  return picture;
}

std::vector<cv::Mat> forward(cv::dnn::Net& network, const cv::Mat& blob, const std::vector<std::string>& names) {
  std::vector<cv::Mat> outputs;
  network.setInput(blob);
  network.forward(outputs, names);
  return outputs;
}

/// The input is ready as floats; nothing is done with the output.
void bareNetwork(benchmark::State& state) {
  cv::dnn::Net network = cv::dnn::readNetFromONNX(kModel);
  const std::array<int, 4> shape = {1, 1, kHeight, kWidth * 3};
  cv::Mat blob(static_cast<int>(shape.size()), shape.data(), CV_32F);
  noise(kHeight, kWidth * 3, CV_32F).reshape(1, 4, shape.data()).copyTo(blob);
  const std::vector<std::string> names = network.getUnconnectedOutLayersNames();
  while (state.KeepRunning()) benchmark::DoNotOptimize(forward(network, blob, names));
}
BENCHMARK(bareNetwork)->Unit(benchmark::kMillisecond)->UseRealTime();

/// Only the step that a planar input would need before the network.
void blobFromPackedPicture(benchmark::State& state) {
  const cv::Mat picture = noise(kHeight, kWidth, CV_8UC3);
  cv::Mat blob;
  while (state.KeepRunning()) cv::dnn::blobFromImage(picture, blob, 1.0 / 255);
}
BENCHMARK(blobFromPackedPicture)->Unit(benchmark::kMillisecond)->UseRealTime();

/// Bytes in a file to quantized tensors in files, as the program runs it.
class Service {
 public:
  Service() : file_(open(kModel.c_str(), O_RDONLY | O_CLOEXEC)) {
    check(larodConnect(&connection_, &error_));
    model_ = larodLoadModel(connection_, file_, LAROD_CHIP_CPU, LAROD_ACCESS_PUBLIC, "pose", nullptr, &error_);
    check(model_ != nullptr);
    inputs_ = larodCreateModelInputs(model_, &inputCount_, &error_);
    outputs_ = larodCreateModelOutputs(model_, &outputCount_, &error_);
    check(inputs_ != nullptr && outputs_ != nullptr && outputCount_ == kOutputBytes.size());
    const cv::Mat picture = noise(kHeight, kWidth, CV_8UC3);
    std::copy_n(picture.data, kWidth * kHeight * 3, static_cast<uchar*>(input_.getBuffer()));
    check(larodSetTensorFd(inputs_[0], input_.getFileDescriptor(), &error_));
    for (std::size_t i = 0; i < outputCount_; ++i) {
      files_.push_back(std::make_unique<MemoryMappedFile>("/tmp/benchmark-XXXXXX", kOutputBytes[i]));
      check(larodSetTensorFd(outputs_[i], files_[i]->getFileDescriptor(), &error_));
    }
    request_ = larodCreateJobRequest(model_, inputs_, inputCount_, outputs_, outputCount_, nullptr, &error_);
    check(request_ != nullptr);
  }

  ~Service() {
    larodDestroyJobRequest(&request_);
    larodDestroyTensors(connection_, &inputs_, inputCount_, &error_);
    larodDestroyTensors(connection_, &outputs_, outputCount_, &error_);
    larodDestroyModel(&model_);
    larodDisconnect(&connection_, &error_);
    close(file_);
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  void run() {
    for (const auto& file : files_) file->rewind();
    check(larodRunJob(connection_, request_, &error_));
  }

 private:
  void check(bool good) const {
    if (!good) throw std::runtime_error(error_ != nullptr ? error_->msg : "the model does not fit this benchmark");
  }

  int file_;
  larodConnection* connection_ = nullptr;
  larodModel* model_ = nullptr;
  larodTensor** inputs_ = nullptr;
  larodTensor** outputs_ = nullptr;
  larodJobRequest* request_ = nullptr;
  larodError* error_ = nullptr;
  std::size_t inputCount_ = 0;
  std::size_t outputCount_ = 0;
  MemoryMappedFile input_{"/tmp/benchmark-XXXXXX", kWidth* kHeight * 3};
  std::vector<std::unique_ptr<MemoryMappedFile>> files_;
};

void inferenceService(benchmark::State& state) {
  Service service;
  while (state.KeepRunning()) service.run();
}
BENCHMARK(inferenceService)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
