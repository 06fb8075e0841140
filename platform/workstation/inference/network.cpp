#include "platform/workstation/inference/network.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <exception>
#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <utility>

#include "platform/workstation/inference/tensor_quantizer.h"
#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/signal_mask.h"

namespace workstation {
namespace {

constexpr float kMostFrame = 8;  // cells: a network's picture has sides of multiples of 32 pixels, a cell has 4

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

}  // namespace

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
    const bool isCopied = output.adapted || output.type == LAROD_TENSOR_DATA_TYPE_UINT8;
    m_bytes.emplace_back(isCopied ? output.bytes() : 0, output.zero_point);
    if (!output.layer.empty()) {
      m_layers.push_back(output.layer);
    }
  }
  m_first_head = m_layers.size();
  for (const AdapterScale& scale : m_sidecar.adapter.scales) {
    m_layers.insert(m_layers.end(), scale.heads.begin(), scale.heads.end());
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
  for (size_t scale = 0; scale < m_sidecar.adapter.scales.size(); ++scale) {
    checkHeads(file, scale);
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

void Network::checkHeads(const std::string& file, size_t scale) const {
  const size_t first = m_first_head + scale * kPoseHeads;
  const cv::Mat& center = m_results[first];
  for (size_t head = 0; head < kPoseHeads; ++head) {
    const cv::Mat& result = m_results[first + head];
    const bool matches = result.type() == CV_32F && result.isContinuous() && result.dims == 4 && result.size[0] == 1 &&
                         result.size[1] == kPoseHeadChannels[head] && result.size[2] == center.size[2] &&
                         result.size[3] == center.size[3];
    const std::string output = file + ": output \"" + m_layers[first + head] + "\" is not ";
    if (!matches) {
      throw ServiceError(LAROD_ERROR_LOAD_MODEL, output + "a head that the adapter reads");
    }
    if (!cv::checkRange(result)) {
      throw ServiceError(LAROD_ERROR_LOAD_MODEL, output + "finite on a black picture");
    }
  }
  const float cell = m_sidecar.adapter.scales[scale].cell;
  const auto covers = [cell](int cells, size_t side) {
    const float pixels = cell * static_cast<float>(cells);
    return pixels >= static_cast<float>(side) && pixels < static_cast<float>(side) + kMostFrame * cell;
  };
  const auto& picture = m_sidecar.input.shape;
  if (!covers(center.size[2], picture[1]) || !covers(center.size[3], picture[2])) {
    throw ServiceError(LAROD_ERROR_LOAD_MODEL, file + ": heads \"" + m_layers[first] +
                                                   "\" and so on have not as many " +
                                                   "cells of the sidecar's size as cover the picture");
  }
}

PoseHeads Network::headsOf(size_t scale) const {
  const size_t first = m_first_head + scale * kPoseHeads;
  const auto maps = [&](size_t head) {
    const cv::Mat& result = m_results[first + head];
    return std::span<const float>(result.ptr<float>(), result.total());
  };
  const cv::Mat& center = m_results[first];
  return {maps(0), maps(1), maps(2), maps(3), center.size[2], center.size[3]};
}

void Network::adapt() {
  if (!m_sidecar.adapter.isSet()) {
    return;
  }
  for (size_t head = m_first_head; head < m_results.size(); ++head) {
    if (!cv::checkRange(m_results[head])) {  // else somebody would be overlooked without a word
      throw ServiceError(LAROD_ERROR_JOB, "the network failed: its output \"" + m_layers[head] + "\" is not finite");
    }
  }
  std::vector<PoseHeads> heads;
  for (size_t scale = 0; scale < m_sidecar.adapter.scales.size(); ++scale) {
    heads.push_back(headsOf(scale));
  }
  const auto people = findPeople(heads, m_sidecar.adapter);
  const auto& outputs = m_sidecar.outputs;
  if (outputs[0].type == LAROD_TENSOR_DATA_TYPE_UINT8) {
    const auto tensor = [&](size_t at) { return PoseTensor{m_bytes[at], {outputs[at].scale, outputs[at].zero_point}}; };
    const auto rows = static_cast<int>(outputs[0].shape[1]);
    const auto columns = static_cast<int>(outputs[0].shape[2]);
    writePose(people, {tensor(0), tensor(1), tensor(2), rows, columns});
    return;
  }
  const auto floats = [&](size_t at) {
    return std::span<float>(reinterpret_cast<float*>(m_bytes[at].data()), outputs[at].elements());
  };
  const auto& picture = m_sidecar.input.shape;
  writeCandidates(people, static_cast<float>(picture[1]), static_cast<float>(picture[2]),
                  {floats(0), floats(1), floats(2), floats(3)});
}

void Network::forward(void* picture) {
  // OpenCV starts its pool's threads in the first parallel loop.
  const ScopedSigtermBlock no_sigterm_for_pool_threads;
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
  if (layout.adapted) {
    return m_bytes[output];
  }
  if (layout.type == LAROD_TENSOR_DATA_TYPE_FLOAT32) {
    return {reinterpret_cast<const std::uint8_t*>(mapsOf(output)), layout.bytes()};
  }
  if (!layout.layer.empty()) {
    quantizeChannelsLast({mapsOf(output), layout.elements()}, layout.shape[3], {layout.scale, layout.zero_point},
                         m_bytes[output]);
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
    adapt();
  } catch (const cv::Exception& exception) {
    throw ServiceError(LAROD_ERROR_JOB, "the network failed: " + exception.err);
  }
  for (size_t output = 0; output < output_fds.size(); ++output) {
    const auto bytes = encode(output);
    if (!writeAll(output_fds[output], bytes.data(), bytes.size())) {
      throw ServiceError(LAROD_ERROR_FD, "the file of tensor \"" + m_sidecar.outputs[output].name +
                                             "\" cannot be written: " + std::strerror(errno));
    }
  }
}

std::vector<std::string> Network::notFinite() const {
  std::vector<std::string> lines;
  for (size_t layer = 0; layer < m_layers.size(); ++layer) {
    const std::span<const float> values(m_results[layer].ptr<float>(), m_results[layer].total());
    const auto bad = std::count_if(values.begin(), values.end(), [](float value) { return !std::isfinite(value); });
    if (bad == 0) continue;
    const auto nans = std::count_if(values.begin(), values.end(), [](float value) { return std::isnan(value); });
    lines.push_back("layer \"" + m_layers[layer] + "\": of " + std::to_string(values.size()) + " values " +
                    std::to_string(nans) + " are no number and " + std::to_string(bad - nans) + " infinite");
  }
  return lines;
}

}  // namespace workstation
