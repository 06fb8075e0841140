#include "pose/larod_helpers.h"

#include <syslog.h>

#include <fstream>

void destroyTensors(larodConnection* connection, larodTensor**& tensors, std::size_t count) {
  if (tensors == nullptr) return;
  LarodError error;
  larodDestroyTensors(connection, &tensors, count, error.out());
}

void logTensor(const larodTensor* tensor, const std::string& tag) {
  LarodError nameError;
  LarodError typeError;
  LarodError dimsError;
  LarodError otherErrors;
  const char* const name = larodGetTensorName(tensor, nameError.out());
  syslog(LOG_INFO, "[%s] Name          : %s", tag.c_str(), name != nullptr ? name : "");
  syslog(LOG_INFO, "[%s] Data Type     : %d", tag.c_str(), larodGetTensorDataType(tensor, typeError.out()));
  if (const larodTensorDims* dims = larodGetTensorDims(tensor, dimsError.out()); dims != nullptr) {
    syslog(LOG_INFO, "[%s] Num Dims      : %d", tag.c_str(), static_cast<int>(dims->len));
    for (std::size_t i = 0; i < dims->len; ++i) {
      syslog(LOG_INFO, "[%s]   Dim(%d)      : %d", tag.c_str(), static_cast<int>(i), static_cast<int>(dims->dims[i]));
    }
  }

  LarodError fdError;
  LarodError offsetError;
  LarodError propsError;
  LarodError sizeError;
  uint32_t props = 0;
  std::size_t size = 0;
  syslog(LOG_INFO, "[%s] FD            : %d", tag.c_str(), larodGetTensorFd(tensor, fdError.out()));
  syslog(LOG_INFO, "[%s] FD Offset     : %d", tag.c_str(),
         static_cast<int>(larodGetTensorFdOffset(tensor, offsetError.out())));
  larodGetTensorFdProps(tensor, &props, propsError.out());
  syslog(LOG_INFO, "[%s] FD Prop Flags  : %d", tag.c_str(), static_cast<int>(props));
  larodGetTensorFdSize(tensor, &size, sizeError.out());
  syslog(LOG_INFO, "[%s] FD Size        : %d", tag.c_str(), static_cast<int>(size));
  syslog(LOG_INFO, "[%s] Layout         : %d", tag.c_str(), larodGetTensorLayout(tensor, otherErrors.out()));
}

bool writeGreymap(const std::string& path, const uint8_t* rgb, int width, int height) {
  std::ofstream file(path);
  file << "P2\n" << width << ' ' << height << "\n255\n";
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x, rgb += 3) file << (rgb[0] + rgb[1] + rgb[2]) / 3 << (x + 1 < width ? ' ' : '\n');
  }
  file.flush();
  if (!file) syslog(LOG_ERR, "Cannot write %s: check its folder and the space left", path.c_str());
  return static_cast<bool>(file);
}
