#include "platform/scripted/inference.h"

#include <larod.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

scripted::Inference& scripted::inference() {
  static Inference service;
  return service;
}

using scripted::inference;

struct larodTensor {
  larodTensorDims dims;
  int fd;
};

struct larodJobRequest {
  larodTensor** inputs;
  larodTensor** outputs;
};

namespace {

larodTensor** makeTensors(const std::vector<std::vector<std::size_t>>& shapes, std::size_t* count) {
  auto** const array = new larodTensor*[shapes.size()];
  for (std::size_t i = 0; i < shapes.size(); ++i) {
    array[i] = new larodTensor{{{}, shapes[i].size()}, -1};
    std::copy(shapes[i].begin(), shapes[i].end(), array[i]->dims.dims);
  }
  *count = shapes.size();
  ++inference().live_handles;
  return array;
}

bool fails(const char* call, larodError** error) {
  if (!scripted::strikes(inference().faults, call)) return false;
  *error = new larodError{LAROD_ERROR_JOB, "out of order"};
  return true;
}

template <typename T>
T* acquire() {
  ++inference().live_handles;
  return reinterpret_cast<T*>(&inference());
}

template <typename T>
void release(T** object) {
  if (*object != nullptr) --inference().live_handles;
  *object = nullptr;
}

}  // namespace

extern "C" {
void larodClearError(larodError** error) {
  delete *error;
  *error = nullptr;
}
bool larodConnect(larodConnection** connection, larodError** error) {
  if (fails("larodConnect", error)) return false;
  *connection = acquire<larodConnection>();
  return true;
}
bool larodDisconnect(larodConnection** connection, larodError**) {
  release(connection);
  return true;
}
larodModel* larodLoadModel(larodConnection*, int, larodChip, larodAccess, const char* name, const larodMap*,
                           larodError** error) {
  if (inference().on_load) inference().on_load(name);
  return fails("larodLoadModel", error) ? nullptr : acquire<larodModel>();
}
bool larodDeleteModel(larodConnection*, larodModel*, larodError**) { return true; }
void larodDestroyModel(larodModel** model) { release(model); }
larodTensor** larodCreateModelInputs(const larodModel*, size_t* count, larodError** error) {
  return fails("larodCreateModelInputs", error) ? nullptr : makeTensors(inference().inputs, count);
}
larodTensor** larodCreateModelOutputs(const larodModel*, size_t* count, larodError** error) {
  return fails("larodCreateModelOutputs", error) ? nullptr : makeTensors(inference().outputs, count);
}
bool larodDestroyTensors(larodConnection*, larodTensor*** tensors, size_t count, larodError**) {
  larodTensor** const array = *tensors;
  std::for_each_n(array, count, [](larodTensor* tensor) { delete tensor; });
  delete[] array;
  release(tensors);
  return true;
}
bool larodSetTensorFd(larodTensor* tensor, int fd, larodError** error) {
  tensor->fd = fd;
  return !fails("larodSetTensorFd", error);
}
const larodTensorDims* larodGetTensorDims(const larodTensor* tensor, larodError**) { return &tensor->dims; }
const char* larodGetTensorName(const larodTensor*, larodError**) { return "picture"; }
larodTensorDataType larodGetTensorDataType(const larodTensor*, larodError**) { return LAROD_TENSOR_DATA_TYPE_UINT8; }
larodTensorLayout larodGetTensorLayout(const larodTensor*, larodError**) { return LAROD_TENSOR_LAYOUT_NHWC; }
int larodGetTensorFd(const larodTensor* tensor, larodError**) { return tensor->fd; }
int64_t larodGetTensorFdOffset(const larodTensor*, larodError**) { return 0; }
bool larodGetTensorFdProps(const larodTensor*, uint32_t* props, larodError**) { return (*props = 3) != 0; }
bool larodGetTensorFdSize(const larodTensor*, size_t* size, larodError**) { return (*size = 12) != 0; }
larodJobRequest* larodCreateJobRequest(const larodModel*, larodTensor** inputs, size_t, larodTensor** outputs, size_t,
                                       larodMap*, larodError** error) {
  if (fails("larodCreateJobRequest", error)) return nullptr;
  ++inference().live_handles;
  return new larodJobRequest{inputs, outputs};
}
void larodDestroyJobRequest(larodJobRequest** request) {
  delete *request;
  release(request);
}
bool larodRunJob(larodConnection*, const larodJobRequest* request, larodError** error) {
  if (fails("larodRunJob", error)) return false;
  scripted::Inference& script = inference();
  const std::size_t* const shape = request->inputs[0]->dims.dims;
  script.last_input.resize(shape[1] * shape[2] * shape[3]);
  bool isDone = pread(request->inputs[0]->fd, script.last_input.data(), script.last_input.size(), 0) > 0;
  auto outputs = script.output_bytes;
  if (!script.next_outputs.empty()) {
    outputs = std::move(script.next_outputs.front());
    script.next_outputs.pop_front();
  }
  for (std::size_t i = 0; i < outputs.size(); ++i) {
    const auto size = static_cast<ssize_t>(outputs[i].size());
    isDone &= write(request->outputs[i]->fd, outputs[i].data(), outputs[i].size()) == size;
  }
  return isDone;
}
}
