#include <gtest/gtest.h>
#include <syslog.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "platform/workstation/inference/engine/engine_choice.h"
#include "platform/workstation/inference/engine/onednn_engine.h"
#include "platform/workstation/inference/engine/opencv_engine.h"
#include "platform/workstation/inference/engine/plan.h"
#include "platform/workstation/inference/engine/unsupported.h"
#include "platform/workstation/inference/model_sidecar.h"
#include "tests/platform/inference/onnx_writer.h"
#include "tests/platform/state_folder.h"

namespace {

using namespace workstation;  // NOLINT(google-build-using-namespace): all of it is about the engines

std::span<const std::uint8_t> bytesOf(const std::string& file) {
  return {reinterpret_cast<const std::uint8_t*>(file.data()), file.size()};
}

std::vector<std::uint8_t> noise(size_t bytes, std::uint32_t seed) {
  std::vector<std::uint8_t> picture(bytes);
  for (std::uint8_t& byte : picture) byte = static_cast<std::uint8_t>((seed = seed * 1664525U + 1013904223U) >> 24);
  return picture;
}

/// Copies, which outlive the engine's next run.
std::vector<std::vector<float>> valuesOf(const std::vector<Maps>& maps) {
  std::vector<std::vector<float>> values;
  values.reserve(maps.size());
  for (const Maps& map : maps) values.emplace_back(map.values.begin(), map.values.end());
  return values;
}

using Kernel = std::vector<std::int64_t>;
OnnxMessage pads(const Kernel& values) { return integers("pads", values); }
OnnxMessage strides(const Kernel& values) { return integers("strides", values); }

/// The packed picture of 45 x 34 pixels as three maps of 17 x 9, and whatever is left over left out.
OnnxWriter shrunk() {
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

OnnxWriter& pad(OnnxWriter& network, const std::string& input, const std::string& output, const Kernel& ends) {
  network.constant<std::int64_t>(output + ".s", {8}, {0, 0, ends[0], ends[1], 0, 0, ends[2], ends[3]});
  return network.node("Pad", {input, output + ".s"}, output, {word("mode", "constant")});
}

OnnxWriter& relu6(OnnxWriter& network, const std::string& input, const std::string& output) {
  return network.node("Clip", {input}, output, {real("min", 0), real("max", 6)});
}

OnnxWriter& doubled(OnnxWriter& network, const std::string& input, const std::string& output) {
  network.constant<float>(output + ".s", {4}, {1, 1, 2, 2});
  return network.node("Resize", {input, "", output + ".s"}, output,
                      {word("mode", "linear"), word("coordinate_transformation_mode", "half_pixel")});
}

OnnxWriter framed() {
  OnnxWriter network = shrunk();
  pad(network, "small", "frame", {0, 0, 3, 15});
  pad(network, "frame", "frame2", {0, 0, 1, 1}).convolution("frame2", "conv", {20, 3, 3, 3}, {strides({2, 2})});
  return relu6(network, "conv", "out");
}

/// A frame on all sides, read by two convolutions, one of which pads as well.
OnnxWriter framedLater() {
  OnnxWriter network = shrunk();
  network.convolution("small", "wide", {24, 3, 1, 1}, {});
  pad(network, "wide", "frame", {1, 0, 2, 3}).convolution("frame", "out", {5, 24, 3, 3}, {strides({2, 1})});
  return network.convolution("frame", "out2", {7, 24, 3, 3}, {pads({1, 1, 1, 1})}, false);
}

OnnxWriter overlapping() {
  OnnxWriter network(19, 13 * 3);
  network.convolution("picture", "first", {4, 1, 3, 5}, {strides({2, 3}), pads({1, 2, 1, 2})});
  network.node("Relu", {"first"}, "out");
  return network.convolution("out", "out2", {3, 4, 3, 3}, {integers("dilations", {2, 3}), pads({2, 3, 2, 3})});
}

OnnxWriter depthwise() {
  OnnxWriter network = shrunk();
  network.convolution("small", "wide", {19, 3, 1, 1}, {});
  relu6(network, "wide", "wide6");
  network.convolution("wide6", "deep", {19, 1, 3, 3}, {strides({2, 2}), pads({1, 1, 1, 1}), integer("group", 19)});
  relu6(network, "deep", "deep6");
  return network.convolution("deep6", "out", {19, 1, 5, 3}, {pads({2, 1, 2, 1}), integer("group", 19)}, false);
}

OnnxWriter groups() {
  OnnxWriter network = shrunk();
  network.convolution("small", "wide", {12, 3, 1, 1}, {});
  return network.convolution("wide", "out", {10, 6, 3, 3}, {pads({1, 1, 1, 1}), integer("group", 2)});
}

/// What is added to is done with in the first sum, needed again in the second, and asked for in the third.
OnnxWriter sums() {
  OnnxWriter network = shrunk();
  const std::vector<OnnxMessage> same{pads({1, 1, 1, 1})};
  network.convolution("small", "a", {18, 3, 1, 1}, {}).convolution("a", "b", {18, 18, 3, 3}, same);
  network.node("Add", {"a", "b"}, "ab").convolution("ab", "c", {18, 18, 1, 1}, {}).node("Add", {"c", "ab"}, "abc");
  network.node("Relu", {"abc"}, "out2").convolution("ab", "d", {18, 18, 1, 1}, {}).node("Add", {"d", "out2"}, "out3");
  return network.node("Add", {"ab", "out3"}, "half").node("Relu", {"half"}, "out");
}

/// A sum of two sums, clipped to other limits, and one of a tensor with itself.
OnnxWriter loose() {
  OnnxWriter network = shrunk();
  network.node("Add", {"small", "small"}, "twice").node("Clip", {"twice"}, "out", {real("min", -0.5F), real("max", 1)});
  return relu6(network, "twice", "out2");
}

OnnxWriter resized() {
  OnnxWriter network = shrunk();
  network.convolution("small", "wide", {21, 3, 1, 1}, {});
  doubled(network, "wide", "double").convolution("small", "half", {21, 3, 1, 1}, {});
  return doubled(network, "half", "half2").node("Add", {"double", "half2"}, "out");
}

struct Scenario {
  const char* name;
  OnnxWriter (*make)();
  std::vector<std::string> outputs;
};

void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

class BothEngines : public testing::TestWithParam<Scenario> {};

TEST_P(BothEngines, MakeTheSameOfEveryPicture) {
  const OnnxWriter network = GetParam().make();
  const std::string file = network.file(GetParam().outputs);
  const NetworkTask task{bytesOf(file), network.height(), network.packedWidth(), GetParam().outputs};
  const auto onednn = makeOneDnnEngine(task);
  const auto opencv = makeOpenCvEngine(task);
  const auto first = noise(static_cast<size_t>(network.height()) * static_cast<size_t>(network.packedWidth()), 1);
  const auto second = noise(first.size(), 2);
  const auto of_first = valuesOf(onednn->run(first.data()));
  for (const auto& picture : {second, first}) {
    const std::vector<Maps> made = onednn->run(picture.data());
    const std::vector<Maps> expected = opencv->run(picture.data());
    ASSERT_EQ(made.size(), GetParam().outputs.size());
    for (size_t output = 0; output < made.size(); ++output) {
      ASSERT_EQ(made[output].shape, expected[output].shape) << GetParam().outputs[output];
      float largest = 0;
      for (const float value : expected[output].values) largest = std::max(largest, std::abs(value));
      ASSERT_GT(largest, 0.01F) << "it shows something";
      for (size_t i = 0; i < made[output].values.size(); ++i) {
        ASSERT_NEAR(made[output].values[i], expected[output].values[i], largest * 1e-5F)
            << GetParam().outputs[output] << " at " << i;
      }
    }
  }
  EXPECT_EQ(valuesOf(onednn->run(first.data())), of_first) << "nothing of another picture is left";
}
INSTANTIATE_TEST_SUITE_P(
    Networks, BothEngines,
    testing::Values(Scenario{"framed", framed, {"out", "small"}}, Scenario{"framed alone", framed, {"out"}},
                    Scenario{"framed later", framedLater, {"out", "out2"}},
                    Scenario{"overlapping", overlapping, {"out", "out2"}}, Scenario{"depthwise", depthwise, {"out"}},
                    Scenario{"groups", groups, {"out", "wide"}}, Scenario{"sums", sums, {"out", "out2", "out3"}},
                    Scenario{"sums alone", sums, {"out"}}, Scenario{"loose", loose, {"out", "out2"}},
                    Scenario{"resized", resized, {"out", "double"}}),
    [](const auto& scenario) {
      std::string name = scenario.param.name;
      std::replace(name.begin(), name.end(), ' ', '_');
      return name;
    });

/// OpenCV pads both ends alike; the same by a frame of its own is what it knows.
TEST(OneDnnEngine, PadsEachEndAsItIsTold) {
  OnnxWriter by_pads = shrunk(), by_frame = shrunk();
  by_pads.convolution("small", "out", {8, 3, 3, 3}, {pads({0, 1, 2, 0}), strides({2, 2})});
  pad(by_frame, "small", "frame", {0, 1, 2, 0}).convolution("frame", "out", {8, 3, 3, 3}, {strides({2, 2})});
  const std::string one = by_pads.file({"out"}), other = by_frame.file({"out"});
  const auto picture = noise(size_t{45} * 34 * 3, 3);
  const auto onednn = makeOneDnnEngine({bytesOf(one), 45, 34 * 3, {"out"}});
  const auto opencv = makeOpenCvEngine({bytesOf(other), 45, 34 * 3, {"out"}});
  EXPECT_NO_THROW(checkAgreement({"out"}, onednn->run(picture.data()), opencv->run(picture.data())));
}

std::string refusalOf(const std::string& file, const std::vector<std::string>& outputs = {"out"}) {
  try {
    planOf({bytesOf(file), 45, 34 * 3, outputs});
  } catch (const Unsupported& refusal) {
    return refusal.what();
  }
  return "none";
}

TEST(OneDnnPlan, NamesWhatItDoesNotKnow) {
  const auto after = [](const auto& change) {
    OnnxWriter network = shrunk();
    change(network);
    return refusalOf(network.file({"out"}));
  };
  const auto conv = [&](std::vector<OnnxMessage> attributes, const Kernel& weights = {4, 3, 3, 3}) {
    return after([&](OnnxWriter& n) { n.convolution("small", "out", weights, std::move(attributes)); });
  };
  const auto resize = [&](const char* mode, const char* places, float scale) {
    return after([&](OnnxWriter& n) {
      n.constant<float>("s", {4}, {1, 1, scale, 2});
      n.node("Resize", {"small", "", "s"}, "out", {word("mode", mode), word("coordinate_transformation_mode", places)});
    });
  };
  const auto weights = [&](const Kernel& shape, const auto& values) {
    return after([&](OnnxWriter& n) { n.constant("w", shape, values).node("Conv", {"small", "w"}, "out"); });
  };
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  const std::pair<std::string, std::string> refusals[] = {
      {conv({}), "none"},
      {conv({word("auto_pad", "SAME_UPPER")}), "layer \"out\" pads itself"},
      {conv({integer("new", 1)}), "layer \"out\" has the attribute \"new\""},
      {conv({strides({1})}), "layer \"out\" has not 2 strides"},
      {conv({strides({0, 1})}), "layer \"out\" has a number not known here"},
      {conv({pads({0, 0, -1, 0})}), "layer \"out\" has a number not known here"},
      {conv({integer("group", 3)}), "layer \"out\" has weights that do not fit its input"},
      {conv({}, {4, 2, 3, 3}), "layer \"out\" has weights that do not fit its input"},
      {conv({}, {4, 3, 30, 3}), "layer \"out\" has a size not known here"},
      {weights({1, 3, 1, 1}, std::vector<float>{1, kNan, 1}), "the values of \"w\" are not all finite"},
      {weights({1, 3, 1, 1}, std::vector<float>{1, 1}), "\"w\" has not as many values as its sizes say"},
      {weights({1, 3, 1, 1}, std::vector<std::int64_t>{1, 1, 1}),
       "layer \"out\" has weights that do not fit its input"},
      {resize("linear", "half_pixel", 2), "none"},
      {resize("nearest", "half_pixel", 2), "layer \"out\" resizes in a way not known here"},
      {resize("linear", "align_corners", 2), "layer \"out\" resizes in a way not known here"},
      {resize("linear", "half_pixel", 1.5F), "layer \"out\" does not resize to whole pixels"},
      {after([](OnnxWriter& n) { n.node("Sigmoid", {"small"}, "out"); }), "layer \"out\" is of kind Sigmoid"},
      {after([](OnnxWriter& n) { n.node("Relu", {"nothing"}, "out"); }),
       "layer \"out\" has an input that is no map: nothing"},
      {after([](OnnxWriter& n) { n.node("Relu", {"out"}, "out"); }), "layer \"out\" has an input that is no map: out"},
      {after([](OnnxWriter& n) { n.node("Clip", {"small"}, "out", {real("max", 6)}); }),
       "layer \"out\" has limits not known here"},
      {after([](OnnxWriter& n) {
         pad(n, "small", "frame", {1, 1, 1, 1}).node("Relu", {"frame"}, "out");
       }),
       "layer \"out\" reads a frame of zeros, and is no convolution"},
      {after([](OnnxWriter& n) {
         n.convolution("small", "less", {3, 3, 3, 3}, {}).node("Add", {"small", "less"}, "out");
       }),
       "layer \"out\" adds what does not fit it"},
      {after([](OnnxWriter& n) { n.node("Relu", {"small"}, "other"); }),
       "layer \"out\" is no output of a layer known here"}};
  for (const auto& [refusal, expected] : refusals) EXPECT_EQ(refusal, expected);
}

TEST(OneDnnPlan, ReadsADamagedFileToAnEndAndNotBeyond) {
  OnnxWriter network(45, 34 * 3);
  network.convolution("picture", "wide", {2, 1, 1, 2}, {pads({0, 1, 0, 1}), integer("group", 1)});
  pad(network, "wide", "frame", {1, 0, 2, 3}).convolution("frame", "deep", {2, 1, 1, 1}, {integer("group", 2)});
  const std::string whole = doubled(relu6(network, "deep", "limited"), "limited", "out").file({"out"});
  ASSERT_EQ(refusalOf(whole), "none");
  for (size_t size = 0; size < whole.size(); ++size) EXPECT_NE(refusalOf(whole.substr(0, size)), "none") << size;
  size_t refused = 0;
  for (size_t at = 0; at < whole.size(); ++at) {
    for (const char bits : {'\x01', '\x80', '\xff'}) {
      std::string damaged = whole;
      damaged[at] = static_cast<char>(damaged[at] ^ bits);
      refused += refusalOf(damaged) != "none" ? 1 : 0;
    }
  }
  EXPECT_GT(refused, whole.size()) << "weights may be anything";
}

TEST(EngineChoice, IsOpenCvWithALineWhereOneDnnDoesNotKnowALayer) {
  const StateFolder folder;
  ::openlog("velmor_test", 0, LOG_USER);
  const auto picture = noise(size_t{45} * 34 * 3, 4);
  OnnxWriter known = framed(), unknown = shrunk();
  const std::string first = known.file({"out"}), second = unknown.node("Sigmoid", {"small"}, "out").file({"out"});
  chooseEngine("known.onnx", {bytesOf(first), 45, 34 * 3, {"out"}});
  const auto engine = chooseEngine("own.onnx", {bytesOf(second), 45, 34 * 3, {"out"}});
  const std::vector<Maps> made = engine->run(picture.data());
  EXPECT_EQ(made[0].shape, (std::vector<int>{1, 3, 9, 17}));
  ::closelog();
  std::string log;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
    if (entry.is_regular_file()) log += folder.read(std::filesystem::relative(entry, folder.path()));
  }
  EXPECT_NE(log.find("own.onnx: runs on OpenCV, which is slower: layer \"out\" is of kind Sigmoid\n"), log.npos) << log;
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

TEST(EngineChoice, AgreesOnlyOnTheSameNumbers) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  const std::vector<float> theirs{0, 20, -5, 0.001F};
  const auto agrees = [](const std::vector<float>& ours, const std::vector<float>& expected, std::vector<int> shape) {
    try {
      checkAgreement({"out"}, {{ours, std::move(shape)}}, {{expected, {1, 4}}});
    } catch (const Unsupported&) {
      return false;
    }
    return true;
  };
  EXPECT_TRUE(agrees({0.019F, 19.99F, -5, 0}, theirs, {1, 4}));
  EXPECT_FALSE(agrees({0.021F, 20, -5, 0}, theirs, {1, 4}));
  EXPECT_FALSE(agrees(theirs, theirs, {4, 1}));
  EXPECT_FALSE(agrees({0, 20, NAN, 0}, theirs, {1, 4}));
  EXPECT_FALSE(agrees(theirs, {0, 20, NAN, 0}, {1, 4}));
  EXPECT_FALSE(agrees({0, 1, kInfinity, 9}, {0, 1, kInfinity, 0}, {1, 4})) << "one infinity excuses nothing else";
  EXPECT_TRUE(agrees({0, 1, kInfinity, 0}, {0, 1, kInfinity, 0}, {1, 4}));
}

/// As they stand in models/: with a layer that oneDNN does not know they would run, three times slower.
TEST(EngineChoice, OurOwnNetworksAreKnown) {
  for (const std::string name : {"pose_landscape", "person_detector"}) {  // portrait is landscape's twin
    const std::string path = MODEL_DIRECTORY "/" + name + ".onnx";
    std::ifstream stream(path, std::ios::binary);
    const std::string file{std::istreambuf_iterator<char>(stream), {}};
    const ModelSidecar sidecar = readModelSidecar(path, file);
    const auto& shape = sidecar.input.shape;
    NetworkTask task{bytesOf(file), static_cast<int>(shape[1]), static_cast<int>(shape[2] * shape[3]), {}};
    for (const AdapterScale& scale : sidecar.adapter.scales) {
      task.outputs.insert(task.outputs.end(), scale.heads.begin(), scale.heads.end());
    }
    ASSERT_FALSE(task.outputs.empty());
    const auto picture = noise(sidecar.input.bytes(), 5);
    const auto opencv = makeOpenCvEngine(task);
    const auto onednn = makeOneDnnEngine(task);
    EXPECT_NO_THROW(checkAgreement(task.outputs, onednn->run(picture.data()), opencv->run(picture.data()))) << name;
  }
}

}  // namespace
