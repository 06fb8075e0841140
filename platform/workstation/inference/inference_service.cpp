// The camera's inference service on a workstation: networks in ONNX run by OpenCV, tensors on file descriptors.
//
// A network takes the packed RGB picture as one wide channel of floats 0 to 255, [1, 1, height, width * 3], so that the
// picture needs no transposition on its way in, and gives its maps channel first.
#include <fcntl.h>
#include <larod.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/dnn.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/workstation/inference/model_sidecar.h"
#include "platform/workstation/inference/tensor_quantizer.h"
#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/signal_mask.h"

namespace {

using workstation::ModelSidecar;
using workstation::TensorLayout;

/// Descriptors that a tensor's file may be used with: read, written and mapped.
constexpr uint32_t kFdProperties = 0x7;

struct ServiceError : std::runtime_error {
  ServiceError(larodErrorCode error_code, const std::string& message) : std::runtime_error(message), code(error_code) {}
  larodErrorCode code;
};

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

/// The first `size` bytes of a file, mapped to be read.
class MappedInput {
 public:
  MappedInput(int fd, size_t size) : m_size(size) {
    struct stat status {};
    if (::fstat(fd, &status) != 0 || static_cast<size_t>(status.st_size) < size) {
      throw ServiceError(LAROD_ERROR_FD, "the input tensor's file holds less than " + std::to_string(size) + " bytes");
    }
    m_bytes = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
    if (m_bytes == MAP_FAILED) {
      throw ServiceError(LAROD_ERROR_FD,
                         std::string("the input tensor's file cannot be mapped: ") + std::strerror(errno));
    }
  }
  ~MappedInput() { ::munmap(m_bytes, m_size); }
  MappedInput(const MappedInput&) = delete;
  MappedInput& operator=(const MappedInput&) = delete;
  void* bytes() const { return m_bytes; }

 private:
  void* m_bytes;
  size_t m_size;
};

/// A network that has run once, so that its shapes are known to be those of its sidecar.
class Network {
 public:
  /// Throws ServiceError with one line.
  Network(const std::string& file, const std::vector<uchar>& onnx, ModelSidecar sidecar);

  const ModelSidecar& sidecar() const { return m_sidecar; }
  bool isDeleted() const { return m_deleted; }
  void markDeleted() { m_deleted = true; }

  /// Runs on the picture in the input's file and writes every output at its descriptor's position. Throws ServiceError.
  void run(int input_fd, std::span<const int> output_fds);

 private:
  void forward(void* picture);
  void check(const std::string& file, size_t output) const;
  std::span<const std::uint8_t> encode(size_t output);
  const float* mapsOf(size_t output) const { return m_results[m_result_of[output]].ptr<float>(); }

