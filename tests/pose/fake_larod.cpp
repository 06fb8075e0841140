#include "tests/pose/fake_larod.h"

#include <larod.h>
#include <unistd.h>

#include <algorithm>

FakeLarod& fakeLarod() {
  static FakeLarod service;
  return service;
}

struct larodTensor {
  larodTensorDims dims;
  int fd;
};

namespace {

struct Tensors {
  std::vector<larodTensor> tensors;
  std::vector<larodTensor*> array;

  larodTensor** make(const std::vector<std::vector<std::size_t>>& shapes, std::size_t* count) {
    tensors.assign(shapes.size(), {});
    array.assign(shapes.size(), nullptr);
    for (std::size_t i = 0; i < shapes.size(); ++i) {
      tensors[i].dims.len = shapes[i].size();
      std::copy(shapes[i].begin(), shapes[i].end(), tensors[i].dims.dims);
      array[i] = &tensors[i];
    }
    array.push_back(nullptr);
    *count = shapes.size();
    ++fakeLarod().liveHandles;
    return array.data();
  }
};

Tensors inputs;
Tensors outputs;

bool fails(const char* call, larodError** error) {
  if (fakeLarod().failingCall != call || fakeLarod().callsBeforeFailure-- > 0) return false;
  *error = new larodError{LAROD_ERROR_JOB, "out of order"};
  return true;
}

template <typename T>
T* acquire() {
  ++fakeLarod().liveHandles;
  return reinterpret_cast<T*>(&fakeLarod());
}

template <typename T>
void release(T** object) {
  if (*object != nullptr) --fakeLarod().liveHandles;
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
larodModel* larodLoadModel(larodConnection*, int, larodChip, larodAccess, const char*, const larodMap*,
                           larodError** error) {
  return fails("larodLoadModel", error) ? nullptr : acquire<larodModel>();
}
bool larodDeleteModel(larodConnection*, larodModel*, larodError**) { return true; }
void larodDestroyModel(larodModel** model) { release(model); }
larodTensor** larodCreateModelInputs(const larodModel*, size_t* count, larodError** error) {
  return fails("larodCreateModelInputs", error) ? nullptr : inputs.make(fakeLarod().inputs, count);
}
larodTensor** larodCreateModelOutputs(const larodModel*, size_t* count, larodError** error) {
  return fails("larodCreateModelOutputs", error) ? nullptr : outputs.make(fakeLarod().outputs, count);
}
bool larodDestroyTensors(larodConnection*, larodTensor*** tensors, size_t, larodError**) {
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
larodJobRequest* larodCreateJobRequest(const larodModel*, larodTensor**, size_t, larodTensor**, size_t, larodMap*,
                                       larodError** error) {
  return fails("larodCreateJobRequest", error) ? nullptr : acquire<larodJobRequest>();
}
void larodDestroyJobRequest(larodJobRequest** request) { release(request); }
bool larodRunJob(larodConnection*, const larodJobRequest*, larodError** error) {
  if (fails("larodRunJob", error)) return false;
  FakeLarod& fake = fakeLarod();
  const auto& shape = fake.inputs[0];
  fake.lastInput.resize(shape[1] * shape[2] * shape[3]);
  bool isDone = pread(inputs.tensors[0].fd, fake.lastInput.data(), fake.lastInput.size(), 0) > 0;
  for (std::size_t i = 0; i < fake.outputBytes.size(); ++i) {
    const auto& bytes = fake.outputBytes[i];
    isDone &= write(outputs.tensors[i].fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  }
  return isDone;
}
}
