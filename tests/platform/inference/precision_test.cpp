#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/workstation/inference/engine/engine_choice.h"
#include "platform/workstation/inference/engine/onednn_engine.h"
#include "platform/workstation/inference/engine/opencv_engine.h"
#include "platform/workstation/inference/engine/plan.h"
#include "platform/workstation/inference/engine/precision/bytes.h"
#include "platform/workstation/inference/engine/precision/range_meter.h"
#include "platform/workstation/inference/engine/unsupported.h"
#include "tests/platform/inference/onnx_writer.h"
#include "tests/platform/inference/plain_loops.h"
#include "tests/platform/inference/small_networks.h"

namespace {

using namespace workstation;  // NOLINT(google-build-using-namespace): all of it is about the engines

/// A convolution's weights are far apart, and those of one output are nothing at all.
OnnxWriter uneven() {
  OnnxWriter network = shrunk();
  network.convolution("small", "wide", {16, 3, 1, 1}, {}).node("Relu", {"wide"}, "first");
  std::vector<float> weights(size_t{16} * 6);
  for (size_t i = 0; i < weights.size(); ++i) {
    weights[i] = static_cast<float>(i * 37 % 23) / 23 - 0.4F;
    const size_t output = i / 16;
    weights[i] *= output == 2 ? 0.0F : std::pow(10.0F, static_cast<float>(output) - 3);
  }
  network.constant<float>("out.w", {6, 16, 1, 1}, weights).constant<float>("out.b", {6}, {0, 0.001F, 0.5F, 0, -3, 9});
  return network.node("Conv", {"first", "out.w", "out.b"}, "out", {integers("kernel_shape", {1, 1})});
}

/// Every product is as large as it can be.
OnnxWriter glaring() {
  OnnxWriter network = shrunk();
  network.constant<float>("a.w", {32, 3, 1, 1}, std::vector<float>(96, 1))
      .constant<float>("a.b", {32}, std::vector<float>(32, 9));
  relu6(network.node("Conv", {"small", "a.w", "a.b"}, "a"), "a", "first");
  network.constant<float>("b.w", {8, 32, 1, 1}, std::vector<float>(256, 0.5F));
  network.node("Conv", {"first", "b.w"}, "out");
  network.constant<float>("c.w", {32, 1, 3, 3}, std::vector<float>(288, 0.5F));
  return network.node("Conv", {"first", "c.w"}, "out2", {integer("group", 32)});
}

/// Limited before something is added that has negative values, and again afterwards.
OnnxWriter limitedSum() {
  OnnxWriter network = shrunk();
  network.convolution("small", "a", {18, 3, 1, 1}, {}).convolution("small", "wide", {18, 3, 1, 1}, {});
  network.node("Relu", {"wide"}, "first").convolution("first", "b", {18, 18, 3, 3}, {pads({1, 1, 1, 1})});
  network.node("Clip", {"b"}, "b2", {real("min", -1), real("max", 1.5F)}).node("Add", {"b2", "a"}, "sum");
  network.node("Clip", {"sum"}, "both", {real("min", -0.75F), real("max", 1)});
  return network.convolution("both", "out", {5, 18, 1, 1}, {});
}

struct Network {
  Network(const OnnxWriter& network, const std::vector<std::string>& outputs) : file(network.file(outputs)) {
    task = {bytesOf(file), network.height(), network.packedWidth(), outputs};
    picture = noise(static_cast<size_t>(task.height) * static_cast<size_t>(task.packed_width), 1);
  }
  std::string file;
  NetworkTask task;
  std::vector<std::uint8_t> picture;
};

/// All tensors, in floats.
std::map<std::string, std::vector<float>> floatsOf(const Network& network) {
  NetworkTask whole = network.task;
  whole.outputs.clear();
  whole.precision = Precision::kFloats;
  for (const Step& step : planOf(network.task).steps) whole.outputs.push_back(step.target);
  const auto engine = makeOneDnnEngine(whole);
  const auto values = valuesOf(engine->run(network.picture.data()));
  std::map<std::string, std::vector<float>> floats;
  for (size_t i = 0; i < values.size(); ++i) floats[whole.outputs[i]] = values[i];
  return floats;
}

/// What every tensor reaches on its picture, also those that would rather stay floats.
TensorRanges rangesOf(const Network& network) {
  TensorRanges ranges;
  for (const auto& [tensor, values] : floatsOf(network)) {
    const auto [low, high] = std::minmax_element(values.begin(), values.end());
    ranges[tensor] = Range{std::min(0.0F, *low), std::max(0.0F, *high)};
  }
  return ranges;
}

/// The largest error of a channel: the root of the mean square, of that channel's deviation.
double worstError(const Maps& made, const Maps& expected) {
  const auto channels = static_cast<size_t>(expected.shape[1]);
  const size_t count = expected.values.size() / channels;
  double worst = 0;
  for (size_t channel = 0; channel < channels; ++channel) {
    const auto ours = made.values.subspan(channel * count, count);
    const auto theirs = expected.values.subspan(channel * count, count);
    double mean = 0, errors = 0, deviation = 1e-8;
    for (const float value : theirs) mean += static_cast<double>(value) / static_cast<double>(count);
    for (size_t i = 0; i < count; ++i) {
      errors += std::pow(static_cast<double>(ours[i] - theirs[i]), 2);
      deviation += std::pow(static_cast<double>(theirs[i]) - mean, 2);
    }
    worst = std::max(worst, std::sqrt(errors / deviation));
  }
  return worst;
}

/// The least share of a channel's values that are those of plain loops. A number between two bytes may become either,
/// as the order of a sum decides, and what reads it differs; a wrong scale, zero or weight makes all of a channel
/// differ, and a wrong frame a third.
double leastShareAlike(const std::vector<float>& made, const std::vector<double>& plain, size_t channels) {
  const size_t count = plain.size() / channels;
  double least = 1;
  for (size_t channel = 0; channel < channels; ++channel) {
    double largest = 0, same = 0;
    for (size_t i = channel * count; i < (channel + 1) * count; ++i) largest = std::max(largest, std::abs(plain[i]));
    for (size_t i = channel * count; i < (channel + 1) * count; ++i) {
      same += std::abs(static_cast<double>(made[i]) - plain[i]) <= 1e-4 * largest ? 1 : 0;
    }
    least = std::min(least, same / static_cast<double>(count));
  }
  return least;
}

struct Scenario {
  const char* name;
  OnnxWriter (*make)();
  std::vector<std::string> outputs;
};

void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

class ShortNumbers : public testing::TestWithParam<Scenario> {
 protected:
  void compare(Precision precision) {
    m_network.task.precision = precision;
    m_network.task.ranges = rangesOf(m_network);
    const auto floats = floatsOf(m_network);
    const PlainLoops plain(m_network.task, floats);
    const auto engine = makeOneDnnEngine(m_network.task);
    const auto made = valuesOf(engine->run(m_network.picture.data()));
    for (size_t i = 0; i < made.size(); ++i) {
      const std::string& output = m_network.task.outputs[i];
      const auto channels = static_cast<size_t>(planOf(m_network.task).shapes.at(output).channels);
      EXPECT_GT(leastShareAlike(made[i], plain.values(output), channels), 0.75) << output << " " << nameOf(precision);
      const std::vector<double> exact(floats.at(output).begin(), floats.at(output).end());
      EXPECT_LT(leastShareAlike(made[i], exact, channels), 0.75) << output << " is of floats";
    }
    const auto other = noise(m_network.picture.size(), 2);
    engine->run(other.data());
    EXPECT_EQ(valuesOf(engine->run(m_network.picture.data())), made) << "nothing of another picture is left";
  }