  cv::dnn::Net m_net;
  ModelSidecar m_sidecar;
  std::vector<std::string> m_layers;               ///< that are asked for: one for each tensor that is not constant
  std::vector<size_t> m_result_of;                 ///< output -> its place in m_layers and m_results
  std::vector<cv::Mat> m_results;                  ///< of the last run, views into the network
  std::vector<std::vector<std::uint8_t>> m_bytes;  ///< output -> its tensor's bytes; constant ones are filled once
  bool m_deleted = false;
};

Network::Network(const std::string& file, const std::vector<uchar>& onnx, ModelSidecar sidecar)
    : m_sidecar(std::move(sidecar)) {
  const QuietOpenCv quiet;
  try {
    m_net = cv::dnn::readNetFromONNX(onnx);
  } catch (const std::exception&) {
    throw ServiceError(LAROD_ERROR_LOAD_MODEL, file + ": is not an ONNX network that OpenCV can read");
  }
  for (const TensorLayout& output : m_sidecar.outputs) {
    m_result_of.push_back(m_layers.size());
    m_bytes.emplace_back(output.type == LAROD_TENSOR_DATA_TYPE_UINT8 ? output.bytes() : 0, output.zero_point);
    if (!output.layer.empty()) {
      m_layers.push_back(output.layer);
    }
  }
  const auto missing = std::find_if(m_layers.begin(), m_layers.end(),
                                    [this](const std::string& layer) { return m_net.getLayerId(layer) < 0; });
  if (missing != m_layers.end()) {
    throw ServiceError(LAROD_ERROR_LOAD_MODEL, file + ": has no output \"" + *missing + "\", which its sidecar names");
  }
  std::vector<std::uint8_t> black(m_sidecar.input.bytes());
  try {
    forward(black.data());
  } catch (const std::exception&) {
    throw ServiceError(LAROD_ERROR_LOAD_MODEL, file + ": does not run on a picture of its sidecar's input shape");
  }
  for (size_t output = 0; output < m_sidecar.outputs.size(); ++output) {
    check(file, output);
  }
}

void Network::check(const std::string& file, size_t output) const {
  const TensorLayout& layout = m_sidecar.outputs[output];
  if (layout.layer.empty()) {
    return;
  }
  const cv::Mat& result = m_results[m_result_of[output]];
  bool matches = result.type() == CV_32F && result.isContinuous() && result.total() == layout.elements();
  if (matches && layout.type == LAROD_TENSOR_DATA_TYPE_UINT8) {
    const auto size = [&result](int axis) { return static_cast<size_t>(result.size[axis]); };
    matches =
        result.dims == 4 && size(1) == layout.shape[3] && size(2) == layout.shape[1] && size(3) == layout.shape[2];
  }
  if (!matches) {
    throw ServiceError(LAROD_ERROR_LOAD_MODEL,
                       file + ": output \"" + layout.layer + "\" has not the shape that its sidecar gives");
  }
  const float* values = mapsOf(output);
  if (!std::all_of(values, values + layout.elements(), [](float value) { return std::isfinite(value); })) {
    throw ServiceError(LAROD_ERROR_LOAD_MODEL,
                       file + ": output \"" + layout.layer + "\" is not finite on a black picture");
  }
}

void Network::forward(void* picture) {
  // OpenCV starts its pool's threads in the first parallel loop.
  const workstation::ScopedSigtermBlock no_sigterm_for_pool_threads;
  const auto& shape = m_sidecar.input.shape;
  const std::array<int, 4> blob{1, 1, static_cast<int>(shape[1]), static_cast<int>(shape[2] * shape[3])};
  // Bytes: the network's input layer makes floats of them, the only conversion there is.
  m_net.setInput(cv::Mat(blob.size(), blob.data(), CV_8U, picture));
  m_results.clear();
  if (!m_layers.empty()) {
    m_net.forward(m_results, m_layers);
  }
}

std::span<const std::uint8_t> Network::encode(size_t output) {
  const TensorLayout& layout = m_sidecar.outputs[output];
  if (layout.type == LAROD_TENSOR_DATA_TYPE_FLOAT32) {
    return {reinterpret_cast<const std::uint8_t*>(mapsOf(output)), layout.bytes()};
  }
  if (!layout.layer.empty()) {
    workstation::quantizeChannelsLast({mapsOf(output), layout.elements()}, layout.shape[3],
                                      {layout.scale, layout.zero_point}, m_bytes[output]);
  }
  return m_bytes[output];
}

void Network::run(int input_fd, std::span<const int> output_fds) {
  if (m_deleted) {
    throw ServiceError(LAROD_ERROR_MODEL_NOT_FOUND, "the model was deleted");
  }
  const MappedInput picture(input_fd, m_sidecar.input.bytes());
  try {
    const QuietOpenCv quiet;
    forward(picture.bytes());
  } catch (const cv::Exception& exception) {
    throw ServiceError(LAROD_ERROR_JOB, "the network failed: " + exception.err);
  }
  for (size_t output = 0; output < output_fds.size(); ++output) {
    const auto bytes = encode(output);
    if (!workstation::writeAll(output_fds[output], bytes.data(), bytes.size())) {
      throw ServiceError(LAROD_ERROR_FD, "the file of tensor \"" + m_sidecar.outputs[output].name +
                                             "\" cannot be written: " + std::strerror(errno));
    }
  }
}

std::string fileOf(int fd) {
  std::array<char, 4096> path{};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const ssize_t length = ::readlink(link.c_str(), path.data(), path.size());
  if (length <= 0 || path[0] != '/') {
    throw ServiceError(LAROD_ERROR_FD, "the model's descriptor is not open on a file");
  }
  return {path.data(), static_cast<size_t>(length)};
}

std::shared_ptr<Network> loadNetwork(int fd, larodChip chip) {
  if (chip != LAROD_CHIP_CPU) {
    throw ServiceError(LAROD_ERROR_INVALID_CHIP_ID, "chip " + std::to_string(chip) +
                                                        " is not there; this machine offers " +
                                                        std::to_string(LAROD_CHIP_CPU) + " (the processor)");
  }
  const std::string file = fileOf(fd);
  // Through the descriptor, which still leads to the file when its name has gone.
  const auto onnx = workstation::readFile("/proc/self/fd/" + std::to_string(fd), workstation::kMaxModelBytes);
  if (!onnx || onnx->empty()) {
    throw ServiceError(LAROD_ERROR_LOAD_MODEL, file + ": is empty");
  }
  return std::make_shared<Network>(file, std::vector<uchar>(onnx->begin(), onnx->end()),
                                   workstation::readModelSidecar(file, *onnx));
}

void setError(larodError** error, larodErrorCode code, const std::string& message) {
  if (error != nullptr) {
    *error = std::make_unique<larodError>(larodError{code, ::strdup(message.c_str())}).release();
  }
}

/// Runs what may throw; an exception becomes the caller's error and `failed` the result.
template <typename Result, typename Function>
Result guarded(larodError** error, larodErrorCode code, Result failed, Function function) {
  try {
    return function();
  } catch (const ServiceError& exception) {
    setError(error, exception.code, exception.what());
  } catch (const std::exception& exception) {
    setError(error, code, exception.what());
  }
  return failed;
}

}  // namespace

