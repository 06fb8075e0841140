// The camera's inference service: models, tensors on file descriptors, jobs.
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct larodConnection larodConnection;
typedef struct larodModel larodModel;
typedef struct larodTensor larodTensor;
typedef struct larodJobRequest larodJobRequest;
typedef struct larodMap larodMap;

typedef enum {
  LAROD_ERROR_NONE = 0,
  LAROD_ERROR_JOB = -1,
  LAROD_ERROR_LOAD_MODEL = -2,
  LAROD_ERROR_FD = -3,
  LAROD_ERROR_MODEL_NOT_FOUND = -4,
  LAROD_ERROR_INVALID_CHIP_ID = -5,
  LAROD_ERROR_MISC = -6,
} larodErrorCode;

/// Release with larodClearError.
typedef struct {
  larodErrorCode code;
  const char* msg;
} larodError;

/// Inference devices. A workstation offers LAROD_CHIP_CPU only.
typedef enum {
  LAROD_CHIP_INVALID = 0,
  LAROD_CHIP_CPU = 2,
} larodChip;

typedef enum { LAROD_ACCESS_INVALID = 0, LAROD_ACCESS_PRIVATE = 1, LAROD_ACCESS_PUBLIC = 2 } larodAccess;

typedef enum {
  LAROD_TENSOR_DATA_TYPE_INVALID = 0,
  LAROD_TENSOR_DATA_TYPE_UINT8 = 4,
  LAROD_TENSOR_DATA_TYPE_FLOAT32 = 11,
} larodTensorDataType;

typedef enum { LAROD_TENSOR_LAYOUT_INVALID = 0, LAROD_TENSOR_LAYOUT_NHWC = 2 } larodTensorLayout;

enum { LAROD_TENSOR_MAX_LEN = 12 };

/// Batch first; a picture or a grid is batch, height, width, channels.
typedef struct {
  size_t dims[LAROD_TENSOR_MAX_LEN];
  size_t len;
} larodTensorDims;

void larodClearError(larodError** error);

bool larodConnect(larodConnection** connection, larodError** error);
/// Frees the connection and clears the pointer.
bool larodDisconnect(larodConnection** connection, larodError** error);

/// Loads the model that the descriptor is open on. The caller keeps the descriptor and owns the handle.
larodModel* larodLoadModel(larodConnection* connection, int fd, larodChip chip, larodAccess access, const char* name,
                           const larodMap* params, larodError** error);
/// Takes the model out of the service; its handle stays to be destroyed.
bool larodDeleteModel(larodConnection* connection, larodModel* model, larodError** error);
void larodDestroyModel(larodModel** model);

/// Arrays of the model's tensors; the caller owns them.
larodTensor** larodCreateModelInputs(const larodModel* model, size_t* count, larodError** error);
larodTensor** larodCreateModelOutputs(const larodModel* model, size_t* count, larodError** error);
bool larodDestroyTensors(larodConnection* connection, larodTensor*** tensors, size_t count, larodError** error);

/// Binds the tensor to a file; the caller keeps the descriptor open while jobs run.
bool larodSetTensorFd(larodTensor* tensor, int fd, larodError** error);
const larodTensorDims* larodGetTensorDims(const larodTensor* tensor, larodError** error);
const char* larodGetTensorName(const larodTensor* tensor, larodError** error);
larodTensorDataType larodGetTensorDataType(const larodTensor* tensor, larodError** error);
larodTensorLayout larodGetTensorLayout(const larodTensor* tensor, larodError** error);
int larodGetTensorFd(const larodTensor* tensor, larodError** error);
int64_t larodGetTensorFdOffset(const larodTensor* tensor, larodError** error);
bool larodGetTensorFdProps(const larodTensor* tensor, uint32_t* props, larodError** error);
bool larodGetTensorFdSize(const larodTensor* tensor, size_t* size, larodError** error);

larodJobRequest* larodCreateJobRequest(const larodModel* model, larodTensor** inputs, size_t inputCount,
                                       larodTensor** outputs, size_t outputCount, larodMap* params, larodError** error);
void larodDestroyJobRequest(larodJobRequest** request);
/// Reads the input files from their start, runs the model and writes each output at its descriptor's position.
/// Returns when all outputs are written.
bool larodRunJob(larodConnection* connection, const larodJobRequest* request, larodError** error);

#ifdef __cplusplus
}
#endif
