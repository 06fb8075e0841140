// Small networks with everything in them that the engines know, and pictures for them.
#pragma once

#include <syslog.h>

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "platform/workstation/inference/engine/engine.h"
#include "tests/platform/inference/onnx_writer.h"
#include "tests/platform/state_folder.h"

inline std::span<const std::uint8_t> bytesOf(const std::string& file) {
  return {reinterpret_cast<const std::uint8_t*>(file.data()), file.size()};
}

inline std::vector<std::uint8_t> noise(size_t bytes, std::uint32_t seed) {
  std::vector<std::uint8_t> picture(bytes);
  for (std::uint8_t& byte : picture) byte = static_cast<std::uint8_t>((seed = seed * 1664525U + 1013904223U) >> 24);
  return picture;
}

/// What the system log says while something is done.
template <typename Function>
std::string logOf(Function function) {
  const StateFolder folder;
  ::openlog("velmor_test", 0, LOG_USER);
  function();
  ::closelog();
  std::string log;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
    if (entry.is_regular_file()) log += folder.read(std::filesystem::relative(entry, folder.path()));
  }
  return log;
}

/// Copies, which outlive the engine's next run.
inline std::vector<std::vector<float>> valuesOf(const std::vector<workstation::Maps>& maps) {
  std::vector<std::vector<float>> values;
  values.reserve(maps.size());
  for (const workstation::Maps& map : maps) values.emplace_back(map.values.begin(), map.values.end());
  return values;
}

using Kernel = std::vector<std::int64_t>;
inline OnnxMessage pads(const Kernel& values) { return integers("pads", values); }
inline OnnxMessage strides(const Kernel& values) { return integers("strides", values); }

/// The packed picture of 45 x 34 pixels as three maps of 17 x 9, and whatever is left over left out.
inline OnnxWriter shrunk() {
  OnnxWriter network(45, 34 * 3);
  std::vector<float> weights(size_t{3} * 5 * 6);
  for (size_t i = 0; i < weights.size(); ++i) {
    const size_t value = i % 6 * 7 % 5 + i / 30;
    weights[i] = static_cast<float>(value) / 9000;
  }
  network.constant<float>("small.w", {3, 1, 5, 6}, weights).constant<float>("small.b", {3}, {-1.0F, 0.5F, 0.25F});
  return network.node("Conv", {"picture", "small.w", "small.b"}, "small",
                      {strides({5, 6}), integers("kernel_shape", {5, 6})});
}

inline OnnxWriter& pad(OnnxWriter& network, const std::string& input, const std::string& output, const Kernel& ends) {
  network.constant<std::int64_t>(output + ".s", {8}, {0, 0, ends[0], ends[1], 0, 0, ends[2], ends[3]});
  return network.node("Pad", {input, output + ".s"}, output, {word("mode", "constant")});
}

inline OnnxWriter& relu6(OnnxWriter& network, const std::string& input, const std::string& output) {
  return network.node("Clip", {input}, output, {real("min", 0), real("max", 6)});
}

inline OnnxWriter& doubled(OnnxWriter& network, const std::string& input, const std::string& output) {
  network.constant<float>(output + ".s", {4}, {1, 1, 2, 2});
  return network.node("Resize", {input, "", output + ".s"}, output,
                      {word("mode", "linear"), word("coordinate_transformation_mode", "half_pixel")});
}

inline OnnxWriter framed() {
  OnnxWriter network = shrunk();
  pad(network, "small", "frame", {0, 0, 3, 15});
  pad(network, "frame", "frame2", {0, 0, 1, 1}).convolution("frame2", "conv", {20, 3, 3, 3}, {strides({2, 2})});
  return relu6(network, "conv", "out");
}

