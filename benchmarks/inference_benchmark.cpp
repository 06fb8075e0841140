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
  Service() : m_file(open(kModel.c_str(), O_RDONLY | O_CLOEXEC)) {
    check(larodConnect(&m_connection, &m_error));
    m_model = larodLoadModel(m_connection, m_file, LAROD_CHIP_CPU, LAROD_ACCESS_PUBLIC, "pose", nullptr, &m_error);
    check(m_model != nullptr);
    m_inputs = larodCreateModelInputs(m_model, &m_inputCount, &m_error);
    m_outputs = larodCreateModelOutputs(m_model, &m_outputCount, &m_error);
    check(m_inputs != nullptr && m_outputs != nullptr && m_outputCount == kOutputBytes.size());
    const cv::Mat picture = noise(kHeight, kWidth, CV_8UC3);
    std::copy_n(picture.data, kWidth * kHeight * 3, static_cast<uchar*>(m_input.getBuffer()));
    check(larodSetTensorFd(m_inputs[0], m_input.getFileDescriptor(), &m_error));
    for (std::size_t i = 0; i < m_outputCount; ++i) {
      m_files.push_back(std::make_unique<MemoryMappedFile>("/tmp/benchmark-XXXXXX", kOutputBytes[i]));
      check(larodSetTensorFd(m_outputs[i], m_files[i]->getFileDescriptor(), &m_error));
    }
    m_request = larodCreateJobRequest(m_model, m_inputs, m_inputCount, m_outputs, m_outputCount, nullptr, &m_error);
    check(m_request != nullptr);
  }

  ~Service() {
    larodDestroyJobRequest(&m_request);
    larodDestroyTensors(m_connection, &m_inputs, m_inputCount, &m_error);
    larodDestroyTensors(m_connection, &m_outputs, m_outputCount, &m_error);
    larodDestroyModel(&m_model);
    larodDisconnect(&m_connection, &m_error);
    close(m_file);
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  void run() {
    for (const auto& file : m_files) file->rewind();
    check(larodRunJob(m_connection, m_request, &m_error));
  }

 private:
  void check(bool good) const {
    if (!good) throw std::runtime_error(m_error != nullptr ? m_error->msg : "the model does not fit this benchmark");
  }

  int m_file;
  larodConnection* m_connection = nullptr;
  larodModel* m_model = nullptr;
  larodTensor** m_inputs = nullptr;
  larodTensor** m_outputs = nullptr;
  larodJobRequest* m_request = nullptr;
  larodError* m_error = nullptr;
  std::size_t m_inputCount = 0;
  std::size_t m_outputCount = 0;
  MemoryMappedFile m_input{"/tmp/benchmark-XXXXXX", kWidth* kHeight * 3};
  std::vector<std::unique_ptr<MemoryMappedFile>> m_files;
};

void inferenceService(benchmark::State& state) {
  Service service;
  while (state.KeepRunning()) service.run();
}
BENCHMARK(inferenceService)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