  Network m_network{GetParam().make(), GetParam().outputs};
};

TEST_P(ShortNumbers, AreThoseOfPlainLoops) {
  compare(Precision::kBytes);
  if (multiplies(Precision::kShortFloats)) compare(Precision::kShortFloats);
}
INSTANTIATE_TEST_SUITE_P(
    Networks, ShortNumbers,
    testing::Values(Scenario{"framed_later", framedLater, {"out", "out2"}},
                    Scenario{"overlapping", overlapping, {"out2"}}, Scenario{"depthwise", depthwise, {"out"}},
                    Scenario{"groups", groups, {"out"}}, Scenario{"sums", sums, {"out", "out2", "out3"}},
                    Scenario{"sums_alone", sums, {"out"}}, Scenario{"loose", loose, {"out", "out2"}},
                    Scenario{"resized", resized, {"out"}}, Scenario{"limited_sum", limitedSum, {"out"}},
                    Scenario{"uneven", uneven, {"out"}}),
    [](const auto& scenario) { return scenario.param.name; });

/// In a process of its own, as oneDNN asks once which instructions it may use: those of VNNI cannot overflow.
TEST(BytesDeathTest, DoNotOverflowWithoutVnni) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ::setenv("ONEDNN_MAX_CPU_ISA", "AVX2", 1);
  const auto run = [] {
    Network network(glaring(), {"out", "out2"});
    network.task.ranges = rangesOf(network);
    network.task.precision = Precision::kBytes;
    const auto engine = makeOneDnnEngine(network.task);
    const auto maps = engine->run(network.picture.data());
    const auto isRight = [](float value, float right) { return std::abs(value - right) < 0.01F * right; };
    const bool is_right =
        std::all_of(maps[0].values.begin(), maps[0].values.end(), [&](float v) { return isRight(v, 96); }) &&
        std::all_of(maps[1].values.begin(), maps[1].values.end(), [&](float v) { return isRight(v, 27); });
    std::_Exit(is_right && !multiplies(Precision::kShortFloats) ? 7 : 1);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
  ::unsetenv("ONEDNN_MAX_CPU_ISA");
}

TEST(Bytes, OfWeightsAreOfSevenBitsAndOfRangesHoldZero) {
  OnnxConstant weights;
  weights.shape = {3, 1, 1, 4};
  weights.floats = {0.1F, -0.2F, 0, 0.05F, 0, 0, 0, 0, 1e30F, 1e30F, -1e30F, 3e29F};
  const ByteWeights made = byteWeights(weights);
  EXPECT_EQ(made.values, (std::vector<std::int8_t>{31, -63, 0, 16, 0, 0, 0, 0, 63, 63, -63, 19}));
  EXPECT_EQ(made.sums, (std::vector<int>{-16, 0, 82}));
  EXPECT_FLOAT_EQ(made.scales[0], 0.2F / 63);
  EXPECT_TRUE(std::isnormal(made.scales[1])) << "it is divided by";
  EXPECT_EQ(bytesFor({0, 6}).zero, 0);
  EXPECT_EQ(bytesFor({-1, 3}).zero, 64);
  EXPECT_EQ(bytesFor({-5, 0}).zero, 255);
  EXPECT_FLOAT_EQ(bytesFor({-1, 3}).scale, 4.0F / 255);
}

class RangesThatDoNotFit : public testing::Test {
 protected:
  RangesThatDoNotFit() {
    m_network.task.precision = Precision::kBytes;
    m_network.task.ranges = rangesOf(m_network);
  }

