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

char handle;  // stands for every opaque object

bool fails(const char* call, larodError** error) {
  if (fakeLarod().failingCall != call || fakeLarod().callsBeforeFailure-- > 0) return false;
  *error = new larodError{LAROD_ERROR_JOB, "out of order"};
  return true;
}

template <typename T>
T* acquire() {
  ++fakeLarod().liveHandles;
  return reinterpret_cast<T*>(&handle);
}

template <typename T>
void release(T** object) {
  if (*object != nullptr) --fakeLarod().liveHandles;
  *object = nullptr;
}

std::vector<larodTensor*> lastInputs;
std::vector<larodTensor*> lastOutputs;

larodTensor** makeTensors(const std::vector<std::vector<std::size_t>>& shapes, std::size_t* count,
                          std::vector<larodTensor*>& last) {
  last.clear();
  for (const auto& shape : shapes) {
    auto* const tensor = new larodTensor{{{}, shape.size()}, -1};
    std::copy(shape.begin(), shape.end(), tensor->dims.dims);
    last.push_back(tensor);
  }
  *count = last.size();
  ++fakeLarod().liveHandles;
  auto** const array = new larodTensor*[last.size()];
  std::copy(last.begin(), last.end(), array);
  return array;
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
bool larodDisconnect(larodConnection** connection, larodError** error) {
  release(connection);
  return !fails("larodDisconnect", error);
}
larodModel* larodLoadModel(larodConnection*, int, larodChip, larodAccess, const char*, const larodMap*,
                           larodError** error) {
  return fails("larodLoadModel", error) ? nullptr : acquire<larodModel>();
}
bool larodDeleteModel(larodConnection*, larodModel*, larodError** error) { return !fails("larodDeleteModel", error); }
void larodDestroyModel(larodModel** model) { release(model); }
larodTensor** larodCreateModelInputs(const larodModel*, size_t* count, larodError** error) {
  if (fails("larodCreateModelInputs", error)) return nullptr;
  return makeTensors(fakeLarod().inputs, count, lastInputs);
}
larodTensor** larodCreateModelOutputs(const larodModel*, size_t* count, larodError** error) {
  if (fails("larodCreateModelOutputs", error)) return nullptr;
  return makeTensors(fakeLarod().outputs, count, lastOutputs);
}
bool larodDestroyTensors(larodConnection*, larodTensor*** tensors, size_t count, larodError**) {
  std::for_each(*tensors, *tensors + count, [](larodTensor* tensor) { delete tensor; });
  delete[] * tensors;
  *tensors = nullptr;
  --fakeLarod().liveHandles;
  return true;
}
bool larodSetTensorFd(larodTensor* tensor, int fd, larodError** error) {
  tensor->fd = fd;
  return !fails("larodSetTensorFd", error);
}
const larodTensorDims* larodGetTensorDims(const larodTensor* tensor, larodError** error) {
  return fails("larodGetTensorDims", error) ? nullptr : &tensor->dims;
}
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
  ++fake.runs;
  const auto& shape = fake.inputs[0];
  fake.lastInput.resize(shape[1] * shape[2] * shape[3]);
  bool isDone = pread(lastInputs[0]->fd, fake.lastInput.data(), fake.lastInput.size(), 0) > 0;
  for (std::size_t i = 0; i < fake.outputBytes.size(); ++i) {
    const auto& bytes = fake.outputBytes[i];
    isDone &= write(lastOutputs[i]->fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  }
  return isDone;
}
}