/// Two looks at the picture, shrunk by other numbers, with the same weights.
inline OnnxWriter looks() {
  OnnxWriter network = shrunk();
  network.convolution("picture", "smaller", {3, 1, 9, 6}, {strides({9, 6})});
  network.convolution("small", "first", {7, 3, 3, 3}, {pads({1, 1, 1, 1})});
  network.node("Conv", {"smaller", "first.w", "first.b"}, "first2",
               {integers("kernel_shape", {3, 3}), pads({1, 1, 1, 1})});
  network.constant<float>("shared.w", {2, 7, 1, 1}, {1, -1, 0.5F, 2, 0, 1, -2, 3, 1, -1, 0.25F, 1, 2, 0});
  return network.node("Conv", {"first", "shared.w"}, "out", {integers("kernel_shape", {1, 1})})
      .node("Conv", {"first2", "shared.w"}, "out2", {integers("kernel_shape", {1, 1})});
}

/// A frame on all sides, read by two convolutions, one of which pads as well.
inline OnnxWriter framedLater() {
  OnnxWriter network = shrunk();
  network.convolution("small", "wide", {24, 3, 1, 1}, {});
  pad(network, "wide", "frame", {1, 0, 2, 3}).convolution("frame", "out", {5, 24, 3, 3}, {strides({2, 1})});
  return network.convolution("frame", "out2", {7, 24, 3, 3}, {pads({1, 1, 1, 1})}, false);
}

inline OnnxWriter overlapping() {
  OnnxWriter network(19, 13 * 3);
  network.convolution("picture", "first", {4, 1, 3, 5}, {strides({2, 3}), pads({1, 2, 1, 2})});
  network.node("Relu", {"first"}, "out");
  return network.convolution("out", "out2", {3, 4, 3, 3}, {integers("dilations", {2, 3}), pads({2, 3, 2, 3})});
}

inline OnnxWriter depthwise() {
  OnnxWriter network = shrunk();
  network.convolution("small", "wide", {19, 3, 1, 1}, {});
  relu6(network, "wide", "wide6");
  network.convolution("wide6", "deep", {19, 1, 3, 3}, {strides({2, 2}), pads({1, 1, 1, 1}), integer("group", 19)});
  relu6(network, "deep", "deep6");
  return network.convolution("deep6", "out", {19, 1, 5, 3}, {pads({2, 1, 2, 1}), integer("group", 19)}, false);
}

inline OnnxWriter groups() {
  OnnxWriter network = shrunk();
  network.convolution("small", "wide", {12, 3, 1, 1}, {});
  return network.convolution("wide", "out", {10, 6, 3, 3}, {pads({1, 1, 1, 1}), integer("group", 2)});
}

/// What is added to is done with in the first sum, needed again in the second, and asked for in the third.
inline OnnxWriter sums() {
  OnnxWriter network = shrunk();
  const std::vector<OnnxMessage> same{pads({1, 1, 1, 1})};
  network.convolution("small", "a", {18, 3, 1, 1}, {}).convolution("a", "b", {18, 18, 3, 3}, same);
  network.node("Add", {"a", "b"}, "ab").convolution("ab", "c", {18, 18, 1, 1}, {}).node("Add", {"c", "ab"}, "abc");
  network.node("Relu", {"abc"}, "out2").convolution("ab", "d", {18, 18, 1, 1}, {}).node("Add", {"d", "out2"}, "out3");
  return network.node("Add", {"ab", "out3"}, "half").node("Relu", {"half"}, "out");
}

/// A sum of two sums, clipped to other limits, and one of a tensor with itself.
inline OnnxWriter loose() {
  OnnxWriter network = shrunk();
  network.node("Add", {"small", "small"}, "twice").node("Clip", {"twice"}, "out", {real("min", -0.5F), real("max", 1)});
  return relu6(network, "twice", "out2");
}

inline OnnxWriter resized() {
  OnnxWriter network = shrunk();
  network.convolution("small", "wide", {21, 3, 1, 1}, {});
  doubled(network, "wide", "double").convolution("small", "half", {21, 3, 1, 1}, {});
  return doubled(network, "half", "half2").node("Add", {"double", "half2"}, "out");
}