  /// What the system log says of the network, which runs all the same.
  std::string log(const TensorRanges& ranges) {
    NetworkTask task = m_network.task;
    task.ranges = ranges;
    std::unique_ptr<Engine> engine;
    std::string log = logOf([&] { engine = chooseEngine("own.onnx", task); });
    const auto opencv = makeOpenCvEngine(task);
    EXPECT_NO_THROW(
        checkAgreement(task.outputs, engine->run(m_network.picture.data()), opencv->run(m_network.picture.data())));
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
    return log;
  }

  Network m_network{limitedSum(), {"out"}};
};

TEST_F(RangesThatDoNotFit, AreToldAndTheNetworkRunsInFloats) {
  const TensorRanges good = m_network.task.ranges;
  const auto changed = [&](const std::optional<Range>& range) {
    TensorRanges ranges = good;
    ranges["both"] = range;
    return ranges;
  };
  TensorRanges fewer = good, other = good;
  fewer.erase("both");
  other["both2"] = other.extract("both").mapped();
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN(), kInfinity = std::numeric_limits<float>::infinity();
  const std::string none = "its sidecar has a range of tensor \"both\" that is none\n";
  const std::pair<TensorRanges, std::string> cases[] = {
      {{}, "its sidecar has no ranges for bytes\n"},
      {fewer, "its sidecar has ranges of " + std::to_string(good.size() - 1) + " tensors, and the network has " +
                  std::to_string(good.size()) + "\n"},
      {other, "its sidecar has no range of tensor \"both\"\n"},
      {changed(Range{0, kNan}), none},
      {changed(Range{kNan, 1}), none},
      {changed(Range{0, kInfinity}), none},
      {changed(Range{0, 0}), none},
      {changed(Range{0, -1}), none},
      {changed(Range{1, 2}), none},
      {changed(Range{0, 1e-3F}), "its outputs differ too much from those in fp32\n"},
      {changed(Range{-1e5F, 1e5F}), "its outputs differ too much from those in fp32\n"}};
  for (const auto& [ranges, reason] : cases) {
    EXPECT_NE(log(ranges).find("own.onnx: runs in fp32 instead of int8: " + reason), std::string::npos) << reason;
  }
}

TEST_F(RangesThatDoNotFit, AreNoneWhereSomeTensorsStayFloats) {
  m_network.task.ranges["both"].reset();
  m_network.task.ranges["small"].reset();
  const auto opencv = makeOpenCvEngine(m_network.task);
  const auto engine = makeOneDnnEngine(m_network.task);
  EXPECT_LT(worstError(engine->run(m_network.picture.data())[0], opencv->run(m_network.picture.data())[0]), 0.06);
}

TEST(Likeness, IsOfShapeAndOfTheDeviationInAChannel) {
  const auto alike = [](const std::vector<float>& ours, const std::vector<float>& theirs, Precision precision) {
    try {
      const auto size = static_cast<int>(ours.size());
      checkLikeness({"out"}, {{ours, {1, 1, 1, size}}}, {{theirs, {1, 1, 1, 4}}}, precision);
    } catch (const Unsupported&) {
      return false;
    }
    return true;
  };
  const std::vector<float> theirs{101, 99, 101, 99};  // deviate by 1
  EXPECT_TRUE(alike({101.8F, 99.8F, 100.2F, 98.2F}, theirs, Precision::kBytes));
  EXPECT_FALSE(alike({101.9F, 99.9F, 100.1F, 98.1F}, theirs, Precision::kBytes));
  EXPECT_FALSE(alike({100, 100, 100, 100}, theirs, Precision::kBytes)) << "near, and says nothing";
  EXPECT_TRUE(alike({101.2F, 99.2F, 100.8F, 98.8F}, theirs, Precision::kShortFloats));
  EXPECT_FALSE(alike({101.3F, 99.3F, 100.7F, 98.7F}, theirs, Precision::kShortFloats));
  EXPECT_FALSE(alike({101, 99, NAN, 99}, theirs, Precision::kBytes));
  EXPECT_FALSE(alike(theirs, {101, 99, NAN, 99}, Precision::kBytes));
  EXPECT_FALSE(alike({101, 99, 101}, theirs, Precision::kBytes));
  const std::vector<float> off{102.2F, 100.2F, 102.2F, 100.2F};
  const std::vector<int> flat{1, 1, 2, 2}, two_channels{1, 2, 1, 2};
  EXPECT_FALSE(alike(off, theirs, Precision::kBytes));
  EXPECT_NO_THROW(
      checkLikeness({"a", "b"}, {{theirs, flat}, {off, flat}}, {{theirs, flat}, {theirs, flat}}, Precision::kBytes))
      << "they are judged together";
  const std::vector<float> biases{3, 3, 9, 9}, with_picture{2, 4, 8, 10};
  EXPECT_THROW(checkLikeness({"out"}, {{biases, two_channels}}, {{with_picture, two_channels}}, Precision::kBytes),
               Unsupported)
      << "what tells channels apart is no picture";
}

TEST(RangeMeter, NotesTheExtremesOfAllRunsAndWhatStaysFloats) {
  OnnxWriter writer = depthwise();
  writer.convolution("wide", "padded", {4, 19, 3, 3}, {pads({1, 1, 1, 1})}).node("Relu", {"padded"}, "padded2");
  writer.convolution("padded2", "end", {2, 4, 1, 1}, {});
  writer.convolution("wide6", "loose", {19, 1, 1, 1}, {integer("group", 19)});
  doubled(writer.convolution("loose", "alone", {2, 19, 1, 1}, {}).node("Relu", {"alone"}, "alone2"), "alone2",
          "double");
  writer.convolution("double", "last", {2, 2, 1, 1}, {});
  const Network network(writer, {"out", "end", "last"});
  const auto floats = makeOneDnnEngine(network.task);
  RangeMeter meter;
  const auto engine = chooseEngine("any.onnx", network.task);
  const std::vector<std::uint8_t> black(network.picture.size());
  engine->run(black.data());
  EXPECT_EQ(valuesOf(engine->run(network.picture.data())), valuesOf(floats->run(network.picture.data())));
  engine->run(black.data());
  const TensorRanges ranges = meter.ranges();
  const TensorRanges seen = rangesOf(network);
  ASSERT_EQ(ranges.size(), seen.size());
  EXPECT_NO_THROW(checkRanges(ranges, planOf(network.task)));
  for (const char* const tensor :
       {"small", "wide", "padded2", "deep6", "out", "end", "last", "loose", "alone2", "double"}) {
    EXPECT_FALSE(ranges.at(tensor)) << tensor;
  }
  ASSERT_TRUE(ranges.at("wide6"));
  EXPECT_GE(ranges.at("wide6")->high, seen.at("wide6")->high);
  EXPECT_LE(ranges.at("wide6")->high, 6);
  EXPECT_EQ(ranges.at("wide6")->low, 0);
}

}  // namespace
