#include "platform/workstation/inference/engine/opencv_engine.h"

#include <algorithm>
#include <array>
#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/dnn.hpp>

#include "platform/workstation/inference/engine/threads.h"
#include "platform/workstation/system/signal_mask.h"

namespace workstation {
namespace {

/// While it lives, OpenCV tells its errors by exceptions only: its own lines on standard error say less than ours.
class QuietOpenCv {
 public:
  QuietOpenCv() : m_level(cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT)) {
    m_handler = cv::redirectError([](int, const char*, const char*, const char*, int, void*) { return 0; }, nullptr,
                                  &m_handler_data);
  }
  ~QuietOpenCv() {
    cv::redirectError(m_handler, m_handler_data);
    cv::utils::logging::setLogLevel(m_level);
  }
  QuietOpenCv(const QuietOpenCv&) = delete;
  QuietOpenCv& operator=(const QuietOpenCv&) = delete;

 private:
  cv::utils::logging::LogLevel m_level;
  cv::ErrorCallback m_handler = nullptr;
  void* m_handler_data = nullptr;
};

class OpenCvEngine : public Engine {
 public:
  explicit OpenCvEngine(const NetworkTask& task) : m_task(task) {
    const QuietOpenCv quiet;
    try {
      m_net = cv::dnn::readNetFromONNX(reinterpret_cast<const char*>(task.onnx.data()), task.onnx.size());
    } catch (const std::exception&) {
      throw UnusableNetwork("is not an ONNX network that OpenCV can read");
    }
    const auto missing = std::find_if(task.outputs.begin(), task.outputs.end(),
                                      [this](const std::string& output) { return m_net.getLayerId(output) < 0; });
    if (missing != task.outputs.end()) {
      throw UnusableNetwork("has no output \"" + *missing + "\", which its sidecar names");
    }
  }

  std::vector<Maps> run(const std::uint8_t* picture) override {
    const QuietOpenCv quiet;
    // OpenCV starts its pool's threads in the first parallel loop.
    const ScopedSigtermBlock no_sigterm_for_pool_threads;
    cv::setNumThreads(threadsOfRun());
    const std::array<int, 4> blob{1, 1, m_task.height, m_task.packed_width};
    // Bytes: the network's input layer makes floats of them, the only conversion there is.
    m_net.setInput(cv::Mat(blob.size(), blob.data(), CV_8U, const_cast<std::uint8_t*>(picture)));
    m_values.clear();
    try {
      if (!m_task.outputs.empty()) m_net.forward(m_values, m_task.outputs);
    } catch (const cv::Exception& exception) {
      throw std::runtime_error(exception.err);  // the rest is where in OpenCV it was
    }
    std::vector<Maps> results;
    for (const cv::Mat& values : m_values) results.push_back(mapsOf(values));
    return results;
  }

 private:
  static Maps mapsOf(const cv::Mat& values) {
    if (values.type() != CV_32F || !values.isContinuous()) return {};  // of no shape that anybody wants
    return {{values.ptr<float>(), values.total()}, {values.size.p, values.size.p + values.dims}};
  }

  NetworkTask m_task;
  cv::dnn::Net m_net;
  std::vector<cv::Mat> m_values;  ///< of the last run, views into the network
};

}  // namespace

std::unique_ptr<Engine> makeOpenCvEngine(const NetworkTask& task) { return std::make_unique<OpenCvEngine>(task); }

}  // namespace workstation
