// The camera's inference service on a workstation: networks in ONNX, tensors on file descriptors.
#include <fcntl.h>
#include <larod.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/workstation/inference/last_run.h"
#include "platform/workstation/inference/model_sidecar.h"
#include "platform/workstation/inference/network.h"
#include "platform/workstation/system/durable_file.h"

namespace {

using workstation::ModelSidecar;
using workstation::Network;
using workstation::ServiceError;
using workstation::TensorLayout;

/// Descriptors that a tensor's file may be used with: read, written and mapped.
constexpr uint32_t kFdProperties = 0x7;

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
  auto onnx = workstation::readFile("/proc/self/fd/" + std::to_string(fd), workstation::kMaxModelBytes);
  if (!onnx || onnx->empty()) {
    throw ServiceError(LAROD_ERROR_LOAD_MODEL, file + ": is empty");
  }
  ModelSidecar sidecar = workstation::readModelSidecar(file, *onnx);
  auto network = std::make_shared<Network>(file, std::move(*onnx), std::move(sidecar));
  ::malloc_trim(0);  // reading and checking a network takes several times what stays of it
  return network;
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

std::vector<std::string> workstation::layersNotFinite(const larodModel& model) { return model.network->notFinite(); }