/// The service has no state beyond its handles.
struct larodConnection {};

/// Handles share the network, so that they can be released in any order.
struct larodModel {
  std::shared_ptr<Network> network;
};

struct larodTensor {
  std::string name;
  larodTensorDims dims;
  larodTensorDataType type;
  size_t size;  ///< bytes
  int fd = -1;
};

struct larodJobRequest {
  std::shared_ptr<Network> network;
  const larodTensor* input;
  std::vector<const larodTensor*> outputs;
};

namespace {

larodTensor* newTensor(const TensorLayout& layout) {
  auto tensor = std::make_unique<larodTensor>(larodTensor{layout.name, {}, layout.type, layout.bytes()});
  tensor->dims.len = layout.shape.size();
  std::copy(layout.shape.begin(), layout.shape.end(), tensor->dims.dims);
  return tensor.release();
}

/// As many tensors as layouts, in their order.
larodTensor** newTensors(std::span<const TensorLayout> layouts, size_t* count) {
  auto tensors = std::make_unique<larodTensor*[]>(layouts.size());
  std::transform(layouts.begin(), layouts.end(), tensors.get(), newTensor);
  *count = layouts.size();
  return tensors.release();
}

bool isTensor(const larodTensor* tensor, larodError** error) {
  if (tensor == nullptr) {
    setError(error, LAROD_ERROR_MISC, "there is no tensor");
  }
  return tensor != nullptr;
}

/// Each tensor must be the one that the network has at its place.
bool fits(const larodTensor* tensor, const TensorLayout& layout) {
  return tensor != nullptr && tensor->type == layout.type && tensor->dims.len == layout.shape.size() &&
         std::equal(layout.shape.begin(), layout.shape.end(), tensor->dims.dims);
}

}  // namespace

void larodClearError(larodError** error) {
  if (error != nullptr && *error != nullptr) {
    ::free(const_cast<char*>((*error)->msg));
    delete *error;
    *error = nullptr;
  }
}

bool larodConnect(larodConnection** connection, larodError** error) {
  if (connection == nullptr) {
    setError(error, LAROD_ERROR_MISC, "there is no place for the connection");
    return false;
  }
  *connection = std::make_unique<larodConnection>().release();
  return true;
}

bool larodDisconnect(larodConnection** connection, larodError** error) {
  if (connection == nullptr || *connection == nullptr) {
    setError(error, LAROD_ERROR_MISC, "there is no connection");
    return false;
  }
  delete std::exchange(*connection, nullptr);
  return true;
}

larodModel* larodLoadModel(larodConnection* connection, int fd, larodChip chip, larodAccess /*access*/,
                           const char* /*name*/, const larodMap* /*params*/, larodError** error) {
  return guarded<larodModel*>(error, LAROD_ERROR_LOAD_MODEL, nullptr, [&] {
    if (connection == nullptr) {
      throw ServiceError(LAROD_ERROR_MISC, "there is no connection");
    }
    return std::make_unique<larodModel>(larodModel{loadNetwork(fd, chip)}).release();
  });
}

bool larodDeleteModel(larodConnection* connection, larodModel* model, larodError** error) {
  if (connection == nullptr || model == nullptr || model->network->isDeleted()) {
    setError(error, LAROD_ERROR_MODEL_NOT_FOUND, "there is no such model or connection");
    return false;
  }
  model->network->markDeleted();
  return true;
}

void larodDestroyModel(larodModel** model) {
  if (model != nullptr) {
    delete std::exchange(*model, nullptr);
  }
}

larodTensor** larodCreateModelInputs(const larodModel* model, size_t* count, larodError** error) {
  return guarded<larodTensor**>(error, LAROD_ERROR_MISC, nullptr, [&] {
    if (model == nullptr || count == nullptr) {
      throw ServiceError(LAROD_ERROR_MODEL_NOT_FOUND, "there is no model or no place for the tensors' number");
    }
    return newTensors({&model->network->sidecar().input, 1}, count);
  });
}

larodTensor** larodCreateModelOutputs(const larodModel* model, size_t* count, larodError** error) {
  return guarded<larodTensor**>(error, LAROD_ERROR_MISC, nullptr, [&] {
    if (model == nullptr || count == nullptr) {
      throw ServiceError(LAROD_ERROR_MODEL_NOT_FOUND, "there is no model or no place for the tensors' number");
    }
    return newTensors(model->network->sidecar().outputs, count);
  });
}

bool larodDestroyTensors(larodConnection* /*connection*/, larodTensor*** tensors, size_t count, larodError** error) {
  if (tensors == nullptr || *tensors == nullptr) {
    setError(error, LAROD_ERROR_MISC, "there are no tensors");
    return false;
  }
  std::for_each(*tensors, *tensors + count, std::default_delete<larodTensor>());
  delete[] std::exchange(*tensors, nullptr);
  return true;
}

bool larodSetTensorFd(larodTensor* tensor, int fd, larodError** error) {
  if (!isTensor(tensor, error)) {
    return false;
  }
  if (::fcntl(fd, F_GETFD) < 0) {
    setError(error, LAROD_ERROR_FD, "descriptor " + std::to_string(fd) + " is not open");
    return false;
  }
  tensor->fd = fd;
  return true;
}

const larodTensorDims* larodGetTensorDims(const larodTensor* tensor, larodError** error) {
  return isTensor(tensor, error) ? &tensor->dims : nullptr;
}

const char* larodGetTensorName(const larodTensor* tensor, larodError** error) {
  return isTensor(tensor, error) ? tensor->name.c_str() : nullptr;
}

larodTensorDataType larodGetTensorDataType(const larodTensor* tensor, larodError** error) {
  return isTensor(tensor, error) ? tensor->type : LAROD_TENSOR_DATA_TYPE_INVALID;
}

larodTensorLayout larodGetTensorLayout(const larodTensor* tensor, larodError** error) {
  return isTensor(tensor, error) ? LAROD_TENSOR_LAYOUT_NHWC : LAROD_TENSOR_LAYOUT_INVALID;
}

int larodGetTensorFd(const larodTensor* tensor, larodError** error) {
  return isTensor(tensor, error) ? tensor->fd : -1;
}

int64_t larodGetTensorFdOffset(const larodTensor* tensor, larodError** error) {
  return isTensor(tensor, error) ? 0 : -1;
}

bool larodGetTensorFdProps(const larodTensor* tensor, uint32_t* props, larodError** error) {
  if (!isTensor(tensor, error)) {
    return false;
  }
  *props = kFdProperties;
  return true;
}

bool larodGetTensorFdSize(const larodTensor* tensor, size_t* size, larodError** error) {
  if (!isTensor(tensor, error)) {
    return false;
  }
  *size = tensor->size;
  return true;
}

larodJobRequest* larodCreateJobRequest(const larodModel* model, larodTensor** inputs, size_t inputCount,
                                       larodTensor** outputs, size_t outputCount, larodMap* /*params*/,
                                       larodError** error) {
  return guarded<larodJobRequest*>(error, LAROD_ERROR_MISC, nullptr, [&] {
    if (model == nullptr || inputs == nullptr || outputs == nullptr) {
      throw ServiceError(LAROD_ERROR_MISC, "a job needs a model, inputs and outputs");
    }
    const ModelSidecar& sidecar = model->network->sidecar();
    if (inputCount != 1 || !fits(inputs[0], sidecar.input) || outputCount != sidecar.outputs.size() ||
        !std::equal(outputs, outputs + outputCount, sidecar.outputs.begin(), fits)) {
      throw ServiceError(LAROD_ERROR_MISC, "the job's tensors are not those of the model");
    }
    return std::make_unique<larodJobRequest>(
               larodJobRequest{model->network, inputs[0], {outputs, outputs + outputCount}})
        .release();
  });
}

void larodDestroyJobRequest(larodJobRequest** request) {
  if (request != nullptr) {
    delete std::exchange(*request, nullptr);
  }
}

bool larodRunJob(larodConnection* connection, const larodJobRequest* request, larodError** error) {
  return guarded<bool>(error, LAROD_ERROR_JOB, false, [&] {
    if (connection == nullptr || request == nullptr) {
      throw ServiceError(LAROD_ERROR_JOB, "there is no connection or no job");
    }
    std::vector<int> output_fds(request->outputs.size());
    std::transform(request->outputs.begin(), request->outputs.end(), output_fds.begin(),
                   [](const larodTensor* tensor) { return tensor->fd; });
    request->network->run(request->input->fd, output_fds);
    return true;
  });
}
